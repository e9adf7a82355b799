#pragma once
// An HTTP server on a free loopback port, serving on its own thread until destroyed. Tests add
// their handlers through server().

#include <httplib.h>

#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace drovel::testing {

class LoopbackServer {
public:
    LoopbackServer() {
        port_ = server_.bind_to_any_port("127.0.0.1");
        server_.Get("/ready", [](const httplib::Request&, httplib::Response&) {});
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // The socket already listens, so the answer arrives once the server's loop runs; stopping
        // it before then would leave the loop running for ever.
        httplib::Client client("127.0.0.1", port_);
        client.set_read_timeout(60, 0);
        if (!client.Get("/ready")) ADD_FAILURE() << "the loopback server did not start";
    }
    ~LoopbackServer() {
        server_.stop();
        thread_.join();
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    httplib::Server& server() { return server_; }
    std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace drovel::testing
