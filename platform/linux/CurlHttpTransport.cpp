#include "linux/CurlHttpTransport.h"

#include <curl/curl.h>

#include <algorithm>
#include <limits>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "drovel/core/Error.h"

namespace drovel::platform {

namespace {

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) core::programmingError("libcurl could not be initialised");
    });
}

// One request on its way: what was asked, what has arrived so far, and the curl handles for it.
struct Transfer {
    HttpRequest request;
    HttpTransport::Completion completion;
    HttpResponse response;
    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    bool tooLarge = false;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    Transfer(HttpRequest r, HttpTransport::Completion c) : request(std::move(r)), completion(std::move(c)) {}
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() {
        if (easy) curl_easy_cleanup(easy);
        if (headerList) curl_slist_free_all(headerList);
    }

    void complete(HttpResult result) {
        auto done = std::move(completion);
        done(std::move(result));
    }
};

using TransferPtr = std::unique_ptr<Transfer>;

size_t writeBody(char* data, size_t size, size_t count, void* userData) {
    auto* transfer = static_cast<Transfer*>(userData);
    size_t bytes = size * count;
    std::string& body = transfer->response.body;
    if (bytes > transfer->request.maxResponseBytes - body.size()) {
        transfer->tooLarge = true;
        return 0;  // makes curl stop with CURLE_WRITE_ERROR
    }
    if (body.empty()) {
        // A body of megabytes grown by doubling is copied and its memory touched several times
        // over: the announced length (of the body as sent; a compressed one grows past it) sizes
        // it once.
        curl_off_t announced = -1;
        if (curl_easy_getinfo(transfer->easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced) == CURLE_OK &&
            announced > 0 && static_cast<std::uint64_t>(announced) <= transfer->request.maxResponseBytes)
            body.reserve(static_cast<std::size_t>(announced));
    }
    body.append(data, bytes);
    return bytes;
}

std::string_view trimmed(std::string_view text) {
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

size_t writeHeader(char* data, size_t size, size_t count, void* userData) {
    auto* transfer = static_cast<Transfer*>(userData);
    std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
        // A new status line starts another response (an interim 100 or a redirect): only the
        // final response's headers are kept.
        transfer->response.headers.clear();
    } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
        transfer->response.headers.emplace_back(std::string(trimmed(line.substr(0, colon))),
                                                std::string(trimmed(line.substr(colon + 1))));
    }
    return size * count;
}

TransportErrorKind kindOf(CURLcode code, bool tooLarge) {
    switch (code) {
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_URL_MALFORMAT:
            return TransportErrorKind::badURL;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return TransportErrorKind::hostNotFound;
        case CURLE_COULDNT_CONNECT:
            return TransportErrorKind::cannotConnect;
        case CURLE_OPERATION_TIMEDOUT:
            return TransportErrorKind::timedOut;
        case CURLE_WRITE_ERROR:
            return tooLarge ? TransportErrorKind::responseTooLarge : TransportErrorKind::other;
        case CURLE_FILESIZE_EXCEEDED:
            return TransportErrorKind::responseTooLarge;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return TransportErrorKind::connectionLost;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
            return TransportErrorKind::secureConnectionFailed;
        default:
            return TransportErrorKind::other;
    }
}

TransportError cancelledError() { return {TransportErrorKind::cancelled, "The request was cancelled"}; }

// Configures the transfer's easy handle; false when curl refused an option.
bool prepare(Transfer& transfer) {
    transfer.easy = curl_easy_init();
    if (!transfer.easy) return false;
    CURL* easy = transfer.easy;
    const HttpRequest& request = transfer.request;
    bool ok = true;
    auto set = [&](CURLoption option, auto value) { ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK; };

    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_PRIVATE, static_cast<void*>(&transfer));
    set(CURLOPT_ERRORBUFFER, transfer.errorBuffer);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, 5L);
    set(CURLOPT_ACCEPT_ENCODING, "");
    if (request.timeout.count() > 0) {
        set(CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.timeout.count()));
    }
    // A response that announces a larger body fails at once, before any of it arrives; writeBody
    // holds the limit for the rest (no announced length, or a body that decompresses larger).
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(std::min<std::size_t>(
                                       request.maxResponseBytes, std::numeric_limits<curl_off_t>::max())));
    set(CURLOPT_WRITEFUNCTION, writeBody);
    set(CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
    set(CURLOPT_HEADERFUNCTION, writeHeader);
    set(CURLOPT_HEADERDATA, static_cast<void*>(&transfer));

    switch (request.method) {
        case HttpMethod::get: set(CURLOPT_HTTPGET, 1L); break;
        case HttpMethod::post: set(CURLOPT_POST, 1L); break;
        case HttpMethod::put: set(CURLOPT_CUSTOMREQUEST, "PUT"); break;
        case HttpMethod::delete_: set(CURLOPT_CUSTOMREQUEST, "DELETE"); break;
    }
    if (request.method == HttpMethod::post || !request.body.empty()) {
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        set(CURLOPT_POSTFIELDS, request.body.data());
    }

    for (const auto& [name, value] : request.headers) {
        // "Name;" is curl's way to send a header with an empty value.
        std::string line = value.empty() ? name + ";" : name + ": " + value;
        curl_slist* extended = curl_slist_append(transfer.headerList, line.c_str());
        if (!extended) return false;
        transfer.headerList = extended;
    }
    // Bodies go out at once; waiting for "100 Continue" would only add a round trip.
    if (curl_slist* extended = curl_slist_append(transfer.headerList, "Expect:")) transfer.headerList = extended;
    set(CURLOPT_HTTPHEADER, transfer.headerList);
    return ok;
}

}  // namespace

