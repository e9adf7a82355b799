#include "support/FakeUserNotificationCenter.h"
#include "support/Locked.h"

#include <algorithm>

namespace drovel::testing {

using namespace platform;

FakeUserNotificationCenter::FakeUserNotificationCenter()
    : callbackQueue_(std::make_shared<DispatchQueue>("FakeUserNotificationCenter")) {}

void FakeUserNotificationCenter::deliverCompletion(Job job) {
    std::shared_ptr<Queue> queue;
    {
        std::lock_guard lock(mutex_);
        queue = callbackQueue_;
    }
    if (queue) {
        queue->async(std::move(job));
    } else {
        job();
    }
}

void FakeUserNotificationCenter::add(NotificationRequest request, AddCompletion completionHandler) {
    core::ErrorPtr error;
    {
        std::lock_guard lock(mutex_);
        added_.push_back(request);
        if (request.identifier == failingIdentifier_) error = addError_;
        if (!error) {
            std::erase_if(pending_, [&](const NotificationRequest& r) { return r.identifier == request.identifier; });
            pending_.push_back(std::move(request));
        }
    }
    if (completionHandler)
        deliverCompletion([completion = std::move(completionHandler), error] { completion(error); });
}

void FakeUserNotificationCenter::getPendingNotificationRequests(PendingCompletion completionHandler) {
    std::vector<NotificationRequest> requests;
    {
        std::lock_guard lock(mutex_);
        ++getPendingCount_;
        requests = pending_;
    }
    if (completionHandler)
        deliverCompletion([completion = std::move(completionHandler), requests = std::move(requests)]() mutable {
            completion(std::move(requests));
        });
}

void FakeUserNotificationCenter::removePendingNotificationRequests(std::vector<std::string> identifiers) {
    std::lock_guard lock(mutex_);
    auto listed = [&](const NotificationRequest& r) {
        return std::find(identifiers.begin(), identifiers.end(), r.identifier) != identifiers.end();
    };
    std::erase_if(pending_, listed);
}

void FakeUserNotificationCenter::getNotificationSettings(SettingsCompletion completionHandler) {
    NotificationSettings settings;
    {
        std::lock_guard lock(mutex_);
        settings.authorizationStatus = status_;
    }
    if (completionHandler) deliverCompletion([completion = std::move(completionHandler), settings] { completion(settings); });
}

// Always granted.
void FakeUserNotificationCenter::requestAuthorization(NotificationAuthorizationOptions, AuthorizationCompletion completionHandler) {
    lockedAssign(mutex_, status_, NotificationAuthorizationStatus::authorized);
    if (completionHandler) deliverCompletion([completion = std::move(completionHandler)] { completion(true, nullptr); });
}

void FakeUserNotificationCenter::setCallbackQueue(std::shared_ptr<Queue> queue) { lockedAssign(mutex_, callbackQueue_, std::move(queue)); }

void FakeUserNotificationCenter::setAuthorizationStatus(NotificationAuthorizationStatus status) { lockedAssign(mutex_, status_, status); }

void FakeUserNotificationCenter::failAdds(std::string identifier, core::ErrorPtr error) {
    std::lock_guard lock(mutex_);
    failingIdentifier_ = std::move(identifier);
    addError_ = std::move(error);
}

void FakeUserNotificationCenter::setPending(std::vector<NotificationRequest> requests) { lockedAssign(mutex_, pending_, std::move(requests)); }

std::optional<NotificationRequest> FakeUserNotificationCenter::deliver(std::string_view identifier) {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(pending_.begin(), pending_.end(),
                           [&](const NotificationRequest& r) { return r.identifier == identifier; });
    if (it == pending_.end()) return std::nullopt;
    NotificationRequest request = std::move(*it);
    pending_.erase(it);
    return request;
}

std::vector<NotificationRequest> FakeUserNotificationCenter::pending() const { return lockedCopy(mutex_, pending_); }

std::vector<std::string> FakeUserNotificationCenter::pendingIdentifiers() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> identifiers;
    for (const auto& request : pending_) identifiers.push_back(request.identifier);
    return identifiers;
}

std::vector<NotificationRequest> FakeUserNotificationCenter::addedRequests() const { return lockedCopy(mutex_, added_); }

std::size_t FakeUserNotificationCenter::getPendingCount() const { return lockedCopy(mutex_, getPendingCount_); }

void FakeUserNotificationCenter::waitForCallbacks() const {
    std::shared_ptr<Queue> queue;
    {
        std::lock_guard lock(mutex_);
        queue = callbackQueue_;
    }
    // A serial queue runs jobs in order: once an empty job has run, every earlier one has too.
    if (queue && !queue->isCurrent()) queue->sync([] {});
}

}  // namespace drovel::testing
