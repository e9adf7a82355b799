#pragma once
// Requests to the SDK's backend. A request object describes one endpoint (path, method, query,
// body, headers) and how its answer is decoded; BaseAPIService sends it over the platform's
// HttpTransport with the SDK's base URL and API token, and reports the decoded answer or an APIError.

#include <chrono>
#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "drovel/core/Error.h"
#include "drovel/platform/HttpTransport.h"

namespace drovel::core {

using HTTPMethod = platform::HttpMethod;
using HttpHeaders = platform::HttpHeaders;
// Query parameters as name and value texts, in the order they are sent. They are percent-encoded
// when the URL is built, so callers give them unencoded.
using QueryParams = std::vector<std::pair<std::string, std::string>>;

// A request's description. Subclasses override what differs from the defaults (GET, no query,
// no body, no extra headers, the service's timeout).
class BaseApiRequest {
public:
    // The path prefix of the current API version.
    static constexpr std::string_view latestApi = "/api/v1";

    virtual ~BaseApiRequest() = default;

    // The path below the base URL, starting with "/" (e.g. "/api/v1/sites").
    virtual std::string requestEndPoint() const = 0;
    virtual HTTPMethod requestType() const { return HTTPMethod::get; }
    virtual QueryParams queryParams() const { return {}; }
    // The encoded body; none sends no body and no Content-Type.
    virtual std::optional<std::string> requestBody() const { return std::nullopt; }
    // Extra header lines; a line replaces the service's default header of the same name.
    virtual HttpHeaders headers() const { return {}; }
    // None: the service's default timeout.
    virtual std::optional<std::chrono::milliseconds> timeout() const { return std::nullopt; }
};

// The answer of a request whose response body is not read.
struct VoidResponse {
    static Result<VoidResponse> fromJson(std::string_view) { return VoidResponse{}; }
};

template <class T>
concept JsonDecodable = requires(std::string_view text) {
    { T::fromJson(text) } -> std::convertible_to<Result<T>>;
};

template <class T>
concept JsonEncodable = requires(const T& value) {
    { value.toJson() } -> std::convertible_to<std::string>;
};

// A request whose answer is decoded from the JSON body of a 2xx response, by the decoder given at
// construction or, when none is given, by Response::fromJson.
template <class Response>
class CodableRequest : public BaseApiRequest {
public:
    using ResponseType = Response;
    // Must not throw; a failure is an error Result whose description() names what was wrong.
    using Decoder = std::function<Result<Response>(std::string_view)>;

    CodableRequest() requires JsonDecodable<Response>
        : decoder_([](std::string_view body) -> Result<Response> { return Response::fromJson(body); }) {}
    explicit CodableRequest(Decoder decoder) : decoder_(std::move(decoder)) {}

    const Decoder& decoder() const { return decoder_; }

private:
    Decoder decoder_;
};

// A request with a JSON body: the given object, encoded by the given encoder or, when none is
// given, by object.toJson(). POST unless a subclass says otherwise.
template <class Body, class Response = VoidResponse>
class EncodableRequest : public CodableRequest<Response> {
public:
    using Encoder = std::function<std::string(const Body&)>;
    using typename CodableRequest<Response>::Decoder;

    explicit EncodableRequest(Body object) requires JsonEncodable<Body> && JsonDecodable<Response>
        : object_(std::move(object)), encoder_([](const Body& body) { return std::string(body.toJson()); }) {}
    EncodableRequest(Body object, Encoder encoder) requires JsonDecodable<Response>
        : object_(std::move(object)), encoder_(std::move(encoder)) {}
    EncodableRequest(Body object, Encoder encoder, Decoder decoder)
        : CodableRequest<Response>(std::move(decoder)), object_(std::move(object)), encoder_(std::move(encoder)) {}

    const Body& object() const { return object_; }

    HTTPMethod requestType() const override { return HTTPMethod::post; }
    std::optional<std::string> requestBody() const override { return encoder_(object_); }

private:
    Body object_;
    Encoder encoder_;
};

// Why a request failed.
class APIError : public Error {
public:
    enum class Kind {
        httpStatus,     // the backend answered with a status outside 200...299
        transport,      // no answer arrived (see transportKind())
        decoding,       // a 2xx answer whose body the request's decoder rejected
        cancelled,      // cancelled before an answer arrived
        notConfigured,  // there is no base URL to send to
    };

    static ErrorPtr httpStatus(int status, std::string body);
    static ErrorPtr transport(platform::TransportError error);
    static ErrorPtr decoding(std::string message);
    static ErrorPtr cancelled();
    static ErrorPtr notConfigured();

