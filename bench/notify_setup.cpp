// Campaign notification set-up for the generated download (10,000 pairs, 500 campaigns, 2,000
// sites, templated titles and bodies): removing the previous set-up's requests, building every
// request, rendering included, and adding each to a notification centre that accepts everything,
// remembering what was added as the manager does. Target: under 20 ms in total.
//
//   BM_SetUpCampaigns/shared_texts     campaigns share a few dozen texts, as real ones do
//   BM_SetUpCampaigns/distinct_texts   every pair has its own title and body (the worst case)
//   BM_StoreLoadedCampaignsPerAdd      writing the remembered store after every add, for comparison
//   BM_ManagerSetUpCampaigns           the manager's own set-up (as an orders report starts it) on the
//                                      Linux platform with that centre, the download read from its database

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "DownloadGenerator.h"
#include "drovel/notify/LoadedCampaigns.h"
#include "drovel/notify/NotifyNotificationsResponse.h"
#include "Helpers/UserDefaultsKey.h"
#include "data/NotifyDBManager.h"
#include "drovel/core/Core.h"
#include "drovel/core/DrovelDBManager.h"
#include "drovel/notify/Manager.h"
#include "linux/LinuxPlatform.h"
#include "manager/CampaignRequestBuilder.h"

namespace {

using namespace drovel;

// Accepts every request at once and keeps it.
class AcceptingCenter final : public platform::UserNotificationCenter {
public:
    void add(platform::NotificationRequest request, AddCompletion completionHandler) override {
        pending.push_back(std::move(request));
        completionHandler(nullptr);
    }
    void getPendingNotificationRequests(PendingCompletion completionHandler) override { completionHandler(pending); }
    void removePendingNotificationRequests(std::vector<std::string>) override { pending.clear(); }
    void getNotificationSettings(SettingsCompletion completionHandler) override {
        completionHandler({platform::NotificationAuthorizationStatus::authorized});
    }
    void requestAuthorization(platform::NotificationAuthorizationOptions, AuthorizationCompletion completionHandler) override {
        completionHandler(true, nullptr);
    }

