// BaseAPIService over the libcurl transport, against a real HTTP server on the loopback interface,
// and the limit on the size of a response body.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "drovel/core/BaseAPIService.h"
#include "drovel/core/Site.h"
#include "linux/CurlHttpTransport.h"
#include "support/FakeHttpTransport.h"
#include "support/Locked.h"
#include "support/LoopbackServer.h"

namespace drovel::core {
namespace {

using namespace std::chrono_literals;
using platform::HttpMethod;
using platform::TransportErrorKind;

// Any record with fromJson and toJson will do as a body.
using Greeting = Order;
Greeting greeting(std::string text) { return Order{1, std::move(text), 9}; }

template <class Response>
struct GetRequest : CodableRequest<Response> {
    std::string path = "/api/v1/greeting";
    QueryParams query;
    HttpHeaders extraHeaders;
    std::optional<std::chrono::milliseconds> limit;

    std::string requestEndPoint() const override { return path; }
    QueryParams queryParams() const override { return query; }
    HttpHeaders headers() const override { return extraHeaders; }
    std::optional<std::chrono::milliseconds> timeout() const override { return limit; }
};

// A loopback server whose "/slow" handler blocks until the test ends (or 5 s pass).
class GatedServer : public testing::LoopbackServer {
public:
    GatedServer() {
        server().Get("/slow", [this](const httplib::Request&, httplib::Response& response) {
            std::unique_lock lock(gateMutex_);
            ++slowArrived_;
            gate_.notify_all();
            gate_.wait_for(lock, 5s, [this] { return gateOpen_; });
            response.set_content(R"({"id":1,"status":"late"})", "application/json");
        });
    }
    ~GatedServer() {
        {
            std::lock_guard lock(gateMutex_);
            gateOpen_ = true;
        }
        gate_.notify_all();
    }
    bool waitForSlowRequests(int count) {
        std::unique_lock lock(gateMutex_);
        return gate_.wait_for(lock, 5s, [&] { return slowArrived_ >= count; });
    }

private:
    std::mutex gateMutex_;
    std::condition_variable gate_;
    bool gateOpen_ = false;
    int slowArrived_ = 0;
};

// What the server saw of the last request.
struct Seen {
    std::string method, target, body;
    httplib::Headers headers;
};

std::string headerValue(const httplib::Headers& headers, const std::string& name) {
    auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

// A second answer to one request would set the promise twice, which throws.
template <class Response>
std::future<Result<Response>> start(const BaseAPIService& service, const CodableRequest<Response>& request) {
    auto promise = std::make_shared<std::promise<Result<Response>>>();
    service.execute(request, [promise](Result<Response> result) { promise->set_value(std::move(result)); });
    return promise->get_future();
}

template <class Response>
Result<Response> executeAndWait(const BaseAPIService& service, const CodableRequest<Response>& request) {
    auto future = start(service, request);
    if (future.wait_for(5s) != std::future_status::ready) return makeError<SimpleError>("no answer within 5 s");
    return future.get();
}

const APIError& apiError(const ErrorPtr& error) {
    static const APIError none(APIError::Kind::cancelled, 0, "", std::nullopt, "not an APIError");
    const APIError* api = APIError::from(error);
    EXPECT_NE(api, nullptr) << (error ? error->description() : "no error");
    return api ? *api : none;
}

class ServiceOverCurl : public ::testing::Test {
protected:
    ServiceOverCurl()
        : transport(std::make_shared<platform::CurlHttpTransport>()),
          service(transport, APIServiceConfiguration{server.baseURL(), "token-123"}) {
        server.server().Get("/api/v1/greeting", [this](const httplib::Request& request, httplib::Response& response) {
            record(request);
            response.set_content(R"({"id":1,"status":"hi","extra":[1,2]})", "application/json");
        });
        server.server().Post("/api/v1/greeting", [this](const httplib::Request& request, httplib::Response& response) {
            record(request);
            response.set_content(R"({"id":1,"status":"posted"})", "application/json");
        });
        server.server().Get("/echo", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(greeting(request.get_param_value("n")).toJson(), "application/json");
        });
    }

    void record(const httplib::Request& request) {
        testing::lockedAssign(seenMutex, seen, Seen{request.method, request.target, request.body, request.headers});
    }
    Seen lastSeen() { return testing::lockedCopy(seenMutex, seen); }

    GatedServer server;
    std::shared_ptr<platform::CurlHttpTransport> transport;
    BaseAPIService service;
    std::mutex seenMutex;
    Seen seen;
};

TEST_F(ServiceOverCurl, GetDecodesTheBodyAndSendsQueryAndHeaders) {
    GetRequest<Greeting> request;
    request.query = {{"latitude", "40.0"}, {"name", "a b&c=d/\xC3\xA9"}, {"empty", ""}};

    auto result = executeAndWait(service, request);

    ASSERT_TRUE(result) << result.error()->description();
    EXPECT_EQ(result.value().status, "hi");
    Seen got = lastSeen();
    EXPECT_EQ(got.method, "GET");
    EXPECT_EQ(got.target, "/api/v1/greeting?latitude=40.0&name=a%20b%26c%3Dd%2F%C3%A9&empty=");
    EXPECT_EQ(headerValue(got.headers, "Authorization"), "Bearer token-123");
    EXPECT_EQ(headerValue(got.headers, "Accept"), "application/json");
    EXPECT_EQ(got.headers.count("Content-Type"), 0u);
}

TEST_F(ServiceOverCurl, PostSendsTheEncodedBodyAndRequestHeadersReplaceDefaults) {
    struct Post : EncodableRequest<Greeting, Greeting> {
        using EncodableRequest::EncodableRequest;
        std::string requestEndPoint() const override { return std::string(latestApi) + "/greeting"; }
        HttpHeaders headers() const override { return {{"accept", "text/plain"}, {"X-Trace", "7"}}; }
    };

    auto result = executeAndWait(service, Post(greeting("hello \"you\"")));

    ASSERT_TRUE(result) << result.error()->description();
    EXPECT_EQ(result.value().status, "posted");
    Seen got = lastSeen();
    EXPECT_EQ(got.method, "POST");
    EXPECT_EQ(got.body, R"({"id":1,"status":"hello \"you\"","site_id":9})");
    EXPECT_EQ(headerValue(got.headers, "Content-Type"), "application/json");
    EXPECT_EQ(got.headers.count("Accept"), 1u);
    EXPECT_EQ(headerValue(got.headers, "Accept"), "text/plain");
    EXPECT_EQ(headerValue(got.headers, "X-Trace"), "7");
}

TEST_F(ServiceOverCurl, StatusesOutside2xxAndUndecodableBodiesBecomeAPIErrors) {
    const std::pair<int, std::string> cases[] = {{404, "not here"},          {500, R"({"error":"boom"})"},
                                                 {401, ""},                  {200, "<html>oops</html>"},
                                                 {200, R"({"other":1})"},    {200, R"({"id":1,"status":"hi"} trailing)"},
                                                 {200, ""}};
    int index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.first) + " " + c.second);
        std::string path = "/api/v1/answer/" + std::to_string(index++);
        server.server().Get(path, [c](const httplib::Request&, httplib::Response& response) {
            response.status = c.first;
            response.set_content(c.second, "application/json");
        });
        GetRequest<Greeting> request;
        request.path = path;

        auto result = executeAndWait(service, request);

        ASSERT_FALSE(result);
        const APIError& error = apiError(result.error());
        if (c.first != 200) {
            EXPECT_EQ(error.kind(), APIError::Kind::httpStatus);
            EXPECT_EQ(error.status(), c.first);
            EXPECT_EQ(error.body(), c.second);
            EXPECT_EQ(error.description(), "The server answered with HTTP status " + std::to_string(c.first));
        } else {
            EXPECT_EQ(error.kind(), APIError::Kind::decoding);
            EXPECT_FALSE(error.message().empty());
            EXPECT_EQ(error.description(), "The response could not be decoded: " + error.message());
        }
    }
}

