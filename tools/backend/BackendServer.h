#pragma once
// The sample backend: serves a catalogue to the module on loopback (127.0.0.1) only.
//
//   GET  /api/v1/notify/notifications?latitude=&longitude=&radius=   the campaigns download
//   POST /api/v1/notify/campaign_events                             analytics upload; 204
//   GET  /api/v1/sites?latitude=&longitude=&radius=&page=&per=      the core library's sites query
//
// With a token, a request without "Authorization: Bearer <token>" gets 401. A malformed query or
// body gets 400 with {"error": "<what is wrong>"}. The first failUploads uploads get 500 (and are
// not kept). Each request is logged as one line.

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "backend/Catalogue.h"
#include "backend/EventStore.h"
#include "drovel/core/Error.h"

namespace httplib {
class Server;
}

namespace drovel::backend {

struct BackendOptions {
    Catalogue catalogue;
    // 0: a free port.
    int port = 0;
    // Empty: no token is asked for.
    std::string token;
    int failUploads = 0;
    // The JSON-lines file the events are kept in; none: kept in memory only.
    std::optional<std::string> eventsPath;
    // Receives one line per request ("GET /api/v1/notify/notifications?... 200 (5 sites, 8 pairs,
    // 6 campaigns)"), on a server thread; may be empty.
    std::function<void(const std::string& line)> log;
    // Receives each newly kept event, on a server thread, before the upload is answered; may be empty.
    std::function<void(const ReceivedEvent& event)> onEvent;
};

class BackendServer {
public:
    // Listens on 127.0.0.1 and serves on threads of its own until stopped. Fails when the port
    // cannot be had or the events file cannot be opened.
    static core::Result<std::unique_ptr<BackendServer>> start(BackendOptions options);
    // Stops serving.
    ~BackendServer();
    BackendServer(const BackendServer&) = delete;
    BackendServer& operator=(const BackendServer&) = delete;

    int port() const { return port_; }
    // "http://127.0.0.1:<port>"
    std::string baseURL() const;
    // Every event kept, in the order received.
    std::vector<ReceivedEvent> events() const { return store_->events(); }
    // Uploads answered so far (any status).
    int uploadCount() const { return uploads_.load(); }
    // Stops serving; waits for the requests being answered. Idempotent.
    void stop();

private:
    explicit BackendServer(BackendOptions options);
    void route();

    BackendOptions options_;
    std::unique_ptr<EventStore> store_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
    std::atomic<int> uploads_{0};
};

}  // namespace drovel::backend
