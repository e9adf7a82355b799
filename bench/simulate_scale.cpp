// The first sync of a phone at scale, end to end: the sample backend (in process, on a loopback
// port) serves a generated catalogue of 2,000 sites, 10,000 campaign/site pairs and 500 campaigns
// with templated texts; the module, on a fresh simulated device whose pending limit is raised above
// 10,000, is switched on by its configuration and makes its first sync: download over loopback,
// decode, store, render and schedule every request. Target: under 100 ms.
//
//   BM_FirstSyncAtScale   the time from the configuration that switches the module on until the
//                         last request is scheduled and the module has remembered what it set up.
//
// The split is read without changing what the module does: a transport wrapper times the download,
// SQLite hooks on the module's connection time the store, a user-defaults wrapper adds up the time
// spent writing keys, and the module's own log lines mark the sync's end. Counters (milliseconds,
// averaged over the iterations):
//   before_download  configuration to the download request (permission checks, position)
//   transfer         the request sent to the answer received (backend and loopback HTTP)
//   decode           the answer received to the first stored row (decoding, and opening the
//                    store's transaction)
//   store            the first stored row to the commit
//   render_schedule  the commit to the end (rendering, adding the requests, remembering them)
//   user_defaults    time spent inside user-defaults writes, within the phases above
//   process_cpu      CPU time of the whole process (every thread, the backend's too) over the
//                    measured interval: on a loaded machine the wall times above stretch, this
//                    much less
//   decode_store_cpu CPU time of the thread that decodes and stores, from the answer to the commit
//   main_thread_cpu  CPU time of the main queue's thread (rendering and adding the requests)
//   page_faults      page faults of the whole process over the measured interval (a fault costs
//                    microseconds on a virtual machine: fresh memory is not free)
//   scheduled        requests pending on the device at the end

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <thread>
#include <time.h>

#include "backend/BackendServer.h"
#include "data/NotifyDBManager.h"
#include "drovel/core/Core.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/core/Logger.h"
#include "drovel/notify/Manager.h"
#include "Helpers/UserDefaultsKey.h"
#include "linux/SimulatedPlatform.h"

