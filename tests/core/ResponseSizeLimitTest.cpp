// A response body has a size limit: past it the request fails with a clear error before anything
// decodes the body.

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <future>
#include <thread>
#include <variant>

#include "drovel/core/BaseAPIService.h"
#include "linux/CurlHttpTransport.h"
#include "support/FakeHttpTransport.h"

namespace drovel::core {
namespace {

using platform::TransportErrorKind;

// Counts the decodings, so that a test sees whether an oversized body reached the decoder.
std::atomic<int> decodings{0};

struct Body {
    std::string text;
    static Result<Body> fromJson(std::string_view json) {
        ++decodings;
        return Body{std::string(json)};
    }
};

struct GetBody : CodableRequest<Body> {
    std::string requestEndPoint() const override { return "/body"; }
};

Result<Body> executeAndWait(const BaseAPIService& service) {
    std::promise<Result<Body>> answer;
    service.execute(GetBody(), [&answer](Result<Body> result) { answer.set_value(std::move(result)); });
    auto future = answer.get_future();
    if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready)
        return makeError<SimpleError>("no answer within 60 s");
    return future.get();
}

void expectTooLarge(const Result<Body>& result, std::size_t limit) {
    ASSERT_FALSE(result);
    const APIError* error = APIError::from(result.error());
    ASSERT_NE(error, nullptr) << result.error()->description();
    EXPECT_EQ(error->transportKind(), TransportErrorKind::responseTooLarge) << error->description();
    EXPECT_EQ(error->description(), "The request failed: response too large (The response body is larger than " +
                                        std::to_string(limit) + " bytes)");
}

}  // namespace

TEST(ResponseSizeLimit, TheServiceRefusesABodyPastItsLimitBeforeDecoding) {
    EXPECT_EQ(APIServiceConfiguration{}.maxResponseBytes, 32u << 20);
    EXPECT_EQ(platform::HttpRequest{}.maxResponseBytes, 32u << 20);
    auto fake = std::make_shared<testing::FakeHttpTransport>();
    APIServiceConfiguration configuration{"http://backend.test", "", APIServiceConfiguration::defaultTimeout, 10};
    BaseAPIService service(fake, configuration);

    // The fake transport ignores the limit it is handed, as a careless transport might.
    fake->respond(platform::HttpMethod::get, "/body", 200, std::string(10, 'x'));
    fake->respond(platform::HttpMethod::get, "/body", 200, std::string(11, 'x'));
    fake->respond(platform::HttpMethod::get, "/body", 500, std::string(11, 'x'));
    decodings = 0;
    auto exact = executeAndWait(service);
    ASSERT_TRUE(exact) << exact.error()->description();
    EXPECT_EQ(decodings, 1);
    EXPECT_EQ(fake->requests().back().maxResponseBytes, 10u);

    for (int answer = 0; answer < 2; ++answer) expectTooLarge(executeAndWait(service), 10);
    EXPECT_EQ(decodings, 1);
}

TEST(ResponseSizeLimit, CurlStopsABodyPastTheLimitAndOneThatAnnouncesIt) {
    httplib::Server server;
    server.Get("/body", [](const httplib::Request& request, httplib::Response& response) {
        if (request.has_param("announced")) {
            // Announces 100 MB and then breaks off: refused on the announcement alone, the request
            // fails as too large rather than as a lost connection.
            response.set_content_provider(100u << 20, "application/json",
                                          [](std::size_t, std::size_t, httplib::DataSink& sink) {
                                              sink.write("{}", 2);
                                              return false;
                                          });
        } else {
            response.set_content(std::string(2000, ' ') + "{}", "application/json");
        }
    });
    int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { server.listen_after_bind(); });

    platform::CurlHttpTransport transport;
    for (const char* path : {"/body", "/body?announced=1"}) {
        SCOPED_TRACE(path);
        platform::HttpRequest request;
        request.url = "http://127.0.0.1:" + std::to_string(port) + path;
        request.maxResponseBytes = 1000;
        std::promise<platform::HttpResult> sent;
        transport.send(request, [&sent](platform::HttpResult result) { sent.set_value(std::move(result)); });
        auto result = sent.get_future().get();
        auto* failure = std::get_if<platform::TransportError>(&result);
        ASSERT_NE(failure, nullptr);
        EXPECT_EQ(failure->kind, TransportErrorKind::responseTooLarge) << failure->message;
        EXPECT_EQ(failure->message, "The response body is larger than 1000 bytes");
    }
    server.stop();
    thread.join();
}

}  // namespace drovel::core