TEST_F(ServiceOverCurl, VoidResponsesIgnoreTheBody) {
    server.server().Post("/api/v1/events", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("not json at all", "text/plain");
    });
    struct Upload : EncodableRequest<Greeting> {
        using EncodableRequest::EncodableRequest;
        std::string requestEndPoint() const override { return "/api/v1/events"; }
    };

    EXPECT_TRUE(executeAndWait(service, Upload(greeting("x"))));
}

TEST_F(ServiceOverCurl, ATimeoutFailsPromptlyAsATransportTimeout) {
    GetRequest<Greeting> request;
    request.path = "/slow";
    request.limit = 200ms;

    auto result = executeAndWait(service, request);

    ASSERT_FALSE(result);
    const APIError& error = apiError(result.error());
    EXPECT_EQ(error.kind(), APIError::Kind::transport);
    EXPECT_EQ(error.transportKind(), TransportErrorKind::timedOut);
    EXPECT_TRUE(error.description().starts_with("The request failed: timed out")) << error.description();
}

TEST_F(ServiceOverCurl, CancelAllEndsPendingRequestsButNotLaterOnes) {
    GetRequest<Greeting> slow;
    slow.path = "/slow";
    std::vector<std::future<Result<Greeting>>> pending;
    for (int i = 0; i < 3; ++i) pending.push_back(start(service, slow));
    ASSERT_TRUE(server.waitForSlowRequests(3));

    transport->cancelAll();

    for (auto& future : pending) {
        ASSERT_EQ(future.wait_for(1s), std::future_status::ready);
        auto result = future.get();
        ASSERT_FALSE(result);
        EXPECT_EQ(apiError(result.error()).kind(), APIError::Kind::cancelled);
        EXPECT_EQ(result.error()->description(), "The request was cancelled");
    }
    EXPECT_TRUE(executeAndWait(service, GetRequest<Greeting>()));
}

