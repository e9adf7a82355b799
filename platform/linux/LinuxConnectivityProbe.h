#pragma once
// The connectivity probe of the Linux platform: resolves a well-known public host name with
// getaddrinfo on a worker thread of its own.
//
// The look-up may hang (no network, a slow resolver); the completion never waits for it longer than
// the time limit. A look-up that outlives its limit finishes on its detached thread and is ignored.

#include <functional>
#include <string>

#include "drovel/platform/ConnectivityProbe.h"

namespace drovel::platform {

class LinuxConnectivityProbe final : public ConnectivityProbe {
public:
    // Performs one look-up and tells whether it found an address; runs on a worker thread.
    using LookUp = std::function<bool()>;

    // The host that stands for "the internet": a name that resolves wherever the public DNS does.
    static constexpr const char* kDefaultHost = "www.apple.com";

    // Resolves host for the IPv6 address family.
    explicit LinuxConnectivityProbe(std::string host = kDefaultHost);
    // Runs lookUp in place of the name look-up (tests give one that hangs or fails).
    explicit LinuxConnectivityProbe(LookUp lookUp);

    void probe(std::chrono::milliseconds timeLimit, Completion completion) override;

    // getaddrinfo(host) for family (AF_INET6, AF_UNSPEC, ...): true when it returned an address.
    static bool resolves(const std::string& host, int family);

private:
    LookUp lookUp_;
};

}  // namespace drovel::platform