    // The APIError inside error, or nullptr when it is another kind of error (or none).
    static const APIError* from(const ErrorPtr& error);

    Kind kind() const { return kind_; }
    // httpStatus: the status; otherwise 0.
    int status() const { return status_; }
    // httpStatus: the response body as received.
    const std::string& body() const { return body_; }
    // transport: the transport's kind of failure; otherwise none.
    std::optional<platform::TransportErrorKind> transportKind() const { return transportKind_; }
    // transport: the transport's detail; decoding: the decoder's message; otherwise empty.
    const std::string& message() const { return message_; }

    //   httpStatus:    "The server answered with HTTP status 404"
    //   transport:     "The request failed: timed out (<transport detail>)"
    //   decoding:      "The response could not be decoded: <decoder message>"
    //   cancelled:     "The request was cancelled"
    //   notConfigured: "The request was not sent: the core library is not configured"
    std::string description() const override;

    APIError(Kind kind, int status, std::string body, std::optional<platform::TransportErrorKind> transportKind,
             std::string message);

private:
    Kind kind_;
    int status_;
    std::string body_;
    std::optional<platform::TransportErrorKind> transportKind_;
    std::string message_;
};

struct APIServiceConfiguration {
    static constexpr std::chrono::milliseconds defaultTimeout{30000};
    // A real answer (a campaigns download for one position) is a few MB.
    static constexpr std::size_t defaultMaxResponseBytes = platform::HttpRequest::defaultMaxResponseBytes;

    // Scheme, host and optional path prefix, e.g. "https://api.example.com"; a trailing "/" is ignored.
    std::string baseURL;
    // Sent as "Authorization: Bearer <apiToken>"; no Authorization header when empty.
    std::string apiToken;
    std::chrono::milliseconds timeout = defaultTimeout;
    // A response whose body is larger fails as an APIError of kind transport (responseTooLarge)
    // before anything decodes it.
    std::size_t maxResponseBytes = defaultMaxResponseBytes;
};

// The text with every byte outside A-Z a-z 0-9 "-._~" written as %XX (upper-case hex).
std::string percentEncoded(std::string_view text);

// Thread-safe: any thread may call execute(). Subclasses add endpoints of their own.
class BaseAPIService {
public:
    // Asked for the configuration each time a request is sent, so a service made before the core
    // library is configured uses the configuration once it is there.
    using ConfigurationSource = std::function<APIServiceConfiguration()>;

    BaseAPIService(std::shared_ptr<platform::HttpTransport> transport, APIServiceConfiguration configuration);
    BaseAPIService(std::shared_ptr<platform::HttpTransport> transport, ConfigurationSource configurationSource);
    virtual ~BaseAPIService();

    // Sends the request and calls completion exactly once, with the decoded answer of a 2xx
    // response or an APIError. The request is read before execute returns, so it need not outlive
    // the call. The completion runs on the transport's thread; only when the request cannot be
    // sent at all (no base URL: APIError notConfigured) is it called before execute returns.
    template <class Response>
    void execute(const CodableRequest<Response>& request,
                 std::type_identity_t<std::function<void(Result<Response>)>> completion) const;

    // The full URL the request is sent to: base URL, end point and encoded query.
    std::string url(const BaseApiRequest& request) const;

    const std::shared_ptr<platform::HttpTransport>& transport() const { return transport_; }

private:
    // Reports the body of a 2xx response, or an APIError.
    using BodyCompletion = std::function<void(Result<std::string>)>;
    void send(const BaseApiRequest& request, BodyCompletion completion) const;
    static std::string urlFor(const APIServiceConfiguration& configuration, const BaseApiRequest& request);

    std::shared_ptr<platform::HttpTransport> transport_;
    ConfigurationSource configurationSource_;
};

// ---- implementation ----

namespace detail {
// Runs the decoder; an exception escaping it becomes a decoding failure.
template <class Response>
Result<Response> decodeBody(const std::function<Result<Response>(std::string_view)>& decoder, std::string_view body) {
    try {
        Result<Response> decoded = decoder(body);
        if (decoded) return decoded;
        return APIError::decoding(decoded.error() ? decoded.error()->description() : std::string());
    } catch (const std::exception& failure) {
        return APIError::decoding(failure.what());
    }
}
}  // namespace detail

template <class Response>
void BaseAPIService::execute(const CodableRequest<Response>& request,
                             std::type_identity_t<std::function<void(Result<Response>)>> completion) const {
    send(request, [decoder = request.decoder(), completion = std::move(completion)](Result<std::string> body) {
        if (!body) return completion(body.error());
        completion(detail::decodeBody(decoder, body.value()));
    });
}

}  // namespace drovel::core