namespace {

using namespace drovel;
using Clock = std::chrono::steady_clock;

constexpr double kLatitude = 40.7500;
constexpr double kLongitude = -73.9800;

// 2,000 sites within about 11 km of the phone; 500 campaigns, one in five a beacon campaign with
// one pair without a site, the others sharing 9,900 distinct campaign/site pairs; texts with
// template tags, as real campaigns have. Deterministic: mt19937_64's sequence is fixed.
std::string scaleCatalogue() {
    constexpr int kSites = 2000, kCampaigns = 500, kPairs = 10000;
    std::mt19937_64 random(20261121);
    auto below = [&](std::uint64_t bound) { return static_cast<std::int64_t>(random() % bound); };
    static const char* const cities[] = {"Amsterdam", "Zürich", "Malmö", "São Paulo", "Kraków", "Lyon", "Austin", "Osaka"};
    static const char* const offers[] = {"10% off", "a free coffee", "double points", "free delivery", "2 for 1"};
    auto isBeacon = [](int campaign) { return campaign % 5 == 4; };
    auto content = [&](core::JsonWriter& json, int campaign) {
        const char* city = cities[below(8)];
        json.beginObject();
        json.key("deep_link_url").value("https://shop.example.com/o/" + std::to_string(1000 + campaign) +
                                        "?member={{ app.first_name | url_encode }}");
        json.key("notification").beginObject();
        json.key("title").value(std::string("{{ app.first_name }}: \"") + offers[below(5)] + "\" in " + city);
        json.key("body").value(std::string("Pick up at our ") + city + " store.{% if app.gold %} Extra treat!{% endif %}");
        json.endObject();
        json.key("metadata").beginObject();
        json.key("campaign").value("winter-" + std::to_string(1000 + campaign));
        json.key("tier").value("{% if app.gold %}gold{% else %}silver{% endif %}");
        json.endObject();
        json.endObject();
    };

    core::JsonWriter json;
    json.beginObject().key("min_sync_interval_seconds").value(3600);
    json.key("campaigns").beginArray();
    for (int c = 0; c < kCampaigns; ++c) {
        json.beginObject().key("id").value(1000 + c);
        if (isBeacon(c)) {
            char uuid[40];
            std::snprintf(uuid, sizeof uuid, "6F2A8C1E-3B4D-4E5F-9A7B-%012X", c);
            json.key("region_type").value("beacon").key("beacon_uuid").value(uuid);
        } else {
            json.key("region_type").value("geofence").key("geofence_radius_meters").value(100 + below(400));
        }
        json.key("start_day").value("2026-11-01").key("end_day").value("2026-12-31");
        json.key("repeat_interval_days").value(below(8)).key("defer_on_pickup").value(false);
        json.key("content");
        content(json, c);
        json.endObject();
    }
    json.endArray();
    json.key("sites").beginArray();
    for (int s = 0; s < kSites; ++s) {
        json.beginObject().key("id").value(50000 + s).key("partner_identifier").value("STORE-" + std::to_string(s));
        json.key("latitude").value(core::doubleText(kLatitude - 0.07 + static_cast<double>(below(14000)) / 100000.0));
        json.key("longitude").value(core::doubleText(kLongitude - 0.09 + static_cast<double>(below(18000)) / 100000.0));
        json.key("beacon_minor").value(s).endObject();
    }
    json.endArray();
    json.key("notifications").beginArray();
    std::vector<bool> taken(static_cast<std::size_t>(kCampaigns) * kSites);
    int pairs = 0;
    for (int c = 0; c < kCampaigns; ++c) {
        if (!isBeacon(c)) continue;
        json.beginObject().key("campaign_id").value(1000 + c).key("site_id").null().key("content");
        content(json, c);
        json.endObject();
        ++pairs;
    }
    while (pairs < kPairs) {
        const int c = static_cast<int>(below(kCampaigns));
        const int s = static_cast<int>(below(kSites));
        if (isBeacon(c) || taken[static_cast<std::size_t>(c) * kSites + s]) continue;
        taken[static_cast<std::size_t>(c) * kSites + s] = true;
        json.beginObject().key("campaign_id").value(1000 + c).key("site_id").value(50000 + s).key("content");
        content(json, c);
        json.endObject();
        ++pairs;
    }
    json.endArray().endObject();
    return json.take();
}

// When each phase of the sync being measured ended, in nanoseconds of the steady clock.
struct Marks {
    std::atomic<std::int64_t> sent{0}, received{0}, firstRow{0}, committed{0}, syncEnded{0};
    // The CPU time of the thread that decodes and stores (the download's completion runs both)
    // when the answer arrived and at the commit; zero when they were not the same thread.
    std::atomic<std::int64_t> receivedCPU{0}, committedCPU{0};
    std::atomic<std::uint64_t> receivedThread{0};
    std::atomic<std::int64_t> userDefaultsNanoseconds{0};
    void reset() {
        for (auto* mark : {&sent, &received, &firstRow, &committed, &syncEnded, &userDefaultsNanoseconds, &receivedCPU,
                           &committedCPU})
            *mark = 0;
        receivedThread = 0;
    }
};
Marks marks;

std::int64_t processCPUNanoseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto nanoseconds = [](const timeval& time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + std::int64_t{time.tv_usec} * 1000; };
    return nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime);
}

long pageFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt + usage.ru_majflt;
}

std::int64_t threadCPUNanoseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}
std::uint64_t threadNumber() { return std::hash<std::thread::id>{}(std::this_thread::get_id()); }

std::int64_t nowNanoseconds() { return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count(); }
// Cheap once set: the row hook calls it for every row stored.
void markOnce(std::atomic<std::int64_t>& mark) {
    if (mark.load(std::memory_order_relaxed) != 0) return;
    std::int64_t unset = 0;
    mark.compare_exchange_strong(unset, nowNanoseconds());
}

// SQLite hooks on the module's database connection: they only note the time.
void onRow(void*, int, const char*, const char* table, sqlite3_int64) {
    const std::string_view name = table ? table : "";
    if (name == "notify_notification" || name == "notify_site" || name == "notify_campaign") markOnce(marks.firstRow);
}
int onCommit(void*) {
    if (marks.firstRow.load() != 0 && marks.committed.load() == 0) {
        markOnce(marks.committed);
        if (marks.receivedThread.load() == threadNumber()) marks.committedCPU = threadCPUNanoseconds();
    }
    return 0;
}
int hookModuleDatabase(sqlite3* db, const char**, const sqlite3_api_routines*) {
    const char* file = sqlite3_db_filename(db, "main");
    if (file && std::string_view(file).ends_with("DrovelNotify.sqlite")) {
        sqlite3_update_hook(db, &onRow, nullptr);
        sqlite3_commit_hook(db, &onCommit, nullptr);
    }
    return SQLITE_OK;
}

