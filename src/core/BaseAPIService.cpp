#include "drovel/core/BaseAPIService.h"

#include <algorithm>

namespace drovel::core {

using platform::HttpResponse;
using platform::TransportError;
using platform::TransportErrorKind;

// ---- APIError ----

APIError::APIError(Kind kind, int status, std::string body, std::optional<TransportErrorKind> transportKind,
                   std::string message)
    : kind_(kind), status_(status), body_(std::move(body)), transportKind_(transportKind), message_(std::move(message)) {}

ErrorPtr APIError::httpStatus(int status, std::string body) {
    return makeError<APIError>(Kind::httpStatus, status, std::move(body), std::nullopt, std::string());
}

ErrorPtr APIError::transport(TransportError error) {
    // A cancelled request is its own kind: callers treat it differently from a network failure.
    if (error.kind == TransportErrorKind::cancelled) return cancelled();
    return makeError<APIError>(Kind::transport, 0, std::string(), error.kind, std::move(error.message));
}

ErrorPtr APIError::decoding(std::string message) {
    return makeError<APIError>(Kind::decoding, 0, std::string(), std::nullopt, std::move(message));
}

ErrorPtr APIError::cancelled() {
    return makeError<APIError>(Kind::cancelled, 0, std::string(), std::nullopt, std::string());
}

ErrorPtr APIError::notConfigured() {
    return makeError<APIError>(Kind::notConfigured, 0, std::string(), std::nullopt, std::string());
}

const APIError* APIError::from(const ErrorPtr& error) { return dynamic_cast<const APIError*>(error.get()); }

std::string APIError::description() const {
    switch (kind_) {
        case Kind::httpStatus:
            return "The server answered with HTTP status " + std::to_string(status_);
        case Kind::transport: {
            std::string text = "The request failed: ";
            text += platform::transportErrorKindText(transportKind_.value_or(TransportErrorKind::other));
            if (!message_.empty()) text += " (" + message_ + ")";
            return text;
        }
        case Kind::decoding:
            return "The response could not be decoded: " + message_;
        case Kind::cancelled:
            return "The request was cancelled";
        case Kind::notConfigured:
            return "The request was not sent: the core library is not configured";
    }
    return "The request failed";
}

// ---- URL building ----

std::string percentEncoded(std::string_view text) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                          c == '.' || c == '_' || c == '~';
        if (unreserved) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
    return out;
}

std::string BaseAPIService::urlFor(const APIServiceConfiguration& configuration, const BaseApiRequest& request) {
    std::string url = configuration.baseURL;
    while (!url.empty() && url.back() == '/') url.pop_back();
    std::string endPoint = request.requestEndPoint();
    if (!endPoint.starts_with('/')) url += '/';
    url += endPoint;
    char separator = url.find('?') == std::string::npos ? '?' : '&';
    for (const auto& [name, value] : request.queryParams()) {
        url += separator;
        url += percentEncoded(name);
        url += '=';
        url += percentEncoded(value);
        separator = '&';
    }
    return url;
}

// ---- BaseAPIService ----

BaseAPIService::BaseAPIService(std::shared_ptr<platform::HttpTransport> transport, APIServiceConfiguration configuration)
    : BaseAPIService(std::move(transport), [configuration] { return configuration; }) {}

BaseAPIService::BaseAPIService(std::shared_ptr<platform::HttpTransport> transport, ConfigurationSource configurationSource)
    : transport_(std::move(transport)), configurationSource_(std::move(configurationSource)) {
    if (!transport_) programmingError("BaseAPIService needs an HttpTransport");
}

BaseAPIService::~BaseAPIService() = default;

std::string BaseAPIService::url(const BaseApiRequest& request) const {
    return urlFor(configurationSource_(), request);
}

namespace {

// Adds the line, or replaces the value of an existing line with the same name.
void putHeader(platform::HttpHeaders& headers, std::string name, std::string value) {
    auto found = std::find_if(headers.begin(), headers.end(),
                              [&name](const auto& header) { return platform::sameHeaderName(header.first, name); });
    if (found == headers.end()) {
        headers.emplace_back(std::move(name), std::move(value));
    } else {
        found->second = std::move(value);
    }
}

}  // namespace

void BaseAPIService::send(const BaseApiRequest& request, BodyCompletion completion) const {
    APIServiceConfiguration configuration = configurationSource_();
    if (configuration.baseURL.empty()) {
        completion(APIError::notConfigured());
        return;
    }

    platform::HttpRequest http;
    http.method = request.requestType();
    http.url = urlFor(configuration, request);
    http.timeout = request.timeout().value_or(configuration.timeout);
    http.maxResponseBytes = configuration.maxResponseBytes;
    putHeader(http.headers, "Accept", "application/json");
    if (!configuration.apiToken.empty()) putHeader(http.headers, "Authorization", "Bearer " + configuration.apiToken);
    if (auto body = request.requestBody()) {
        http.body = std::move(*body);
        putHeader(http.headers, "Content-Type", "application/json");
    }
    for (auto& [name, value] : request.headers()) putHeader(http.headers, std::move(name), std::move(value));

    transport_->send(std::move(http), [completion = std::move(completion),
                                       maxBytes = configuration.maxResponseBytes](platform::HttpResult result) {
        if (auto* failure = std::get_if<TransportError>(&result)) return completion(APIError::transport(std::move(*failure)));
        auto& response = std::get<HttpResponse>(result);
        // The transport enforces the limit as the body arrives; this holds it for any transport.
        if (response.body.size() > maxBytes) {
            return completion(APIError::transport(
                {platform::TransportErrorKind::responseTooLarge,
                 "The response body is larger than " + std::to_string(maxBytes) + " bytes"}));
        }
        if (response.status < 200 || response.status > 299) {
            return completion(APIError::httpStatus(response.status, std::move(response.body)));
        }
        completion(std::move(response.body));
    });
}

}  // namespace drovel::core
