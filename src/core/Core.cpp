#include "drovel/core/Core.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <random>

#include "drovel/core/JsonWriter.h"
#include "drovel/platform/Location.h"
#include "drovel/platform/Platform.h"
#include "drovel/platform/UserDefaults.h"

namespace drovel::core {

namespace {

constexpr std::string_view kFile = "Core";

// GET <latestApi>/sites for one page of the sites in a circle.
class GetSitesEndpoint final : public CodableRequest<std::vector<Site>> {
public:
    GetSitesEndpoint(const platform::CircularRegion& region, int page, int per)
        : CodableRequest(Site::listFromJson), region_(region), page_(page), per_(per) {}

    std::string requestEndPoint() const override { return std::string(latestApi) + "/sites"; }
    QueryParams queryParams() const override {
        return {
            {"latitude", doubleText(region_.center.latitude)},
            {"longitude", doubleText(region_.center.longitude)},
            {"radius", doubleText(region_.radius)},
            {"page", std::to_string(page_)},
            {"per", std::to_string(per_)},
        };
    }

private:
    platform::CircularRegion region_;
    int page_;
    int per_;
};

template <class T>
bool sameObject(const std::weak_ptr<T>& a, const std::weak_ptr<T>& b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

// Adds entry unless the list holds it already.
template <class T>
void addOnce(std::vector<std::weak_ptr<T>>& list, std::weak_ptr<T> entry) {
    auto same = [&entry](const std::weak_ptr<T>& held) { return sameObject(held, entry); };
    if (std::none_of(list.begin(), list.end(), same)) list.push_back(std::move(entry));
}

// The entries still alive, in order; the others are dropped from the list.
template <class T>
std::vector<std::shared_ptr<T>> lockLive(std::vector<std::weak_ptr<T>>& list) {
    std::vector<std::shared_ptr<T>> live;
    std::erase_if(list, [&live](const std::weak_ptr<T>& held) {
        auto strong = held.lock();
        if (!strong) return true;
        live.push_back(std::move(strong));
        return false;
    });
    return live;
}

}  // namespace

// ---- UUIDs ----

bool isUUIDText(std::string_view text) { return platform::canonicalUUID(text).has_value(); }

std::string makeUUIDv4() {
    static constexpr char hex[] = "0123456789abcdef";
    std::random_device device;
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        auto word = static_cast<std::uint32_t>(device());
        for (std::size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<unsigned char>(word >> (8 * j));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += hex[bytes[i] >> 4];
        text += hex[bytes[i] & 0x0F];
    }
    return text;
}

// ---- SitesManager ----

void SitesManager::fetchWithRegion(const platform::CircularRegion& region, int page, int per, Callback callback) const {
    service_->execute(GetSitesEndpoint(region, page, per), [callback = std::move(callback)](Result<std::vector<Site>> sites) {
        if (sites) return callback(std::move(sites).value(), nullptr);
        callback(std::nullopt, sites.error());
    });
}

// ---- OrdersManager ----

void OrdersManager::setOrders(std::vector<Order> orders) {
    {
        std::lock_guard lock(mutex_);
        orders_ = orders;
    }
    for (const auto& module : core_.liveModules()) module->ordersUpdated(orders);
}

std::vector<Order> OrdersManager::orders() const {
    std::lock_guard lock(mutex_);
    return orders_;
}

std::vector<Order> OrdersManager::openOrders() const {
    std::lock_guard lock(mutex_);
    std::vector<Order> open;
    std::copy_if(orders_.begin(), orders_.end(), std::back_inserter(open), [](const Order& order) { return order.isOpen(); });
    return open;
}

bool OrdersManager::hasOpenOrders() const {
    std::lock_guard lock(mutex_);
    return std::any_of(orders_.begin(), orders_.end(), [](const Order& order) { return order.isOpen(); });
}

// ---- NotificationsManager ----

void NotificationsManager::addNotificationHandler(std::weak_ptr<NotificationHandler> handler) {
    std::lock_guard lock(mutex_);
    addOnce(handlers_, std::move(handler));
}

std::vector<std::shared_ptr<NotificationHandler>> NotificationsManager::liveHandlers() {
    std::lock_guard lock(mutex_);
    return lockLive(handlers_);
}

std::optional<std::map<std::string, std::string>> NotificationsManager::handle(const platform::NotificationResponse& response) {
    // Every handler sees every response (each acts only on its own notifications); the first
    // answer is the one the host gets.
    std::optional<std::map<std::string, std::string>> answer;
    for (const auto& handler : liveHandlers()) {
        auto handled = handler->handle(response);
        if (handled && !answer) answer = std::move(handled);
    }
    return answer;
}

// ---- Core ----

struct Core::Settings {
    std::mutex mutex;
    std::optional<CoreConfiguration> configuration;
};

Core::Core(const platform::Platform& platform) : Core(platform.userDefaults, platform.httpTransport) {}

Core::Core(std::shared_ptr<platform::UserDefaults> userDefaults, std::shared_ptr<platform::HttpTransport> httpTransport)
    : userDefaults_(std::move(userDefaults)),
      httpTransport_(std::move(httpTransport)),
      settings_(std::make_shared<Settings>()),
      sites_(std::make_shared<BaseAPIService>(httpTransport_, apiConfigurationSource())),
      orders_(*this) {
    if (!userDefaults_) programmingError("Core needs the platform's user defaults");
}

Core::~Core() = default;

const std::shared_ptr<Core>& Core::shared() {
    // Deliberately leaked: modules may still reach it while static objects are destroyed at exit.
    static const auto* instance = new std::shared_ptr<Core>(std::make_shared<Core>(platform::defaultPlatform()));
    return *instance;
}

bool Core::isCoreConfigured() const {
    std::lock_guard lock(settings_->mutex);
    return settings_->configuration.has_value();
}

void Core::configure(CoreConfiguration configuration) {
    std::lock_guard lock(settings_->mutex);
    settings_->configuration = std::move(configuration);
}

std::optional<CoreConfiguration> Core::configuration() const {
    std::lock_guard lock(settings_->mutex);
    return settings_->configuration;
}

BaseAPIService::ConfigurationSource Core::apiConfigurationSource() const {
    return [settings = settings_] {
        std::lock_guard lock(settings->mutex);
        APIServiceConfiguration api;
        if (const auto& configuration = settings->configuration) {
            api.baseURL = configuration->baseURL;
            api.apiToken = configuration->apiToken;
            api.timeout = configuration->requestTimeout;
        }
        return api;
    };
}

std::string Core::appInstanceID() {
    std::lock_guard lock(mutex_);
    if (appInstanceID_) return *appInstanceID_;

    std::optional<std::string> stored = userDefaults_->string(appInstanceIDKey);
    std::string id;
    if (stored && isUUIDText(*stored)) {
        id = *stored;
        std::transform(id.begin(), id.end(), id.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    } else {
        if (userDefaults_->object(appInstanceIDKey)) {
            logger_.warning("Replacing the malformed stored app instance id", DROVEL_SOURCE(kFile, "appInstanceID()"));
        }
        id = makeUUIDv4();
    }
    if (id != stored) {
        userDefaults_->setString(appInstanceIDKey, id);
        // The id must survive a crash right after it was handed out.
        userDefaults_->synchronize();
    }
    appInstanceID_ = id;
    return id;
}

std::vector<std::shared_ptr<DrovelModuleManager>> Core::liveModules() {
    std::lock_guard lock(mutex_);
    return lockLive(modules_);
}

void Core::registerModule(std::weak_ptr<DrovelModuleManager> module) {
    std::lock_guard lock(mutex_);
    addOnce(modules_, std::move(module));
}

void Core::updateAppConfig(AppConfig config, std::optional<PushData> pushData) {
    {
        std::lock_guard lock(mutex_);
        appConfig_ = config;
    }
    for (const auto& module : liveModules()) module->configUpdated(config, pushData);
}

std::optional<AppConfig> Core::appConfig() const {
    std::lock_guard lock(mutex_);
    return appConfig_;
}

void Core::setLogLevel(LogLevel logLevel) {
    logger_.setLogLevel(logLevel);
    for (const auto& module : liveModules()) module->setLogLevel(logLevel);
}

void Core::cancelRunningURLSessions() { httpTransport_->cancelAll(); }

}  // namespace drovel::core