class TimingTransport final : public platform::HttpTransport {
public:
    explicit TimingTransport(std::shared_ptr<platform::HttpTransport> transport) : transport_(std::move(transport)) {}
    void send(platform::HttpRequest request, Completion completion) override {
        const bool download = request.url.find("/notify/notifications") != std::string::npos;
        if (download) markOnce(marks.sent);
        transport_->send(std::move(request), [download, completion = std::move(completion)](platform::HttpResult result) {
            if (download && marks.received.load() == 0) {
                markOnce(marks.received);
                marks.receivedCPU = threadCPUNanoseconds();
                marks.receivedThread = threadNumber();
            }
            completion(std::move(result));
        });
    }
    void cancelAll() override { transport_->cancelAll(); }

private:
    std::shared_ptr<platform::HttpTransport> transport_;
};

class TimingUserDefaults final : public platform::UserDefaults {
public:
    explicit TimingUserDefaults(std::shared_ptr<platform::UserDefaults> defaults) : defaults_(std::move(defaults)) {}
    std::optional<platform::DefaultsValue> object(std::string_view key) const override { return defaults_->object(key); }
    void set(std::string_view key, platform::DefaultsValue value) override {
        const auto start = nowNanoseconds();
        defaults_->set(key, std::move(value));
        marks.userDefaultsNanoseconds += nowNanoseconds() - start;
    }
    void removeObject(std::string_view key) override {
        const auto start = nowNanoseconds();
        defaults_->removeObject(key);
        marks.userDefaultsNanoseconds += nowNanoseconds() - start;
    }
    platform::DefaultsDictionary dictionaryRepresentation() const override { return defaults_->dictionaryRepresentation(); }
    bool synchronize() override { return defaults_->synchronize(); }

private:
    std::shared_ptr<platform::UserDefaults> defaults_;
};

// Notes the end of every sync the module reports.
// Warnings and errors go on to the usual sink.
class SyncEndSink final : public core::LogSink {
public:
    void write(const core::LogRecord& record) override {
        if (record.message == "SyncDebug: Leaving dispatch group") markOnce(marks.syncEnded);
        if (record.level >= core::LogLevel::warning && next) next->write(record);
    }
    std::shared_ptr<core::LogSink> next;
};

