#include "simulator/ScenarioRunner.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>

#include "backend/BackendServer.h"
#include "drovel/core/Core.h"
#include "drovel/core/JsonWriter.h"
#include "drovel/core/Logger.h"
#include "drovel/notify/Manager.h"
#include "drovel/notify/NotificationInfo.h"
#include "linux/SimulatedPlatform.h"
#include "simulator/DeviceInspector.h"
#include "simulator/ModuleActivity.h"
#include "template/Log.h"

namespace drovel::simulator {

namespace {

using namespace std::chrono_literals;
using platform::Date;

// The identifier of the app's background refresh task in a scenario.
constexpr std::string_view kRefreshTaskIdentifier = "com.drovel.notify.refresh";

core::ErrorPtr fail(std::string text) { return core::makeError<core::SimpleError>(std::move(text)); }

// "2026-11-21T09:00:00" in the process's time zone (the device's).
std::string localTimeText(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return text;
}

std::optional<Date> parseLocalTime(const std::string& text) {
    std::tm local{};
    const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &local);
    if (!end || *end != '\0') return std::nullopt;
    local.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&local);
    if (seconds == -1) return std::nullopt;
    return platform::toDate(std::chrono::system_clock::from_time_t(seconds));
}

std::string makeTemporaryDevice() {
    std::string pattern = (std::filesystem::temp_directory_path() / "drovel-device-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return {};
    return pattern;
}

// Follows the module's syncs (every one, whoever started it) and counts its errors, from its log.
class WatchingSink final : public core::LogSink {
public:
    void write(const core::LogRecord& record) override {
        if (record.loggerName == "DrovelNotify") {
            const std::string_view message = record.message;
            constexpr std::string_view result = "SyncDebug: doSync() callback result: ";
            if (message == "SyncDebug: Entering dispatch group") {
                ++syncsStarted;
                ++syncsInFlight;
            }
            if (message == "SyncDebug: Leaving dispatch group") --syncsInFlight;
            if (message.starts_with(result) && onSync) {
                // "<true|false> error: <description|nil>"
                std::string_view rest = message.substr(result.size());
                const bool fetched = rest.starts_with("true");
                const auto at = rest.find("error: ");
                std::string_view error = at == std::string_view::npos ? "" : rest.substr(at + 7);
                onSync(fetched, error == "nil" ? std::string() : std::string(error));
            }
            if (record.level == core::LogLevel::error) ++errors;
        }
        // Only warnings and errors reach the terminal: the event lines are the run's story.
        std::shared_ptr<core::LogSink> forward;
        {
            std::lock_guard lock(mutex_);
            forward = next_;
        }
        if (forward && (std::getenv("DROVEL_SIM_TRACE") || record.level >= core::LogLevel::warning)) forward->write(record);
    }
    void setNext(std::shared_ptr<core::LogSink> next) {
        std::lock_guard lock(mutex_);
        next_ = std::move(next);
    }
    std::atomic<int> syncsInFlight{0};
    std::atomic<std::uint64_t> syncsStarted{0};
    std::atomic<int> errors{0};
    // Set before anything logs.
    std::function<void(bool fetched, const std::string& error)> onSync;

private:
    std::mutex mutex_;
    std::shared_ptr<core::LogSink> next_;
};

class Runner {
public:
    Runner(const Scenario& scenario, const RunnerOptions& options, std::ostream& out)
        : scenario_(scenario), options_(options), out_(out) {}

    core::Result<RunSummary> run();

private:
    core::ErrorPtr setUp();
    void play(std::size_t number, const Step& step);
    // Pumps the main queue until done() holds and the module is quiet; reports a stuck step.
    void settle(std::size_t number, const std::function<bool()>& done = [] { return true; });
    void emit(const std::string& event, const std::function<void(core::JsonWriter&)>& fields,
              const std::string& readable);
    void emitDevice(const platform::SimulatedDeviceEvent& event);
    void emitError(std::size_t number, const std::string& text);
    void emitSync(bool fetched, const std::string& error);
    void flushUploads();
    // Keeps the module's switches in the device folder for `status`.
    void writeSession();
    void applyConfig(const core::AppConfigData& data, std::optional<core::PushData> push = std::nullopt);

    const Scenario& scenario_;
    const RunnerOptions& options_;
    std::ostream& out_;
    std::mutex outMutex_;
    RunSummary summary_;

    std::unique_ptr<backend::BackendServer> backend_;
    std::mutex uploadsMutex_;
    std::deque<backend::ReceivedEvent> uploads_;

    platform::SimulatedPlatform simulated_;
    std::shared_ptr<core::Core> core_;
    std::shared_ptr<notify::Manager> manager_;
    ModuleActivity activity_;
    std::shared_ptr<WatchingSink> sink_;
    std::shared_ptr<core::LogSink> previousSink_;
    platform::SimulatedDevice::ObserverId observer_ = 0;
    core::AppConfigData config_;
};

void Runner::emit(const std::string& event, const std::function<void(core::JsonWriter&)>& fields,
                  const std::string& readable) {
    const std::string time = localTimeText(simulated_.device ? simulated_.device->now() : platform::toDate(std::chrono::system_clock::now()));
    std::lock_guard lock(outMutex_);
    if (options_.json) {
        core::JsonWriter writer;
        writer.beginObject().key("t").value(time).key("event").value(event);
        fields(writer);
        writer.endObject();
        out_ << writer.str() << '\n';
    } else {
        out_ << time << "  " << event << std::string(event.size() < 10 ? 10 - event.size() : 0, ' ') << "  " << readable
             << '\n';
    }
    out_.flush();
}

void Runner::emitDevice(const platform::SimulatedDeviceEvent& event) {
    using Kind = platform::SimulatedDeviceEvent::Kind;
    const auto& request = event.request;
    auto requestFields = [&request](core::JsonWriter& writer) {
        writer.key("identifier").value(request.identifier);
        writer.key("title").value(request.content.title);
        writer.key("body").value(request.content.body);
        writer.key("user_info").raw(platform::userInfoToJson(request.content.userInfo));
    };
    const std::string readable = request.identifier + ": \"" + request.content.title + "\" " + request.content.body;
    switch (event.kind) {
        case Kind::scheduled:
            ++summary_.scheduled;
            emit("scheduled", requestFields, readable);
            break;
        case Kind::delivered:
            ++summary_.delivered;
            emit("delivered", requestFields, readable);
            break;
        case Kind::removed: {
            std::string list;
            for (const auto& identifier : event.identifiers) list += (list.empty() ? "" : ", ") + identifier;
            emit("removed",
                 [&event](core::JsonWriter& writer) {
                     writer.key("identifiers").beginArray();
                     for (const auto& identifier : event.identifiers) writer.value(identifier);
                     writer.endArray();
                 },
                 std::to_string(event.identifiers.size()) + " pending: " + list);
            break;
        }
        case Kind::openedURL:
            emit("opened_url", [&event](core::JsonWriter& writer) { writer.key("url").value(event.url); }, event.url);
            break;
    }
}

void Runner::emitError(std::size_t number, const std::string& text) {
    ++summary_.runErrors;
    emit("error",
         [&](core::JsonWriter& writer) {
             writer.key("step").value(static_cast<unsigned long>(number));
             writer.key("error").value(text);
         },
         "step " + std::to_string(number) + ": " + text);
}

void Runner::emitSync(bool fetched, const std::string& error) {
    emit("sync",
         [&](core::JsonWriter& writer) {
             writer.key("fetched").value(fetched);
             writer.key("error");
             if (error.empty()) {
                 writer.null();
             } else {
                 writer.value(error);
             }
         },
         error.empty() ? (fetched ? "campaigns downloaded" : "nothing to download yet") : "failed: " + error);
}

void Runner::flushUploads() {
    std::deque<backend::ReceivedEvent> received;
    {
        std::lock_guard lock(uploadsMutex_);
        received.swap(uploads_);
    }
    for (const auto& event : received) {
        ++summary_.eventsUploaded;
        if (event.name.find("click") != std::string::npos) ++summary_.clicks;
        std::string readable = event.name;
        if (event.campaignID) readable += " campaign " + std::to_string(*event.campaignID);
        for (const auto& [key, value] : event.params) readable += " " + key + "=" + value;
        emit("uploaded",
             [&event](core::JsonWriter& writer) {
                 writer.key("name").value(event.name);
                 writer.key("guid").value(event.guid);
                 writer.key("campaign_id");
                 if (event.campaignID) {
                     writer.value(static_cast<long long>(*event.campaignID));
                 } else {
                     writer.null();
                 }
                 writer.key("params").beginObject();
                 for (const auto& [key, value] : event.params) writer.key(key).value(value);
                 writer.endObject();
             },
             readable);
    }
}

core::ErrorPtr Runner::setUp() {
    std::string backendURL = options_.backendURL;
    if (backendURL.empty()) {
        auto catalogue = scenario_.cataloguePath.empty() ? backend::Catalogue::fromJson(scenario_.catalogueJson)
                                                         : backend::Catalogue::load(scenario_.cataloguePath);
        if (!catalogue) return fail("catalogue: " + catalogue.error()->description());
        backend::BackendOptions backendOptions;
        backendOptions.catalogue = std::move(catalogue).value();
        backendOptions.token = options_.apiToken;
        backendOptions.onEvent = [this](const backend::ReceivedEvent& event) {
            std::lock_guard lock(uploadsMutex_);
            uploads_.push_back(event);
        };
        auto server = backend::BackendServer::start(std::move(backendOptions));
        if (!server) return fail("backend: " + server.error()->description());
        backend_ = std::move(server).value();
        backendURL = backend_->baseURL();
    }

    std::string directory = options_.deviceDirectory;
    if (directory.empty()) directory = makeTemporaryDevice();
    if (directory.empty()) return fail("cannot make a temporary device folder");
    std::error_code ec;
    const bool existing = std::filesystem::exists(std::filesystem::path(directory) / platform::SimulatedDevice::stateFileName, ec);

    // The time zone first: the start time is local to it.
    platform::SimulatedDeviceSettings settings = scenario_.device;
    if (!scenario_.timeZone.empty()) settings.timeZone = scenario_.timeZone;
    if (settings.timeZone) {
        setenv("TZ", settings.timeZone->c_str(), 1);
        tzset();
    }
    std::optional<Date> start;
    if (!scenario_.start.empty()) {
        start = parseLocalTime(scenario_.start);
        if (!start) return fail("start: \"" + scenario_.start + "\" is not a local time such as 2026-11-21T09:00:00");
    }
    platform::SimulatedDeviceState fresh;
    fresh.now = start.value_or(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    fresh.apply(settings);

    platform::SimulatedPlatformOptions platformOptions;
    platformOptions.directory = directory;
    platformOptions.bundleInfo = {{"CFBundleShortVersionString", "1.0"},
                                  {"CFBundleVersion", "1"},
                                  {"BGTaskSchedulerPermittedIdentifiers", std::string(kRefreshTaskIdentifier)}};
    platformOptions.fresh = fresh;
    auto made = platform::makeSimulatedPlatform(std::move(platformOptions));
    if (!made) return fail("device: " + made.error()->description());
    simulated_ = std::move(made).value();
    // An existing device keeps its own clock; the scenario's settings apply to it as well.
    simulated_.device->apply(settings);
    // Templates read "now" and "today" from the simulated clock, so a scenario renders the same
    // text on every run. The device outlives every rendering of the run (the hook keeps it).
    templating::setClock([device = simulated_.device] {
        return std::chrono::time_point_cast<std::chrono::system_clock::duration>(device->now());
    });
    (void)existing;

    observer_ = simulated_.device->addObserver([this](const platform::SimulatedDeviceEvent& event) { emitDevice(event); });
    sink_ = std::make_shared<WatchingSink>();
    previousSink_ = core::Logger::setSink(sink_);
    sink_->setNext(previousSink_);
    sink_->onSync = [this](bool fetched, const std::string& error) { emitSync(fetched, error); };

    auto& platform = simulated_.platform;
    if (options_.kill && options_.kill->where == KillPoint::Where::store) armStoreKill(options_.kill->count);
    if (options_.kill && options_.kill->where == KillPoint::Where::upload)
        platform.httpTransport = killingUploadTransport(platform.httpTransport, options_.kill->count);
    platform.globalQueue = activity_.track(platform.globalQueue);
    platform.httpTransport = activity_.track(platform.httpTransport);

    core_ = std::make_shared<core::Core>(simulated_.platform);
    core_->configure({backendURL, options_.apiToken});
    manager_ = notify::Manager::make(simulated_.platform, core_);
    // The runner follows the module's own syncs through its verbose lines.
    manager_->logger().setLogLevel(core::LogLevel::verbose);
    out_ << (options_.json ? "" : "Device " + directory + ", backend " + backendURL + "\n");
    return nullptr;
}

void Runner::settle(std::size_t number, const std::function<bool()>& done) {
    auto& queue = *simulated_.platform.mainQueue;
    auto quietNow = [&] {
        return sink_->syncsInFlight.load() <= 0 && !manager_->bgOrPushSyncInProgress() && queue.pendingCount() == 0 &&
               activity_.idle();
    };
    bool quiet = queue.runUntil([&] { return done() && quietNow(); }, options_.stepTimeout);
    // Work the module hands through the notification centre (a set-up asks for the pending
    // requests, then adds from the main queue) is not visible above: a request through the centre
    // answers after the ones queued before it, and the main queue is then pumped again. Rounds go
    // on until one starts nothing new (at least two: a set-up started by the first), so that the
    // next step always finds the same state however the threads were scheduled.
    constexpr int kMaxRounds = 50;
    for (int round = 0; quiet && round < kMaxRounds; ++round) {
        const auto started = activity_.started() + sink_->syncsStarted.load();
        auto answered = std::make_shared<std::atomic<bool>>(false);
        // The empty job wakes the main queue at once; it looks at the condition only every few
        // milliseconds otherwise.
        simulated_.platform.userNotificationCenter->getPendingNotificationRequests(
            [answered, mainQueue = simulated_.platform.mainQueue](std::vector<platform::NotificationRequest>) {
                *answered = true;
                mainQueue->async([] {});
            });
        quiet = queue.runUntil([&] { return answered->load() && quietNow(); }, options_.stepTimeout);
        if (round >= 1 && started == activity_.started() + sink_->syncsStarted.load()) break;
    }
    flushUploads();
    if (!quiet) emitError(number, "the module's work did not finish within " +
                                      std::to_string(options_.stepTimeout.count() / 1000) + " s");
}

void Runner::writeSession() {
    core::JsonWriter writer;
    writer.beginObject()
        .key("manager_configured").value(manager_->isManagerConfigured())
        .key("notify_enabled").value(manager_->isNotifyEnabled())
        .key("notify_configured").value(manager_->isNotifyConfigured())
        .endObject();
    std::ofstream file(std::filesystem::path(simulated_.device->directory()) / kSessionFileName, std::ios::trunc);
    file << writer.str() << '\n';
}

void Runner::applyConfig(const core::AppConfigData& data, std::optional<core::PushData> push) {
    config_ = data;
    core::AppConfig config;
    config.data = data;
    core_->updateAppConfig(std::move(config), std::move(push));
}

void Runner::play(std::size_t number, const Step& step) {
    using A = Step::Action;
    auto& device = *simulated_.device;
    device.advance(step.at);
    switch (step.action) {
        case A::launch: {
            manager_->configure(std::string(kRefreshTaskIdentifier),
                                [](core::ErrorPtr) {});
            applyConfig(scenario_.config);
            settle(number);
            // The module keeps the app's values only once it is enabled, which the configuration did.
            if (!scenario_.customTemplateContent.empty()) {
                manager_->updateCustomTemplateContent(scenario_.customTemplateContent);
                settle(number);
            }
            return;
        }
        case A::move:
            device.setPosition(step.to);
            break;
        case A::walk:
            device.walk(step.to, step.speed);
            break;
        case A::beacon:
            device.setBeacons(step.beacon ? std::vector{*step.beacon} : std::vector<platform::Beacon>{});
            break;
        case A::tap: {
            auto response = device.tap(step.identifier);
            if (!response) {
                emitError(number, step.identifier.empty() ? "no notification to tap"
                                                          : "no delivered notification \"" + step.identifier + "\"");
                return;
            }
            core_->notifications().handle(*response);
            break;
        }
        case A::appState:
        case A::permissions:
            device.apply(step.settings);
            break;
        case A::sync:
        case A::fetch: {
            auto finished = std::make_shared<std::atomic<bool>>(false);
            if (step.action == A::sync) {
                manager_->sync(step.force, [finished](core::ErrorPtr) { *finished = true; });
            } else {
                manager_->performFetchWithCompletionHandler([finished](platform::BackgroundFetchResult) { *finished = true; });
            }
            settle(number, [finished] { return finished->load(); });
            return;
        }
        case A::push: {
            core::PushData push;
            push.messageType = std::string(core::rawValue(core::RemoteNotificationMessageType::backgroundSync));
            push.forceSyncNotifyCampaigns = step.force;
            applyConfig(config_, push);
            break;
        }
        case A::backgroundRefresh: {
            auto task = simulated_.backgroundTaskScheduler->launch(kRefreshTaskIdentifier);
            if (!task) {
                emitError(number, "no background refresh task is registered (launch first)");
                return;
            }
            settle(number, [task] { return task->completion().has_value(); });
            return;
        }
        case A::orders: {
            std::vector<core::Order> orders;
            for (int i = 0; i < step.count; ++i) orders.push_back({i + 1, "open", std::nullopt});
            core_->orders().setOrders(std::move(orders));
            break;
        }
        case A::customTemplateContent:
            manager_->updateCustomTemplateContent(step.content);
            break;
        case A::config:
            applyConfig(step.config);
            break;
        case A::offline:
        case A::online:
            device.setOnline(step.action == A::online);
            break;
        case A::siteNotifications: {
            auto finished = std::make_shared<std::atomic<bool>>(false);
            const notify::NotificationInfo info(step.title, step.body, std::nullopt);
            // Failed adds are reported again after the first answer; each becomes an error line.
            if (step.region) {
                manager_->createForSitesInRegion(*step.region, info,
                                                 [this, number, finished](std::optional<std::vector<core::Site>>,
                                                                          core::ErrorPtr error) {
                                                     if (error) emitError(number, error->description());
                                                     *finished = true;
                                                 });
            } else {
                manager_->createForSites(step.sites, info, [this, number, finished](core::ErrorPtr error) {
                    if (error) emitError(number, error->description());
                    *finished = true;
                });
            }
            settle(number, [finished] { return finished->load(); });
            return;
        }
        case A::clear: {
            auto finished = std::make_shared<std::atomic<bool>>(false);
            manager_->clear([finished](core::ErrorPtr) { *finished = true; });
            settle(number, [finished] { return finished->load(); });
            return;
        }
    }
    settle(number);
}

core::Result<RunSummary> Runner::run() {
    if (auto error = setUp()) return error;
    const bool progress = options_.progress && isatty(STDERR_FILENO);
    for (std::size_t i = 0; i < scenario_.steps.size(); ++i) {
        if (progress && scenario_.steps.size() > 50) std::cerr << "\rstep " << i + 1 << '/' << scenario_.steps.size() << std::flush;
        play(i + 1, scenario_.steps[i]);
    }
    if (progress && scenario_.steps.size() > 50) std::cerr << "\r\033[K" << std::flush;
    // The last uploads may still be in flight.
    settle(scenario_.steps.size());
    simulated_.device->removeObserver(observer_);
    simulated_.device->synchronize();
    summary_.sdkErrors = sink_->errors.load();
    writeSession();
    // The module and its connections go before the backend, which would otherwise wait for the
    // idle keep-alive connections to time out.
    const std::weak_ptr<notify::Manager> manager = manager_;
    // The refresh task's launch handler holds the manager strongly; the run's end is the app's.
    simulated_.backgroundTaskScheduler->unregisterAll();
    templating::setClock({});
    manager_.reset();
    core_.reset();
    simulated_ = {};
    // Work of the module still winding down may log from its own threads; the run's sink stays,
    // silent, so that nothing follows the summary.
    sink_->setNext(nullptr);
    // A manager that outlives the run (its queues may still hold it) keeps its idle connections
    // open, and stopping the backend would wait out their keep-alive time; the backend is then
    // left serving until the process ends.
    if (backend_ && !manager.expired()) (void)backend_.release();

    std::lock_guard lock(outMutex_);
    if (options_.json) {
        core::JsonWriter writer;
        writer.beginObject()
            .key("summary")
            .beginObject()
            .key("scheduled").value(summary_.scheduled)
            .key("delivered").value(summary_.delivered)
            .key("clicks").value(summary_.clicks)
            .key("events_uploaded").value(summary_.eventsUploaded)
            .key("sdk_errors").value(summary_.sdkErrors)
            .key("run_errors").value(summary_.runErrors)
            .endObject()
            .endObject();
        out_ << writer.str() << '\n';
    } else {
        out_ << "Summary: " << summary_.scheduled << " scheduled, " << summary_.delivered << " delivered, "
             << summary_.clicks << " clicks, " << summary_.eventsUploaded << " events uploaded, " << summary_.sdkErrors
             << " SDK errors";
        if (summary_.runErrors) out_ << ", " << summary_.runErrors << " step errors";
        out_ << '\n';
    }
    out_.flush();
    return summary_;
}

}  // namespace

core::Result<RunSummary> runScenario(const Scenario& scenario, const RunnerOptions& options, std::ostream& out) {
    Runner runner(scenario, options, out);
    return runner.run();
}

}  // namespace drovel::simulator