TEST_F(ServiceOverCurl, ManyConcurrentRequestsEachGetTheirOwnAnswer) {
    constexpr int count = 40;
    std::vector<std::future<Result<Greeting>>> answers;
    for (int i = 0; i < count; ++i) {
        GetRequest<Greeting> request;
        request.path = "/echo";
        request.query = {{"n", std::to_string(i)}};
        answers.push_back(start(service, request));
    }
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(answers[i].wait_for(5s), std::future_status::ready);
        auto result = answers[i].get();
        ASSERT_TRUE(result) << result.error()->description();
        EXPECT_EQ(result.value().status, std::to_string(i));
    }
}

// ---- the transport on its own ----

platform::HttpResult sendAndWait(platform::HttpTransport& transport, platform::HttpRequest request) {
    std::promise<platform::HttpResult> promise;
    auto future = promise.get_future();
    transport.send(std::move(request), [&promise](platform::HttpResult result) { promise.set_value(std::move(result)); });
    return future.get();
}

TEST(CurlHttpTransport, SendsEachMethodWithItsBody) {
    GatedServer server;
    auto echo = [](const httplib::Request& request, httplib::Response& response) {
        response.set_header("X-Method", request.method);
        response.set_content(request.body, "text/plain");
    };
    server.server().Get("/m", echo).Post("/m", echo).Put("/m", echo).Delete("/m", echo);
    platform::CurlHttpTransport transport;

    for (auto [method, body] : {std::pair{HttpMethod::get, ""}, std::pair{HttpMethod::post, "p"},
                                std::pair{HttpMethod::put, "u"}, std::pair{HttpMethod::delete_, ""}}) {
        SCOPED_TRACE(platform::httpMethodName(method));
        auto result = sendAndWait(transport, {method, server.baseURL() + "/m", {}, body});

        auto* response = std::get_if<platform::HttpResponse>(&result);
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(response->status, 200);
        ASSERT_NE(platform::findHeader(response->headers, "x-method"), nullptr);
        EXPECT_EQ(*platform::findHeader(response->headers, "x-method"), platform::httpMethodName(method));
        EXPECT_EQ(response->body, body);
    }
}

