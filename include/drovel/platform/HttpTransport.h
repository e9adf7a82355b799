#pragma once
// The HTTP seam: sends one request and reports its response, or why no response came.
// The core library's BaseAPIService builds on it; nothing above the core library uses it directly.

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace drovel::platform {

// `delete` is a C++ keyword, hence the trailing underscore.
enum class HttpMethod { get, post, put, delete_ };

// "GET", "POST", "PUT", "DELETE".
std::string_view httpMethodName(HttpMethod method);

// Header lines in the order they are sent or were received. Names compare case-insensitively.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// True when two header names are the same, ignoring ASCII letter case.
bool sameHeaderName(std::string_view a, std::string_view b);
// The value of the first header called name (any case), or nullptr.
const std::string* findHeader(const HttpHeaders& headers, std::string_view name);

struct HttpRequest {
    HttpMethod method = HttpMethod::get;
    // Absolute URL, query included and already percent-encoded.
    std::string url;
    HttpHeaders headers;
    // Sent as is; an empty body sends no content.
    std::string body;
    // The whole exchange (connecting, sending, receiving) must finish within this time; zero: no limit.
    std::chrono::milliseconds timeout{30000};
    static constexpr std::size_t defaultMaxResponseBytes = 32u << 20;
    // A larger response body (after any content decoding) fails the request with responseTooLarge
    // rather than filling memory; a response that announces a larger length fails before its body.
    std::size_t maxResponseBytes = defaultMaxResponseBytes;
};

struct HttpResponse {
    int status = 0;
    // The headers of the final response (after redirects).
    HttpHeaders headers;
    std::string body;
};

// Why a request produced no response.
enum class TransportErrorKind {
    badURL,                    // the URL could not be used (malformed, unsupported scheme)
    hostNotFound,              // the host name did not resolve
    cannotConnect,             // the connection was refused or could not be made
    timedOut,                  // the request's timeout passed
    connectionLost,            // the connection broke while sending or receiving
    secureConnectionFailed,    // TLS handshake or certificate failure
    responseTooLarge,          // the body exceeded maxResponseBytes
    cancelled,                 // cancelAll() ended the request
    other,
};

// "bad URL", "host not found", "cannot connect", "timed out", "connection lost",
// "secure connection failed", "response too large", "cancelled", "other".
std::string_view transportErrorKindText(TransportErrorKind kind);

struct TransportError {
    TransportErrorKind kind = TransportErrorKind::other;
    // The transport's own detail, for logs ("Could not resolve host: example.invalid").
    std::string message;
};

// Either the response (any status, 4xx and 5xx included) or the reason there was none.
using HttpResult = std::variant<HttpResponse, TransportError>;

// Thread-safe: any thread may call send() and cancelAll().
class HttpTransport {
public:
    // Called exactly once per request, on a thread of the transport (never inside send()).
    // Completions of one transport may share a thread: keep them short and hand longer work on.
    using Completion = std::function<void(HttpResult)>;

    virtual ~HttpTransport() = default;

    // Starts the request and returns at once.
    virtual void send(HttpRequest request, Completion completion) = 0;
    // Ends every request sent before this call that has not completed yet: each completes with
    // TransportErrorKind::cancelled, promptly. Requests sent afterwards are not affected.
    virtual void cancelAll() = 0;
};

}  // namespace drovel::platform