    std::vector<platform::NotificationRequest> pending;
};

const notify::NotifyNotificationsResponse& download(bool distinctTexts) {
    static std::optional<notify::NotifyNotificationsResponse> decoded[2];
    auto& slot = decoded[distinctTexts ? 1 : 0];
    if (!slot) {
        bench::DownloadShape shape;
        shape.distinctTexts = distinctTexts;
        auto response = notify::NotifyNotificationsResponse::fromJson(bench::generateDownload(shape));
        if (!response) std::abort();
        slot.emplace(std::move(response).value());
    }
    return *slot;
}

const notify::CustomTemplateContent kApp{{"first_name", "Ann"}, {"gold", "yes"}};

std::vector<notify::NotifyTriggerEvent> noTriggerEvents(std::int64_t) { return {}; }

// Runs one measured round. A symbol of its own, so that a profiler counts exactly the measured
// rounds: valgrind --tool=callgrind --collect-atstart=no --toggle-collect='*measuredRound*'.
template <class Round>
[[gnu::noinline]] auto measuredRound(Round&& round) {
    return round();
}

// One set-up: the previous set-up's requests removed, every request built and added.
std::size_t setUpRound(const notify::NotifyNotificationsResponse& response, AcceptingCenter& center,
                                         notify::LoadedCampaigns& loaded) {
    // A set-up first removes the previous set-up's requests and forgets what it remembered.
    center.removePendingNotificationRequests({});
    loaded.store.clear();
    std::size_t added = 0;
    notify::buildCampaignNotificationRequests(
        *response.included.campaigns, *response.included.sites, response.data, noTriggerEvents, platform::Date{}, kApp,
        [&](platform::NotificationRequest request) {
            ++added;
            auto key = notify::campaignRequestKey(request.content.userInfo);
            center.add(std::move(request), [&](core::ErrorPtr error) {
                if (!error && key) loaded.add(key->campaignID, key->siteID);
            });
        });
    return added;
}

void BM_SetUpCampaigns(benchmark::State& state, bool distinctTexts) {
    const auto& response = download(distinctTexts);
    AcceptingCenter center;
    notify::LoadedCampaigns loaded;
    // Every measured round finds the previous round's requests pending, as a set-up on a phone does.
    std::size_t added = setUpRound(response, center, loaded);
    for (auto _ : state) {
        added = measuredRound([&] { return setUpRound(response, center, loaded); });
        benchmark::DoNotOptimize(loaded.store.size());
    }
    state.counters["requests"] = static_cast<double>(added);
    state.counters["per_request"] = benchmark::Counter(static_cast<double>(added),
                                                       benchmark::Counter::kIsIterationInvariantRate |
                                                           benchmark::Counter::kInvert);
}
BENCHMARK_CAPTURE(BM_SetUpCampaigns, shared_texts, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SetUpCampaigns, distinct_texts, true)->Unit(benchmark::kMillisecond);

// Serialising the whole remembered store after each of the 10,000 adds: quadratic in the number
// of requests.
void BM_StoreLoadedCampaignsPerAdd(benchmark::State& state) {
    const auto& response = download(false);
    auto requests = notify::campaignNotificationRequests(*response.included.campaigns, *response.included.sites,
                                                         response.data, noTriggerEvents, platform::Date{}, kApp);
    for (auto _ : state) {
        notify::LoadedCampaigns loaded;
        for (const auto& request : requests) {
            auto key = notify::campaignRequestKey(request.content.userInfo);
            loaded.add(key->campaignID, key->siteID);
            benchmark::DoNotOptimize(loaded.toJson());
        }
    }
    state.counters["requests"] = static_cast<double>(requests.size());
}
BENCHMARK(BM_StoreLoadedCampaignsPerAdd)->Unit(benchmark::kMillisecond)->Iterations(1);

// One set-up by the manager, as an orders report starts it.
void managerSetUpRound(notify::Manager& manager, platform::MainQueue& mainQueue) {
    manager.ordersUpdated({});
    mainQueue.drain();
}

// The manager's set-up of the shared-texts download: removal, rendering, adds, the remembered store
// kept in memory and written once to the user defaults.
void BM_ManagerSetUpCampaigns(benchmark::State& state) {
    const auto& response = download(false);
    char folder[] = "/tmp/drovel-bench-XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    {
        auto made = platform::makeLinuxPlatform(std::string(folder));
        if (!made) std::abort();
        auto platform = made.value();
        auto center = std::make_shared<AcceptingCenter>();
        platform.userNotificationCenter = center;
        notify::setCustomTemplateContent(*platform.userDefaults, kApp);
        const auto path = notify::NotifyDBManager::databasePath(platform.applicationSupportDirectory);
        {
            // The manager's interactor reads the stored download when its database is not new.
            notify::NotifyDBManager writer(path, true);
            writer.dbManager().save(*response.included.campaigns);
            writer.dbManager().save(*response.included.sites);
            writer.dbManager().save(response.data);
        }
        auto core = std::make_shared<core::Core>(platform);
        auto manager = notify::Manager::make(platform, core, std::make_shared<notify::NotifyDBManager>(path, true));
        manager->setLogLevel(core::LogLevel::error);
        // The removal and the adds complete at once; the building job waits on the main queue.
        // Every measured round finds the previous round's requests pending.
        managerSetUpRound(*manager, *platform.mainQueue);
        for (auto _ : state) {
            measuredRound([&] { managerSetUpRound(*manager, *platform.mainQueue); });
            if (center->pending.size() != response.data.size()) state.SkipWithError("not every request was added");
        }
        state.counters["requests"] = static_cast<double>(center->pending.size());
        state.counters["per_request"] = benchmark::Counter(static_cast<double>(center->pending.size()),
                                                           benchmark::Counter::kIsIterationInvariantRate |
                                                               benchmark::Counter::kInvert);
        std::weak_ptr<notify::Manager> last = manager;
        manager.reset();
        platform.mainQueue->runUntil([&] { return last.expired(); }, std::chrono::seconds(10));
    }
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_ManagerSetUpCampaigns)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
