// The campaign store on the Linux platform, with the generated download of 10,000 pairs, 500
// campaigns and 2,000 sites:
//   BM_StoreDownload          storing the decoded download (one transaction)     target < 45 ms
//   BM_RecordAnalyticsEvent   recording one analytics event                       target < 50 us
//   BM_LoadInteractor         opening the database and loading the interactor     target < 20 ms

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "DownloadGenerator.h"
#include "data/NotifyDBManager.h"
#include "data/NotifyInteractor.h"
#include "drovel/core/Core.h"
#include "linux/LinuxPlatform.h"

namespace {

using namespace drovel;
using Clock = std::chrono::steady_clock;

// The store never reaches the backend here.
class NoService final : public notify::NotifyServiceProtocol {
public:
    void fetchNotifications(double, double, double, NotificationsCompletion) const override {}
    void uploadAnalytics(notify::UploadNotifyAnalyticsEndpoint::Body, UploadCompletion completion) const override {
        completion(nullptr);
    }
};

// A Linux platform in a fresh folder, removed at the end; the database in its support folder.
struct Fixture {
    Fixture() {
        char name[] = "/tmp/drovel-bench-XXXXXX";
        if (!mkdtemp(name)) throw std::runtime_error("mkdtemp failed");
        directory = name;
        auto made = platform::makeLinuxPlatform(directory);
        if (!made) throw std::runtime_error(made.error()->description());
        platform = made.value();
        core = std::make_shared<core::Core>(platform);
        databasePath = notify::NotifyDBManager::databasePath(platform.applicationSupportDirectory);
    }
    ~Fixture() {
        platform = {};
        std::filesystem::remove_all(directory);
    }

    std::shared_ptr<notify::NotifyDBManager> openDatabase() const {
        return std::make_shared<notify::NotifyDBManager>(databasePath, true);
    }
    std::unique_ptr<notify::NotifyInteractor> makeInteractor(std::shared_ptr<notify::NotifyDBManager> database) const {
        return std::make_unique<notify::NotifyInteractor>(service, platform, core, database);
    }

    std::string directory;
    platform::Platform platform;
    std::shared_ptr<core::Core> core;
    std::shared_ptr<NoService> service = std::make_shared<NoService>();
    std::string databasePath;
};

const notify::NotifyNotificationsResponse& download() {
    static const notify::NotifyNotificationsResponse decoded = [] {
        auto response = notify::NotifyNotificationsResponse::fromJson(bench::generateDownload());
        if (!response) throw std::runtime_error(response.error()->description());
        return std::move(response).value();
    }();
    return decoded;
}

void BM_StoreDownload(benchmark::State& state) {
    Fixture fixture;
    auto database = fixture.openDatabase();
    auto interactor = fixture.makeInteractor(database);
    for (auto _ : state) {
        notify::NotifyNotificationsResponse copy = download();  // the store takes the lists over
        auto start = Clock::now();
        interactor->storeNotificationsResponse(std::move(copy));
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    if (interactor->notifications().size() != 10000) state.SkipWithError("the download was not stored");
}
BENCHMARK(BM_StoreDownload)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_RecordAnalyticsEvent(benchmark::State& state) {
    Fixture fixture;
    auto database = fixture.openDatabase();
    auto interactor = fixture.makeInteractor(database);
    std::int64_t campaign = 0;
    for (auto _ : state) {
        interactor->recordAnalyticsEvent(notify::NotifyAnalyticsEventType::notificationTriggered, ++campaign,
                                         {{"content_metadata_tier", "gold"}});
    }
}
BENCHMARK(BM_RecordAnalyticsEvent)->Unit(benchmark::kMicrosecond);

void BM_LoadInteractor(benchmark::State& state) {
    Fixture fixture;
    {
        auto database = fixture.openDatabase();
        fixture.makeInteractor(database)->storeNotificationsResponse(download());
    }
    for (auto _ : state) {
        auto database = fixture.openDatabase();
        auto interactor = fixture.makeInteractor(database);
        if (interactor->notifications().size() != 10000 || interactor->sites().size() != 2000 ||
            interactor->campaigns().size() != 500) {
            state.SkipWithError("the download was not loaded");
            break;
        }
        state.PauseTiming();  // closing is not part of loading
        interactor.reset();
        database.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_LoadInteractor)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
