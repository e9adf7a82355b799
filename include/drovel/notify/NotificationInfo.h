#pragma once
// The text of the host's site notifications (Manager::createForSites and
// createForSitesInRegion): one title, one body and optional extra user info, shared by every site
// of a call.

#include <optional>
#include <string>
#include <utility>

#include "drovel/platform/UserInfo.h"

namespace drovel::notify {

class NotificationInfo {
public:
    // A notification always has its texts.
    NotificationInfo() = delete;
    NotificationInfo(std::string title, std::string content, std::optional<platform::UserInfo> data)
        : title_(std::move(title)), content_(std::move(content)), data_(std::move(data)) {}

    // The notification title.
    const std::string& title() const { return title_; }
    // The notification body.
    const std::string& content() const { return content_; }
    // Extra user info for the notification; its "message_source" is always replaced.
    const std::optional<platform::UserInfo>& data() const { return data_; }

private:
    std::string title_;
    std::string content_;
    std::optional<platform::UserInfo> data_;
};

}  // namespace drovel::notify
