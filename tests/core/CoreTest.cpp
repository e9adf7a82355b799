// Core: the app instance id, the sites region query, orders, modules and notification handlers.

#include <gtest/gtest.h>

#include <future>

#include "drovel/core/Core.h"
#include "linux/FileUserDefaults.h"
#include "support/FakeHttpTransport.h"
#include "support/TempDirectory.h"

namespace drovel::core {
namespace {

using namespace std::chrono_literals;
using platform::HttpMethod;

class CoreTest : public ::testing::Test {
protected:
    std::shared_ptr<platform::UserDefaults> defaults() {
        return std::make_shared<platform::FileUserDefaults>(directory.file("UserDefaults.json"));
    }
    std::unique_ptr<Core> makeCore(std::shared_ptr<platform::UserDefaults> userDefaults) {
        return std::make_unique<Core>(std::move(userDefaults), transport);
    }

    struct SitesAnswer {
        std::optional<std::vector<Site>> sites;
        ErrorPtr error;
    };
    SitesAnswer fetch(Core& core, platform::CircularRegion region, int page, int per) {
        auto promise = std::make_shared<std::promise<SitesAnswer>>();
        auto future = promise->get_future();
        core.sites().fetchWithRegion(region, page, per, [promise](std::optional<std::vector<Site>> sites, ErrorPtr error) {
            promise->set_value({std::move(sites), std::move(error)});
        });
        if (future.wait_for(5s) != std::future_status::ready) return {std::nullopt, makeError<SimpleError>("no answer")};
        return future.get();
    }

