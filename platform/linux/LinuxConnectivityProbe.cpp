#include "linux/LinuxConnectivityProbe.h"

#include <netdb.h>
#include <sys/socket.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace drovel::platform {

LinuxConnectivityProbe::LinuxConnectivityProbe(std::string host)
    : lookUp_([host = std::move(host)] { return resolves(host, AF_INET6); }) {}

LinuxConnectivityProbe::LinuxConnectivityProbe(LookUp lookUp) : lookUp_(std::move(lookUp)) {}

bool LinuxConnectivityProbe::resolves(const std::string& host, int family) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* result = nullptr;
    const int status = getaddrinfo(host.c_str(), nullptr, &hints, &result);
    const bool found = status == 0 && result != nullptr;
    if (result) freeaddrinfo(result);
    return found;
}

void LinuxConnectivityProbe::probe(std::chrono::milliseconds timeLimit, Completion completion) {
    // Shared by the look-up and the waiter, so that a look-up that outlives the waiter (and the
    // probe) writes into memory that is still there.
    struct Shared {
        std::mutex mutex;
        std::condition_variable answered;
        std::optional<bool> resolved;
    };
    auto shared = std::make_shared<Shared>();
    std::thread([shared, lookUp = lookUp_] {
        const bool found = lookUp();
        std::lock_guard lock(shared->mutex);
        shared->resolved = found;
        shared->answered.notify_all();
    }).detach();
    std::thread([shared, timeLimit, completion = std::move(completion)] {
        bool reachable;
        {
            std::unique_lock lock(shared->mutex);
            shared->answered.wait_for(lock, timeLimit, [&] { return shared->resolved.has_value(); });
            reachable = shared->resolved.value_or(false);
        }
        completion(reachable);
    }).detach();
}

}  // namespace drovel::platform
