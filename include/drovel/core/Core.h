#pragma once
// The core library's state as its modules see it: configuration, the app instance id, the sites,
// orders and notifications managers, module registration and the app configuration.
//
// Core::shared() is the process's instance, on the default platform. Tests and hosts that run
// several SDK instances side by side construct their own Core on the seams they choose.

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drovel/core/AppConfig.h"
#include "drovel/core/BaseAPIService.h"
#include "drovel/core/Error.h"
#include "drovel/core/Logger.h"
#include "drovel/core/Site.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/UserNotificationCenter.h"

namespace drovel::platform {
struct Platform;
class UserDefaults;
}  // namespace drovel::platform

namespace drovel::core {

struct CoreConfiguration {
    // Where the backend is, e.g. "https://api.example.com".
    std::string baseURL;
    std::string apiToken;
    std::chrono::milliseconds requestTimeout = APIServiceConfiguration::defaultTimeout;
};

// A module's part in handling the user's answers to delivered notifications.
class NotificationHandler {
public:
    virtual ~NotificationHandler() = default;
    // Called for every response; a handler acts only on its own notifications. Returns values
    // for the host (a campaign's metadata) when it handled the response, else none.
    virtual std::optional<std::map<std::string, std::string>> handle(const platform::NotificationResponse& response) = 0;
};

// What the core library reports to each registered module. Called on the thread that made the
// change (the host's or the core library's); implementations hand longer work to their own queue.
class DrovelModuleManager {
public:
    virtual ~DrovelModuleManager() = default;
    // A new app configuration, with the push message that brought it, if any.
    virtual void configUpdated(const AppConfig& config, const std::optional<PushData>& pushData) = 0;
    // The user's orders changed; orders holds all of them (open or not).
    virtual void ordersUpdated(const std::vector<Order>& orders) = 0;
    virtual void setLogLevel(LogLevel logLevel) = 0;
};

class Core;

// Store sites from the backend. Thread-safe.
class SitesManager {
public:
    using Callback = std::function<void(std::optional<std::vector<Site>> sites, ErrorPtr error)>;

    // The sites within the region, one page of them: GET <latestApi>/sites with the query
    // latitude, longitude, radius (shortest round-trip decimal texts), page and per, answered by
    // {"data": [site, ...]}. The callback runs once, on the HTTP transport's thread (or at once
    // when the core library is not configured), with the sites or an APIError.
    void fetchWithRegion(const platform::CircularRegion& region, int page, int per, Callback callback) const;

private:
    friend class Core;
    explicit SitesManager(std::shared_ptr<BaseAPIService> service) : service_(std::move(service)) {}
    std::shared_ptr<BaseAPIService> service_;
};

// The user's orders, as the host last reported them. Thread-safe.
class OrdersManager {
public:
    // Replaces the orders and reports them to the registered modules (ordersUpdated), on the
    // caller's thread.
    void setOrders(std::vector<Order> orders);
    std::vector<Order> orders() const;
    // The orders that are neither completed nor cancelled, in their order.
    std::vector<Order> openOrders() const;
    bool hasOpenOrders() const;

private:
    friend class Core;
    explicit OrdersManager(Core& core) : core_(core) {}
    Core& core_;
    mutable std::mutex mutex_;
    std::vector<Order> orders_;
};

// Passes notification responses to the modules' handlers. Thread-safe.
class NotificationsManager {
public:
    // Handlers are held weakly, asked in the order they were added; adding one that is there
    // already does nothing, and handlers that are gone are dropped.
    void addNotificationHandler(std::weak_ptr<NotificationHandler> handler);
    // Asks every live handler, on the caller's thread, and returns the first answer given.
    std::optional<std::map<std::string, std::string>> handle(const platform::NotificationResponse& response);

private:
    friend class Core;
    NotificationsManager() = default;
    std::vector<std::shared_ptr<NotificationHandler>> liveHandlers();
    std::mutex mutex_;
    std::vector<std::weak_ptr<NotificationHandler>> handlers_;
};

// Every operation is thread-safe.
class Core {
public:
    // The key under which the app instance id is kept in the user defaults.
    static constexpr std::string_view appInstanceIDKey = "Drovel.appInstanceID";

    // The core library on the platform's user defaults and HTTP transport (both required).
    explicit Core(const platform::Platform& platform);
    Core(std::shared_ptr<platform::UserDefaults> userDefaults, std::shared_ptr<platform::HttpTransport> httpTransport);
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;
    ~Core();

    // The process's instance, made on first use from platform::defaultPlatform() (which must be
    // installed by then) and never released.
    static const std::shared_ptr<Core>& shared();

    // True once configure() was called.
    bool isCoreConfigured() const;
    // Sets (or replaces) the backend and the API token every request uses from then on.
    void configure(CoreConfiguration configuration);
    std::optional<CoreConfiguration> configuration() const;

    // The app instance's id: a random (version 4) UUID in lower-case 8-4-4-4-12 form, made once
    // and kept in the user defaults under appInstanceIDKey. A stored value that is not a UUID is
    // replaced by a new one; a stored upper-case UUID is kept, in lower case.
    std::string appInstanceID();

    SitesManager& sites() { return sites_; }
    OrdersManager& orders() { return orders_; }
    NotificationsManager& notifications() { return notifications_; }
    const Logger& logger() const { return logger_; }

    // Modules are held weakly and reported to in the order they registered; registering one
    // that is there already does nothing. Registration does not replay the current state.
    void registerModule(std::weak_ptr<DrovelModuleManager> module);
    // Keeps the app configuration and reports it to the modules (configUpdated), on the caller's thread.
    void updateAppConfig(AppConfig config, std::optional<PushData> pushData = std::nullopt);
    std::optional<AppConfig> appConfig() const;
    // Sets the core logger's level and reports it to the modules (setLogLevel).
    void setLogLevel(LogLevel logLevel);

    // Ends every request in flight on the HTTP transport; each completes with a cancelled error.
    void cancelRunningURLSessions();

    // What a module's service needs to send requests the way the core library does: the
    // transport, and the current base URL, token and timeout (empty before configure()).
    const std::shared_ptr<platform::HttpTransport>& httpTransport() const { return httpTransport_; }
    BaseAPIService::ConfigurationSource apiConfigurationSource() const;

private:
    friend class OrdersManager;
    struct Settings;
    std::vector<std::shared_ptr<DrovelModuleManager>> liveModules();

    std::shared_ptr<platform::UserDefaults> userDefaults_;
    std::shared_ptr<platform::HttpTransport> httpTransport_;
    // Shared with the API configuration source, which may outlive the Core.
    std::shared_ptr<Settings> settings_;
    Logger logger_{"DrovelCore"};
    SitesManager sites_;
    OrdersManager orders_;
    NotificationsManager notifications_;

    mutable std::mutex mutex_;
    std::optional<std::string> appInstanceID_;
    std::optional<AppConfig> appConfig_;
    std::vector<std::weak_ptr<DrovelModuleManager>> modules_;
};

// True for a UUID in 8-4-4-4-12 hexadecimal form (either letter case).
bool isUUIDText(std::string_view text);
// A new random version 4 UUID in lower-case 8-4-4-4-12 form.
std::string makeUUIDv4();

}  // namespace drovel::core
