#include "linux/LocalNotificationCenter.h"

#include <algorithm>

namespace drovel::platform {

ObserverToken LocalNotificationCenter::addObserver(std::string_view name, Block block) {
    auto observer = std::make_shared<Observer>();
    observer->name = std::string(name);
    observer->block = std::move(block);
    std::lock_guard lock(mutex_);
    observer->token = ObserverToken{nextToken_++};
    observers_.push_back(observer);
    return observer->token;
}

void LocalNotificationCenter::removeObserver(ObserverToken token) {
    std::shared_ptr<Observer> removed;
    {
        std::lock_guard lock(mutex_);
        auto it = std::find_if(observers_.begin(), observers_.end(),
                               [&](const auto& observer) { return observer->token == token; });
        if (it == observers_.end()) return;
        removed = std::move(*it);
        observers_.erase(it);
    }
    removed->removed = true;
    // `removed` may hold the last reference to the block (and what it captured): let it go
    // outside the lock, since the captured objects' destructors may use the centre.
}

std::size_t LocalNotificationCenter::observerCount() const {
    std::lock_guard lock(mutex_);
    return observers_.size();
}

void LocalNotificationCenter::postNotification(Notification notification) {
    // Observers run without the lock held, so that they may post, add and remove freely.
    std::vector<std::shared_ptr<Observer>> targets;
    {
        std::lock_guard lock(mutex_);
        for (const auto& observer : observers_)
            if (observer->name.empty() || observer->name == notification.name) targets.push_back(observer);
    }
    for (const auto& observer : targets)
        if (!observer->removed) observer->block(notification);
}

}  // namespace drovel::platform
