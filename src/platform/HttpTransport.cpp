#include "drovel/platform/HttpTransport.h"

#include <algorithm>

namespace drovel::platform {

std::string_view httpMethodName(HttpMethod method) {
    switch (method) {
        case HttpMethod::get: return "GET";
        case HttpMethod::post: return "POST";
        case HttpMethod::put: return "PUT";
        case HttpMethod::delete_: return "DELETE";
    }
    return "GET";
}

bool sameHeaderName(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

const std::string* findHeader(const HttpHeaders& headers, std::string_view name) {
    auto found = std::find_if(headers.begin(), headers.end(),
                              [name](const auto& header) { return sameHeaderName(header.first, name); });
    return found == headers.end() ? nullptr : &found->second;
}

std::string_view transportErrorKindText(TransportErrorKind kind) {
    switch (kind) {
        case TransportErrorKind::badURL: return "bad URL";
        case TransportErrorKind::hostNotFound: return "host not found";
        case TransportErrorKind::cannotConnect: return "cannot connect";
        case TransportErrorKind::timedOut: return "timed out";
        case TransportErrorKind::connectionLost: return "connection lost";
        case TransportErrorKind::secureConnectionFailed: return "secure connection failed";
        case TransportErrorKind::responseTooLarge: return "response too large";
        case TransportErrorKind::cancelled: return "cancelled";
        case TransportErrorKind::other: return "other";
    }
    return "other";
}

}  // namespace drovel::platform
