#pragma once
// The Linux reference HTTP transport, on libcurl.
//
// One worker thread drives every request of the transport through a curl multi handle, so many
// requests run concurrently on that one thread and share connections. Completions are called on
// the worker thread. Destroying the transport completes the requests still running with
// TransportErrorKind::cancelled (a completion may drop the last reference to the transport).

#include <memory>

#include "drovel/platform/HttpTransport.h"

namespace drovel::platform {

class CurlHttpTransport final : public HttpTransport {
public:
    CurlHttpTransport();
    ~CurlHttpTransport() override;
    CurlHttpTransport(const CurlHttpTransport&) = delete;
    CurlHttpTransport& operator=(const CurlHttpTransport&) = delete;

    void send(HttpRequest request, Completion completion) override;
    void cancelAll() override;

private:
    struct Engine;
    std::shared_ptr<Engine> engine_;
};

}  // namespace drovel::platform
