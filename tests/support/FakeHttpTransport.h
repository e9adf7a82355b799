#pragma once
// An HttpTransport for tests: answers from a script keyed by method and path, records every
// request, and can hold answers back to test cancellation and ordering.
//
// Like a real transport it never answers inside send(): answers are delivered in send order on
// the fake's own delivery thread. A request with no scripted answer gets status 404 and no body.

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "drovel/platform/HttpTransport.h"

namespace drovel::testing {

// The path of an absolute URL ("/api/v1/sites" for "http://h:1/api/v1/sites?page=1"); "/" when empty.
std::string urlPath(std::string_view url);
// The URL's query items, percent-decoded ("+" stays "+"), in order.
std::vector<std::pair<std::string, std::string>> urlQueryItems(std::string_view url);

class FakeHttpTransport : public platform::HttpTransport {
public:
    // Computes the answer for a request; none falls through to the scripted answers.
    using Handler = std::function<std::optional<platform::HttpResult>(const platform::HttpRequest&)>;

    FakeHttpTransport();
    // Requests not answered yet complete with cancelled.
    ~FakeHttpTransport() override;

    // Scripts the answer for method and path. Several answers for one method and path are given
    // out in the order scripted; the last one then repeats.
    void respond(platform::HttpMethod method, std::string path, int status, std::string body);
    void setHandler(Handler handler);

    // From now on, answers are kept back until cancelAll().
    void hold();

    // Every request sent so far, in send order.
    std::vector<platform::HttpRequest> requests() const;
    std::size_t requestCount() const;
    std::size_t cancelAllCount() const;

    void send(platform::HttpRequest request, Completion completion) override;
    void cancelAll() override;

private:
    struct Pending {
        platform::HttpResult result;
        Completion completion;
    };
    platform::HttpResult answerFor(const platform::HttpRequest& request);
    void deliverLoop();

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::map<std::pair<platform::HttpMethod, std::string>, std::deque<platform::HttpResult>> script_;
    Handler handler_;
    std::vector<platform::HttpRequest> requests_;
    std::deque<Pending> ready_;
    std::vector<Pending> held_;
    bool holding_ = false;
    bool stopping_ = false;
    std::size_t cancelAllCount_ = 0;
    std::thread deliverer_;
};

}  // namespace drovel::testing