    testing::TempDirectory directory;
    std::shared_ptr<testing::FakeHttpTransport> transport = std::make_shared<testing::FakeHttpTransport>();
};

bool isLowerCaseUUIDv4(const std::string& id) {
    return isUUIDText(id) && id[14] == '4' && std::string_view("89ab").find(id[19]) != std::string_view::npos &&
           std::none_of(id.begin(), id.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

TEST_F(CoreTest, AppInstanceIDIsMadeOnceKeptAndReplacedWhenNotAUUID) {
    struct Case {
        std::optional<platform::DefaultsValue> stored;
        std::optional<std::string> kept;  // none: replaced by a new id
    };
    const std::vector<Case> cases = {
        {std::nullopt, std::nullopt},
        {"not-a-uuid", std::nullopt},
        {"", std::nullopt},
        {std::int64_t{42}, std::nullopt},
        {"0123456789ab-cdef-4012-8345-6789abcdef01", std::nullopt},   // dashes misplaced
        {"g1234567-89ab-4def-8123-456789abcdef", std::nullopt},       // not hexadecimal
        {"01234567-89ab-4def-8123-456789abcdef0", std::nullopt},      // one digit too many
        {"01234567-89ab-4def-8123-456789abcdef", "01234567-89ab-4def-8123-456789abcdef"},
        {"01234567-89AB-1DEF-C123-456789ABCDEF", "01234567-89ab-1def-c123-456789abcdef"},
    };
    for (const Case& c : cases) {
        auto userDefaults = defaults();
        if (c.stored) userDefaults->set(Core::appInstanceIDKey, *c.stored);
        else userDefaults->removeObject(Core::appInstanceIDKey);
        userDefaults->synchronize();
        auto core = makeCore(userDefaults);

        std::string id = core->appInstanceID();

        if (c.kept) {
            EXPECT_EQ(id, *c.kept);
        } else {
            EXPECT_TRUE(isLowerCaseUUIDv4(id)) << id;
        }
        EXPECT_EQ(core->appInstanceID(), id);
        // A new process: new defaults read from the same file, a new Core.
        EXPECT_EQ(makeCore(defaults())->appInstanceID(), id);
    }
    EXPECT_NE(makeUUIDv4(), makeUUIDv4());
}

TEST_F(CoreTest, FetchWithRegionAsksForOnePageOfSitesAroundTheCentre) {
    transport->respond(HttpMethod::get, "/api/v1/sites", 200, R"({"data": [
        {"id": 42, "partner_identifier": "A-42", "name": "Main St",
         "geofence": {"latitude": 40.5, "longitude": -74.25, "radius_meters": 150.0}},
        {"id": 7, "name": "No fence"}]})");
    auto core = makeCore(defaults());
    EXPECT_FALSE(core->isCoreConfigured());
    core->configure({"https://api.example.com", "secret"});
    EXPECT_TRUE(core->isCoreConfigured());

    auto answer = fetch(*core, {"region", {40.0, -74.0}, 1000.0}, 1, 5);

    ASSERT_EQ(answer.error, nullptr) << answer.error->description();
    ASSERT_TRUE(answer.sites.has_value());
    ASSERT_EQ(answer.sites->size(), 2u);
    EXPECT_EQ((*answer.sites)[0].id, 42);
    EXPECT_EQ((*answer.sites)[0].geofence, (Geofence{40.5, -74.25, 150.0}));
    EXPECT_EQ((*answer.sites)[1].geofence, std::nullopt);
    auto sent = transport->requests().at(0);
    EXPECT_EQ(sent.method, HttpMethod::get);
    EXPECT_TRUE(sent.url.starts_with("https://api.example.com/api/v1/sites?"));
    using Items = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(testing::urlQueryItems(sent.url),
              (Items{{"latitude", "40.0"}, {"longitude", "-74.0"}, {"radius", "1000.0"}, {"page", "1"}, {"per", "5"}}));
}

TEST_F(CoreTest, FetchWithRegionFailuresGiveNoSitesAndTheError) {
    struct Case {
        bool configured;
        int status;
        std::string body;
        APIError::Kind kind;
    };
    for (const Case& c : {Case{false, 200, R"({"data": []})", APIError::Kind::notConfigured},
                          Case{true, 500, "boom", APIError::Kind::httpStatus},
                          Case{true, 200, R"({"data": [{"id": "x"}]})", APIError::Kind::decoding}}) {
        auto fake = std::make_shared<testing::FakeHttpTransport>();
        fake->respond(HttpMethod::get, "/api/v1/sites", c.status, c.body);
        Core core(defaults(), fake);
        if (c.configured) core.configure({"http://h", "t"});

        auto answer = fetch(core, {"r", {1.5, 2.5}, 10.0}, 2, 3);

        EXPECT_FALSE(answer.sites.has_value());
        ASSERT_NE(APIError::from(answer.error), nullptr);
        EXPECT_EQ(APIError::from(answer.error)->kind(), c.kind);
    }
}

TEST_F(CoreTest, ServicesMadeBeforeConfigureUseTheLaterConfiguration) {
    auto core = makeCore(defaults());
    BaseAPIService service(core->httpTransport(), core->apiConfigurationSource());
    struct Ping : CodableRequest<VoidResponse> {
        std::string requestEndPoint() const override { return "/ping"; }
    };

    core->configure({"http://first", "t"});
    EXPECT_EQ(service.url(Ping()), "http://first/ping");
    core->configure({"http://second", "t"});
    EXPECT_EQ(service.url(Ping()), "http://second/ping");
}

TEST_F(CoreTest, CancelRunningURLSessionsEndsRequestsInFlight) {
    auto core = makeCore(defaults());
    core->configure({"http://h", "t"});
    transport->hold();
    std::promise<ErrorPtr> promise;
    core->sites().fetchWithRegion({"r", {1, 2}, 3}, 1, 1, [&promise](auto, ErrorPtr error) { promise.set_value(error); });

    core->cancelRunningURLSessions();

    auto future = promise.get_future();
    ASSERT_EQ(future.wait_for(5s), std::future_status::ready);
    auto error = future.get();
    ASSERT_NE(APIError::from(error), nullptr);
    EXPECT_EQ(APIError::from(error)->kind(), APIError::Kind::cancelled);
}

// ---- modules, orders, notification handlers ----

struct RecordingModule : DrovelModuleManager {
    std::vector<std::string> calls;
    void configUpdated(const AppConfig& config, const std::optional<PushData>& pushData) override {
        calls.push_back("config " + config.toJson() + (pushData ? " push " + pushData->toJson() : ""));
    }
    void ordersUpdated(const std::vector<Order>& orders) override {
        calls.push_back("orders " + std::to_string(orders.size()));
    }
    void setLogLevel(LogLevel logLevel) override { calls.push_back("level " + std::string(logLevelName(logLevel))); }
};

TEST_F(CoreTest, ModulesHearOfConfigurationOrdersAndLogLevelOnce) {
    auto core = makeCore(defaults());
    auto module = std::make_shared<RecordingModule>();
    auto gone = std::make_shared<RecordingModule>();
    core->registerModule(module);
    core->registerModule(module);
    core->registerModule(gone);
    gone.reset();
    AppConfig config{AppConfigData{NotifyConfig{500.0, 20}, 3}};
    PushData push{"background_sync", true};

    core->updateAppConfig(config, push);
    core->orders().setOrders({{1, "open", 42}, {2, "completed", std::nullopt}, {3, "arrived", 7}});
    core->setLogLevel(LogLevel::error);

    ASSERT_EQ(module->calls.size(), 3u);
    EXPECT_EQ(module->calls[0], "config " + config.toJson() + " push " + push.toJson());
    EXPECT_EQ(module->calls[1], "orders 3");
    EXPECT_EQ(module->calls[2], "level error");
    EXPECT_EQ(core->appConfig(), config);
    EXPECT_EQ(core->logger().logLevel(), LogLevel::error);
    EXPECT_TRUE(core->orders().hasOpenOrders());
    auto open = core->orders().openOrders();
    ASSERT_EQ(open.size(), 2u);
    EXPECT_EQ(open[0].id, 1);
    EXPECT_EQ(open[1].id, 3);

    core->orders().setOrders({{1, "completed", 4}, {2, "cancelled", 4}});
    EXPECT_FALSE(core->orders().hasOpenOrders());
}

struct ScriptedHandler : NotificationHandler {
    explicit ScriptedHandler(std::optional<std::map<std::string, std::string>> answer) : answer(std::move(answer)) {}
    std::optional<std::map<std::string, std::string>> handle(const platform::NotificationResponse& response) override {
        seen.push_back(response.request.identifier);
        return answer;
    }
    std::optional<std::map<std::string, std::string>> answer;
    std::vector<std::string> seen;
};

TEST_F(CoreTest, EveryLiveHandlerSeesAResponseAndTheFirstAnswerIsReturned) {
    auto core = makeCore(defaults());
    auto silent = std::make_shared<ScriptedHandler>(std::nullopt);
    auto first = std::make_shared<ScriptedHandler>(std::map<std::string, std::string>{{"k", "first"}});
    auto second = std::make_shared<ScriptedHandler>(std::map<std::string, std::string>{{"k", "second"}});
    auto gone = std::make_shared<ScriptedHandler>(std::map<std::string, std::string>{{"k", "gone"}});
    auto& notifications = core->notifications();
    notifications.addNotificationHandler(gone);
    notifications.addNotificationHandler(silent);
    notifications.addNotificationHandler(first);
    notifications.addNotificationHandler(silent);
    notifications.addNotificationHandler(second);
    gone.reset();
    platform::NotificationResponse response;
    response.request.identifier = "drovel.notify.v2 1";

    auto answer = notifications.handle(response);

    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->at("k"), "first");
    EXPECT_EQ(silent->seen, std::vector<std::string>{"drovel.notify.v2 1"});
    EXPECT_EQ(second->seen.size(), 1u);
}

}  // namespace
}  // namespace drovel::core
