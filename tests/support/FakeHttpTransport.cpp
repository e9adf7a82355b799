#include "support/FakeHttpTransport.h"
#include "support/Locked.h"

namespace drovel::testing {

using platform::HttpMethod;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::HttpResult;
using platform::TransportError;
using platform::TransportErrorKind;

namespace {

std::string_view afterAuthority(std::string_view url) {
    auto scheme = url.find("://");
    if (scheme == std::string_view::npos) return url;
    std::string_view rest = url.substr(scheme + 3);
    auto slash = rest.find_first_of("/?#");
    return slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

HttpResult cancelled() { return TransportError{TransportErrorKind::cancelled, "cancelled"}; }

}  // namespace

std::string urlPath(std::string_view url) {
    std::string_view rest = afterAuthority(url);
    std::string_view path = rest.substr(0, rest.find_first_of("?#"));
    return path.empty() ? "/" : std::string(path);
}

std::vector<std::pair<std::string, std::string>> urlQueryItems(std::string_view url) {
    std::vector<std::pair<std::string, std::string>> items;
    auto question = url.find('?');
    if (question == std::string_view::npos) return items;
    std::string_view query = url.substr(question + 1);
    query = query.substr(0, query.find('#'));
    while (!query.empty()) {
        auto amp = query.find('&');
        std::string_view item = query.substr(0, amp);
        auto equals = item.find('=');
        items.emplace_back(percentDecoded(item.substr(0, equals)),
                           equals == std::string_view::npos ? std::string() : percentDecoded(item.substr(equals + 1)));
        if (amp == std::string_view::npos) break;
        query.remove_prefix(amp + 1);
    }
    return items;
}

FakeHttpTransport::FakeHttpTransport() : deliverer_([this] { deliverLoop(); }) {}

FakeHttpTransport::~FakeHttpTransport() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    deliverer_.join();
}

void FakeHttpTransport::respond(HttpMethod method, std::string path, int status, std::string body) {
    std::lock_guard lock(mutex_);
    script_[{method, std::move(path)}].push_back(HttpResponse{status, {}, std::move(body)});
}

void FakeHttpTransport::setHandler(Handler handler) { lockedAssign(mutex_, handler_, std::move(handler)); }

void FakeHttpTransport::hold() { lockedAssign(mutex_, holding_, true); }

std::vector<HttpRequest> FakeHttpTransport::requests() const { return lockedCopy(mutex_, requests_); }

std::size_t FakeHttpTransport::requestCount() const { return requests().size(); }

std::size_t FakeHttpTransport::cancelAllCount() const { return lockedCopy(mutex_, cancelAllCount_); }

HttpResult FakeHttpTransport::answerFor(const HttpRequest& request) {
    if (handler_) {
        if (auto answer = handler_(request)) return std::move(*answer);
    }
    auto found = script_.find({request.method, urlPath(request.url)});
    if (found == script_.end() || found->second.empty()) return HttpResponse{404, {}, {}};
    auto& answers = found->second;
    HttpResult answer = answers.front();
    if (answers.size() > 1) answers.pop_front();
    return answer;
}

void FakeHttpTransport::send(HttpRequest request, Completion completion) {
    {
        std::lock_guard lock(mutex_);
        Pending pending{answerFor(request), std::move(completion)};
        requests_.push_back(std::move(request));
        if (holding_) {
            held_.push_back(std::move(pending));
        } else {
            ready_.push_back(std::move(pending));
        }
    }
    changed_.notify_all();
}

void FakeHttpTransport::cancelAll() {
    {
        std::lock_guard lock(mutex_);
        ++cancelAllCount_;
        for (auto& pending : held_) ready_.push_back(std::move(pending));
        held_.clear();
        for (auto& pending : ready_) pending.result = cancelled();
    }
    changed_.notify_all();
}

void FakeHttpTransport::deliverLoop() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || !ready_.empty(); });
        if (ready_.empty() && stopping_) break;
        if (stopping_) {
            for (auto& pending : ready_) pending.result = cancelled();
        }
        Pending pending = std::move(ready_.front());
        ready_.pop_front();
        lock.unlock();
        pending.completion(std::move(pending.result));
        lock.lock();
    }
    // Answers still held when the fake goes away complete as cancelled, like a real transport's.
    std::vector<Pending> held = std::move(held_);
    held_.clear();
    lock.unlock();
    for (auto& pending : held) pending.completion(cancelled());
}

}  // namespace drovel::testing