TEST(CurlHttpTransport, FailuresWithoutAResponseHaveTheirKind) {
    // A bound socket that does not listen: connecting to it is refused.
    int closedSocket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(closedSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::getsockname(closedSocket, reinterpret_cast<sockaddr*>(&address), &length), 0);
    std::string refusedURL = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    platform::CurlHttpTransport transport;

    // Too large a body is in the ResponseSizeLimit tests.
    for (auto [url, kind] : {std::pair{refusedURL, TransportErrorKind::cannotConnect},
                             std::pair{std::string("ftp://127.0.0.1/file"), TransportErrorKind::badURL}}) {
        SCOPED_TRACE(url);
        auto result = sendAndWait(transport, {HttpMethod::get, url, {}, {}});

        auto* failure = std::get_if<platform::TransportError>(&result);
        ASSERT_NE(failure, nullptr);
        EXPECT_EQ(failure->kind, kind) << failure->message;
    }
    ::close(closedSocket);
}

TEST(CurlHttpTransport, DestroyingTheTransportCancelsWhatIsRunning) {
    GatedServer server;
    std::promise<platform::HttpResult> promise;
    auto future = promise.get_future();
    {
        platform::CurlHttpTransport transport;
        transport.send({HttpMethod::get, server.baseURL() + "/slow", {}, {}},
                       [&promise](platform::HttpResult result) { promise.set_value(std::move(result)); });
        ASSERT_TRUE(server.waitForSlowRequests(1));
    }
    ASSERT_EQ(future.wait_for(0s), std::future_status::ready);
    auto result = future.get();
    auto* failure = std::get_if<platform::TransportError>(&result);
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(failure->kind, TransportErrorKind::cancelled);
}

// ---- the response size limit: past it a request fails with a clear error before anything decodes the body ----

// Counts its decodings, so that a test sees whether an oversized body reached the decoder.
struct CountedBody {
    static inline std::atomic<int> decodings{0};
    static Result<CountedBody> fromJson(std::string_view) {
        ++decodings;
        return CountedBody{};
    }
};

TEST(ResponseSizeLimit, TheServiceRefusesABodyPastItsLimitBeforeDecoding) {
    auto fake = std::make_shared<testing::FakeHttpTransport>();
    BaseAPIService service(fake, APIServiceConfiguration{"http://backend.test", "", APIServiceConfiguration::defaultTimeout, 10});
    // The fake transport ignores the limit it is handed, as a careless transport might.
    fake->respond(HttpMethod::get, "/body", 200, std::string(10, 'x'));
    fake->respond(HttpMethod::get, "/body", 200, std::string(11, 'x'));
    fake->respond(HttpMethod::get, "/body", 500, std::string(11, 'x'));
    GetRequest<CountedBody> request;
    request.path = "/body";
    CountedBody::decodings = 0;

    auto exact = executeAndWait(service, request);
    ASSERT_TRUE(exact) << exact.error()->description();
    EXPECT_EQ(CountedBody::decodings, 1);
    EXPECT_EQ(fake->requests().back().maxResponseBytes, 10u);
    for (int answer = 0; answer < 2; ++answer) {
        auto result = executeAndWait(service, request);
        ASSERT_FALSE(result);
        EXPECT_EQ(apiError(result.error()).transportKind(), TransportErrorKind::responseTooLarge);
        EXPECT_EQ(result.error()->description(),
                  "The request failed: response too large (The response body is larger than 10 bytes)");
    }
    EXPECT_EQ(CountedBody::decodings, 1);
}

