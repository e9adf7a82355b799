#pragma once
// The default notification centre of a Linux host: named broadcasts within the process.

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "drovel/platform/NotificationCenter.h"

namespace drovel::platform {

class LocalNotificationCenter final : public NotificationCenter {
public:
    ObserverToken addObserver(std::string_view name, Block block) override;
    void removeObserver(ObserverToken token) override;
    // The number of observers (for diagnostics and tests).
    std::size_t observerCount() const;

protected:
    void postNotification(Notification notification) override;

private:
    struct Observer {
        ObserverToken token;
        std::string name;
        Block block;
        std::atomic<bool> removed{false};
    };

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Observer>> observers_;
    std::uint64_t nextToken_ = 1;
};

}  // namespace drovel::platform