struct CurlHttpTransport::Engine {
    std::mutex mutex;
    // Guarded by mutex.
    std::vector<TransferPtr> incoming;
    std::vector<TransferPtr> cancelledBeforeStart;
    bool cancelRunning = false;
    bool stopping = false;

    // Worker thread only.
    CURLM* multi = nullptr;
    std::unordered_map<CURL*, TransferPtr> running;
    std::thread worker;

    Engine() {
        initialiseCurlOnce();
        multi = curl_multi_init();
        if (!multi) core::programmingError("libcurl could not create a multi handle");
        // Like the platform's default per-host limit: further requests to a host wait for a free
        // connection instead of opening dozens at once.
        curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, 6L);
    }
    ~Engine() { curl_multi_cleanup(multi); }

    void wake() { curl_multi_wakeup(multi); }

    void start(TransferPtr transfer) {
        if (!prepare(*transfer)) {
            transfer->complete(TransportError{TransportErrorKind::other, "The request could not be prepared"});
            return;
        }
        CURL* easy = transfer->easy;
        if (curl_multi_add_handle(multi, easy) != CURLM_OK) {
            transfer->complete(TransportError{TransportErrorKind::other, "The request could not be started"});
            return;
        }
        running.emplace(easy, std::move(transfer));
    }

    void finish(CURL* easy, CURLcode code) {
        curl_multi_remove_handle(multi, easy);
        auto found = running.find(easy);
        if (found == running.end()) return;
        TransferPtr transfer = std::move(found->second);
        running.erase(found);
        if (code == CURLE_OK) {
            long status = 0;
            curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
            transfer->response.status = static_cast<int>(status);
            transfer->complete(std::move(transfer->response));
        } else {
            TransportErrorKind kind = kindOf(code, transfer->tooLarge);
            std::string message = kind == TransportErrorKind::responseTooLarge
                                      ? "The response body is larger than " +
                                            std::to_string(transfer->request.maxResponseBytes) + " bytes"
                                  : transfer->errorBuffer[0] ? transfer->errorBuffer
                                                             : curl_easy_strerror(code);
            transfer->complete(TransportError{kind, std::move(message)});
        }
    }

    // Takes every running transfer off the multi handle, for completion with cancelled.
    void stopRunning(std::vector<TransferPtr>& into) {
        for (auto& [easy, transfer] : running) {
            curl_multi_remove_handle(multi, easy);
            into.push_back(std::move(transfer));
        }
        running.clear();
    }

    void run() {
        for (;;) {
            std::vector<TransferPtr> toStart;
            std::vector<TransferPtr> toCancel;
            bool cancelNow = false;
            bool stopNow = false;
            {
                std::lock_guard lock(mutex);
                toStart.swap(incoming);
                toCancel.swap(cancelledBeforeStart);
                cancelNow = std::exchange(cancelRunning, false);
                stopNow = stopping;
            }
            if (cancelNow || stopNow) stopRunning(toCancel);
            if (stopNow) {
                for (auto& transfer : toStart) toCancel.push_back(std::move(transfer));
                toStart.clear();
            }
            // Completions run without the lock, so they may send or cancel again.
            for (auto& transfer : toCancel) transfer->complete(cancelledError());
            if (stopNow) return;
            for (auto& transfer : toStart) start(std::move(transfer));

            int stillRunning = 0;
            curl_multi_perform(multi, &stillRunning);
            int queued = 0;
            while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
                if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
            }
            // Returns early when a transfer has work or wake() was called; curl shortens the wait
            // to its own next timeout.
            curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
    }
};

CurlHttpTransport::CurlHttpTransport() : engine_(std::make_shared<Engine>()) {
    // The worker keeps the engine alive, so a completion may destroy the transport.
    engine_->worker = std::thread([engine = engine_] { engine->run(); });
}

CurlHttpTransport::~CurlHttpTransport() {
    {
        std::lock_guard lock(engine_->mutex);
        engine_->stopping = true;
    }
    engine_->wake();
    if (engine_->worker.get_id() == std::this_thread::get_id()) {
        engine_->worker.detach();  // destroyed from one of its own completions
    } else {
        engine_->worker.join();
    }
}

void CurlHttpTransport::send(HttpRequest request, Completion completion) {
    auto transfer = std::make_unique<Transfer>(std::move(request), std::move(completion));
    {
        std::lock_guard lock(engine_->mutex);
        engine_->incoming.push_back(std::move(transfer));
    }
    engine_->wake();
}

void CurlHttpTransport::cancelAll() {
    {
        std::lock_guard lock(engine_->mutex);
        for (auto& transfer : engine_->incoming) engine_->cancelledBeforeStart.push_back(std::move(transfer));
        engine_->incoming.clear();
        engine_->cancelRunning = true;
    }
    engine_->wake();
}

}  // namespace drovel::platform