TEST(ResponseSizeLimit, CurlStopsABodyPastTheLimitAndOneThatAnnouncesIt) {
    GatedServer server;
    server.server().Get("/body", [](const httplib::Request& request, httplib::Response& response) {
        if (request.has_param("announced")) {
            // Announces 100 MB and then breaks off: refused on the announcement alone, the request
            // fails as too large rather than as a lost connection.
            response.set_content_provider(100u << 20, "application/json", [](std::size_t, std::size_t, httplib::DataSink& sink) {
                sink.write("{}", 2);
                return false;
            });
        } else {
            response.set_content(std::string(2000, ' ') + "{}", "application/json");
        }
    });
    platform::CurlHttpTransport transport;
    for (const char* path : {"/body", "/body?announced=1"}) {
        SCOPED_TRACE(path);
        platform::HttpRequest request;
        request.url = server.baseURL() + path;
        request.maxResponseBytes = 1000;

        auto result = sendAndWait(transport, request);

        auto* failure = std::get_if<platform::TransportError>(&result);
        ASSERT_NE(failure, nullptr);
        EXPECT_EQ(failure->kind, TransportErrorKind::responseTooLarge) << failure->message;
        EXPECT_EQ(failure->message, "The response body is larger than 1000 bytes");
    }
}

// ---- without a network ----

TEST(BaseAPIService, BuildsTheURLAndSendsNothingWithoutABaseURL) {
    auto fake = std::make_shared<testing::FakeHttpTransport>();
    std::optional<Result<Greeting>> answer;
    BaseAPIService(fake, APIServiceConfiguration{})
        .execute(GetRequest<Greeting>(), [&answer](Result<Greeting> result) { answer = std::move(result); });
    ASSERT_TRUE(answer.has_value());
    ASSERT_FALSE(*answer);
    EXPECT_EQ(apiError(answer->error()).kind(), APIError::Kind::notConfigured);
    EXPECT_EQ(answer->error()->description(), "The request was not sent: the core library is not configured");
    EXPECT_EQ(fake->requestCount(), 0u);
    EXPECT_EQ(APIError::transport({TransportErrorKind::connectionLost, ""})->description(),
              "The request failed: connection lost");

    struct Case {
        std::string baseURL, path;
        QueryParams query;
        std::string url;
    };
    for (const Case& c : {
             Case{"https://api.example.com", "/api/v1/sites", {}, "https://api.example.com/api/v1/sites"},
             Case{"https://api.example.com/", "/api/v1/sites", {{"page", "1"}}, "https://api.example.com/api/v1/sites?page=1"},
             Case{"http://h/prefix//", "x", {{"a+b", "~-._"}, {"q", "1,2;3"}}, "http://h/prefix/x?a%2Bb=~-._&q=1%2C2%3B3"},
         }) {
        GetRequest<Greeting> request;
        request.path = c.path;
        request.query = c.query;
        EXPECT_EQ(BaseAPIService(fake, APIServiceConfiguration{c.baseURL, ""}).url(request), c.url);
    }
}

TEST(BaseAPIService, NoTokenSendsNoAuthorizationHeader) {
    auto fake = std::make_shared<testing::FakeHttpTransport>();
    fake->respond(HttpMethod::get, "/api/v1/greeting", 200, R"({"id":1,"status":"ok"})");
    BaseAPIService service(fake, APIServiceConfiguration{"http://h", "", 1500ms});

    ASSERT_TRUE(executeAndWait(service, GetRequest<Greeting>()));

    auto sent = fake->requests().at(0);
    EXPECT_EQ(platform::findHeader(sent.headers, "Authorization"), nullptr);
    EXPECT_EQ(sent.timeout, 1500ms);
}

}  // namespace
}  // namespace drovel::core