void BM_FirstSyncAtScale(benchmark::State& state) {
    auto catalogue = backend::Catalogue::fromJson(scaleCatalogue());
    if (!catalogue) return state.SkipWithError(catalogue.error()->description().c_str());
    backend::BackendOptions backendOptions;
    backendOptions.catalogue = std::move(catalogue).value();
    auto started = backend::BackendServer::start(std::move(backendOptions));
    if (!started) return state.SkipWithError(started.error()->description().c_str());
    const auto server = std::move(started).value();
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&hookModuleDatabase));
    auto sink = std::make_shared<SyncEndSink>();
    auto previousSink = core::Logger::setSink(sink);
    sink->next = previousSink;

    core::AppConfig config;
    config.data.emplace();
    config.data->notify.emplace();
    config.data->notify->defaultSiteSearchRadiusMeters = 50000;
    const notify::CustomTemplateContent app{{"first_name", "Ann"}, {"gold", "yes"}};
    double beforeDownload = 0, transfer = 0, decode = 0, store = 0, renderSchedule = 0, userDefaults = 0, processCPU = 0;
    double decodeStoreCPU = 0, mainThreadCPU = 0, faults = 0;
    std::size_t scheduled = 0;

    for (auto _ : state) {
        char folder[] = "/tmp/drovel-bench-scale-XXXXXX";
        if (!mkdtemp(folder)) return state.SkipWithError("no temporary folder");
        {
            platform::SimulatedDeviceState fresh;
            fresh.now = platform::toDate(std::chrono::sys_days{std::chrono::November / 21 / 2026} + std::chrono::hours(14));
            fresh.timeZone = "America/New_York";
            fresh.position = platform::LocationCoordinate{kLatitude, kLongitude};
            fresh.pendingLimit = 20000;
            platform::SimulatedPlatformOptions options;
            options.directory = folder;
            options.fresh = fresh;
            // The phone's own state file is written after the measurement.
            options.stateFlushDelay = std::chrono::seconds(60);
            auto made = platform::makeSimulatedPlatform(std::move(options));
            if (!made) return state.SkipWithError(made.error()->description().c_str());
            auto simulated = std::move(made).value();
            auto platform = simulated.platform;
            notify::setCustomTemplateContent(*platform.userDefaults, app);
            platform.httpTransport = std::make_shared<TimingTransport>(platform.httpTransport);
            platform.userDefaults = std::make_shared<TimingUserDefaults>(platform.userDefaults);
            auto core = std::make_shared<core::Core>(platform);
            core->configure({server->baseURL(), ""});
            auto database = std::make_shared<notify::NotifyDBManager>(
                notify::NotifyDBManager::databasePath(platform.applicationSupportDirectory), true);
            auto manager = notify::Manager::make(platform, core, database);
            manager->logger().setLogLevel(core::LogLevel::verbose);
            manager->configure(std::nullopt, {});

            marks.reset();
            const auto start = nowNanoseconds();
            const auto startCPU = processCPUNanoseconds();
            const long startFaults = pageFaults();
            const auto startMainCPU = threadCPUNanoseconds();
            core->updateAppConfig(config, std::nullopt);
            // The sync ends with its callback; the adds' completions (which remember what was set up)
            // come after it on the centre's queue, and are done once a later request is answered.
            // The settings are that request: asking for the pending list would add a copy of 10,000
            // requests that the module never makes.
            bool finished = platform.mainQueue->runUntil([] { return marks.syncEnded.load() != 0; }, std::chrono::seconds(60));
            std::atomic<bool> answered{false};
            // The empty job wakes the main queue at once (it looks at the condition only every few
            // milliseconds otherwise).
            platform.userNotificationCenter->getNotificationSettings(
                [&answered, mainQueue = platform.mainQueue](platform::NotificationSettings) {
                    answered = true;
                    mainQueue->async([] {});
                });
            finished = finished && platform.mainQueue->runUntil([&] { return answered.load(); }, std::chrono::seconds(60));
            const auto end = nowNanoseconds();
            processCPU += static_cast<double>(processCPUNanoseconds() - startCPU) / 1e6;
            faults += static_cast<double>(pageFaults() - startFaults);
            mainThreadCPU += static_cast<double>(threadCPUNanoseconds() - startMainCPU) / 1e6;
            if (marks.committedCPU.load() != 0) decodeStoreCPU += static_cast<double>(marks.committedCPU - marks.receivedCPU) / 1e6;
            if (!finished || marks.committed.load() == 0) {
                const std::string text = "the sync did not finish (download " + std::string(marks.received ? "received" : "not received") +
                                         ", " + (marks.committed ? "stored" : "not stored") + ", " +
                                         (marks.syncEnded ? "sync ended" : "sync not ended") + ")";
                return state.SkipWithError(text.c_str());
            }
            state.SetIterationTime(static_cast<double>(end - start) / 1e9);

            auto milliseconds = [](std::int64_t from, std::int64_t to) { return static_cast<double>(to - from) / 1e6; };
            beforeDownload += milliseconds(start, marks.sent);
            transfer += milliseconds(marks.sent, marks.received);
            decode += milliseconds(marks.received, marks.firstRow);
            store += milliseconds(marks.firstRow, marks.committed);
            renderSchedule += milliseconds(marks.committed, end);
            userDefaults += static_cast<double>(marks.userDefaultsNanoseconds.load()) / 1e6;
            scheduled = simulated.device->pendingRequests().size();

            std::weak_ptr<notify::Manager> last = manager;
            manager.reset();
            core.reset();
            platform.mainQueue->runUntil([&] { return last.expired(); }, std::chrono::seconds(10));
        }
        std::filesystem::remove_all(folder);
    }
    const auto average = benchmark::Counter::kAvgIterations;
    state.counters["before_download"] = benchmark::Counter(beforeDownload, average);
    state.counters["transfer"] = benchmark::Counter(transfer, average);
    state.counters["decode"] = benchmark::Counter(decode, average);
    state.counters["store"] = benchmark::Counter(store, average);
    state.counters["render_schedule"] = benchmark::Counter(renderSchedule, average);
    state.counters["user_defaults"] = benchmark::Counter(userDefaults, average);
    state.counters["process_cpu"] = benchmark::Counter(processCPU, average);
    state.counters["decode_store_cpu"] = benchmark::Counter(decodeStoreCPU, average);
    state.counters["main_thread_cpu"] = benchmark::Counter(mainThreadCPU, average);
    state.counters["page_faults"] = benchmark::Counter(faults, average);
    state.counters["scheduled"] = static_cast<double>(scheduled);
    core::Logger::setSink(previousSink);
}
// Each iteration is a new phone, so the iterations are few; the repetitions give a median that a
// loaded machine disturbs less than the mean.
BENCHMARK(BM_FirstSyncAtScale)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
