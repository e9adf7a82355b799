#include "simulator/KillPoint.h"

#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <charconv>

#include "data/NotifyDBManager.h"

namespace drovel::simulator {

namespace {

constexpr std::string_view kUploadPath = "/notify/campaign_events";
constexpr std::string_view kDownloadTables[] = {"notify_campaign", "notify_site", "notify_notification"};

// Nothing is flushed first, as in a crash: the runner writes its event lines out one by one.
[[noreturn]] void killNow() {
    ::kill(::getpid(), SIGKILL);
    ::_exit(137);  // not reached
}

std::atomic<int> rowsLeft{0};

void onRowWritten(void*, int operation, const char*, const char* table, sqlite3_int64) {
    if (operation == SQLITE_DELETE) return;
    const std::string_view name = table ? table : "";
    for (auto download : kDownloadTables)
        if (name == download && --rowsLeft == 0) killNow();
}

int hookModuleDatabase(sqlite3* db, const char**, const sqlite3_api_routines*) {
    const char* file = sqlite3_db_filename(db, "main");
    if (file && std::string_view(file).ends_with(notify::NotifyDBManager::fileName)) sqlite3_update_hook(db, &onRowWritten, nullptr);
    return SQLITE_OK;
}

class KillingUploadTransport final : public platform::HttpTransport {
public:
    KillingUploadTransport(std::shared_ptr<platform::HttpTransport> transport, int uploads)
        : transport_(std::move(transport)), uploadsLeft_(uploads) {}

    void send(platform::HttpRequest request, Completion completion) override {
        const bool upload = request.method == platform::HttpMethod::post &&
                            std::string_view(request.url).find(kUploadPath) != std::string_view::npos;
        if (!upload || --uploadsLeft_ != 0) return transport_->send(std::move(request), std::move(completion));
        transport_->send(std::move(request), [](platform::HttpResult) { killNow(); });
    }
    void cancelAll() override { transport_->cancelAll(); }

private:
    std::shared_ptr<platform::HttpTransport> transport_;
    std::atomic<int> uploadsLeft_;
};

}  // namespace

core::Result<KillPoint> parseKillPoint(std::string_view text) {
    auto bad = [text] {
        return core::makeError<core::SimpleError>("DROVEL_SIMULATE_KILL: \"" + std::string(text) +
                                                  "\" is none of store:N, upload, upload:N");
    };
    KillPoint point;
    std::string_view count;
    if (text.starts_with("store:")) {
        count = text.substr(6);
    } else if (text == "upload") {
        point.where = KillPoint::Where::upload;
        return point;
    } else if (text.starts_with("upload:")) {
        point.where = KillPoint::Where::upload;
        count = text.substr(7);
    } else {
        return bad();
    }
    const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), point.count);
    if (error != std::errc() || end != count.data() + count.size() || point.count < 1) return bad();
    return point;
}

void armStoreKill(int rows) {
    rowsLeft = rows;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(&hookModuleDatabase));
}

std::shared_ptr<platform::HttpTransport> killingUploadTransport(std::shared_ptr<platform::HttpTransport> transport,
                                                                int uploads) {
    return std::make_shared<KillingUploadTransport>(std::move(transport), uploads);
}

}  // namespace drovel::simulator
