#include "backend/BackendServer.h"

#include <httplib.h>

#include <charconv>
#include <cmath>

#include "drovel/core/BaseAPIService.h"
#include "drovel/core/JsonWriter.h"

namespace drovel::backend {

namespace {

constexpr std::size_t maxBodyBytes = 16u << 20;
constexpr std::size_t maxSitesPerPage = 1000;
// The answers go out uncompressed. httplib compresses an answer typed exactly "application/json"
// whenever the client accepts it, preferring brotli at its slowest setting: tens of seconds for a
// download of 10,000 pairs, where loopback gains nothing from compression. It leaves other types,
// this one included, as they are.
constexpr const char* kJsonType = "application/json; charset=utf-8";

// What the handler adds to the request's log line; the logger runs on the handler's thread.
thread_local std::string logNote;

std::string errorBody(std::string_view message) {
    core::JsonWriter json;
    json.beginObject().key("error").value(message).endObject();
    return json.take();
}

void answerError(httplib::Response& response, int status, std::string_view message) {
    response.status = status;
    response.set_content(errorBody(message), kJsonType);
    logNote = std::string(message);
}

// A required query number within [low, high]; sets the 400 answer and gives none otherwise.
std::optional<double> queryNumber(const httplib::Request& request, httplib::Response& response, const char* name,
                                  double low, double high) {
    if (!request.has_param(name)) {
        answerError(response, 400, std::string("missing query parameter ") + name);
        return std::nullopt;
    }
    std::string text = request.get_param_value(name);
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value >= low && value <= high)) {
        answerError(response, 400, std::string(name) + ": expected a number from " + core::doubleText(low) + " to " +
                                       core::doubleText(high) + ", got \"" + text + "\"");
        return std::nullopt;
    }
    return value;
}

std::optional<core::LocationCoordinate> queryCentre(const httplib::Request& request, httplib::Response& response) {
    auto latitude = queryNumber(request, response, "latitude", -90, 90);
    if (!latitude) return std::nullopt;
    auto longitude = queryNumber(request, response, "longitude", -180, 180);
    if (!longitude) return std::nullopt;
    return core::LocationCoordinate{*latitude, *longitude};
}

std::string requestLine(const httplib::Request& request) {
    // The target as sent (path and query), not the parameters httplib parsed out of a form body.
    return request.method + " " + (request.target.empty() ? request.path : request.target);
}

}  // namespace

BackendServer::BackendServer(BackendOptions options)
    : options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {}

core::Result<std::unique_ptr<BackendServer>> BackendServer::start(BackendOptions options) {
    auto store = EventStore::open(options.eventsPath);
    if (!store) return store.error();
    std::unique_ptr<BackendServer> backend(new BackendServer(std::move(options)));
    backend->store_ = std::move(store).value();
    backend->route();

    httplib::Server& server = *backend->server_;
    server.set_payload_max_length(maxBodyBytes);
    // Address reuse for quick restarts, but not port sharing, which would let a second backend
    // start on a port that is in use.
    server.set_socket_options([](socket_t socket) {
        int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const int wanted = backend->options_.port;
    if (wanted == 0) backend->port_ = server.bind_to_any_port("127.0.0.1");
    else if (server.bind_to_port("127.0.0.1", wanted)) backend->port_ = wanted;
    if (backend->port_ <= 0)
        return core::makeError<core::SimpleError>("cannot listen on 127.0.0.1:" + std::to_string(wanted));
    backend->thread_ = std::thread([&server] { server.listen_after_bind(); });
    // stop() before the listening loop has started would not end it.
    while (!server.is_running()) std::this_thread::yield();
    return backend;
}

BackendServer::~BackendServer() { stop(); }

void BackendServer::stop() {
    if (!thread_.joinable()) return;
    server_->stop();
    thread_.join();
}

std::string BackendServer::baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

void BackendServer::route() {
    httplib::Server& server = *server_;
    const std::string api(core::BaseApiRequest::latestApi);

    server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        logNote.clear();
        if (options_.token.empty() || request.get_header_value("Authorization") == "Bearer " + options_.token)
            return httplib::Server::HandlerResponse::Unhandled;
        answerError(response, 401, request.has_header("Authorization") ? "wrong API token" : "missing API token");
        return httplib::Server::HandlerResponse::Handled;
    });

    server.Get(api + "/notify/notifications", [this](const httplib::Request& request, httplib::Response& response) {
        auto centre = queryCentre(request, response);
        if (!centre) return;
        auto radius = queryNumber(request, response, "radius", 0, 2.1e7);
        if (!radius) return;
        DownloadSummary summary;
        // Moved in rather than copied by set_content: the answer may be megabytes.
        response.body = options_.catalogue.notificationsResponse(*centre, *radius, &summary);
        response.set_header("Content-Type", kJsonType);
        logNote = std::to_string(summary.sites) + " sites, " + std::to_string(summary.pairs) + " pairs, " +
                  std::to_string(summary.campaigns) + " campaigns";
    });

    server.Get(api + "/sites", [this](const httplib::Request& request, httplib::Response& response) {
        auto centre = queryCentre(request, response);
        if (!centre) return;
        auto radius = queryNumber(request, response, "radius", 0, 2.1e7);
        auto page = radius ? queryNumber(request, response, "page", 1, 1e6) : std::nullopt;
        auto per = page ? queryNumber(request, response, "per", 1, maxSitesPerPage) : std::nullopt;
        if (!per) return;
        if (*page != std::floor(*page) || *per != std::floor(*per))
            return answerError(response, 400, "page and per must be whole numbers");
        std::size_t count = 0;
        response.set_content(options_.catalogue.sitesResponse(*centre, *radius, static_cast<std::size_t>(*page),
                                                              static_cast<std::size_t>(*per), &count),
                             kJsonType);
        logNote = std::to_string(count) + " sites";
    });

    server.Post(api + "/notify/campaign_events", [this](const httplib::Request& request, httplib::Response& response) {
        int upload = ++uploads_;
        if (upload <= options_.failUploads)
            return answerError(response, 500, "failing upload " + std::to_string(upload) + " of " +
                                                  std::to_string(options_.failUploads) + " on purpose");
        auto events = parseUploadBody(request.body);
        if (!events) return answerError(response, 400, events.error()->description());
        const std::size_t received = events.value().size();
        auto added = store_->add(std::move(events).value());
        if (!added) return answerError(response, 500, added.error()->description());
        if (options_.onEvent)
            for (const auto& event : added.value()) options_.onEvent(event);
        response.status = 204;
        logNote = std::to_string(received) + " events, " + std::to_string(added.value().size()) + " new";
    });

    // Logged before the answer is sent, so the lines come in the order the client saw the answers.
    server.set_post_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (!options_.log) return;
        std::string line = requestLine(request) + " " + std::to_string(response.status);
        if (!logNote.empty()) line += " (" + logNote + ")";
        options_.log(line);
    });
}

}  // namespace drovel::backend
