// Where the answers of requests wait for the one who asked.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "hmx/client/dispatcher.h"
#include "kelo/kelo_api.h"
#include "kelo/response_handler.h"

namespace hmx::client {

// Thread: any (a value).
struct Event {
    enum class Kind : unsigned char { next, error, completed };
    std::size_t source = 0;  // which of the requests
    Kind kind = Kind::next;
    kelo::Response response{};         // owns its payload
    Deadline::Clock::time_point at{};  // when it arrived
};

// Requests' handlers put events in on the runtime's threads, one reader takes them out. What a handler puts in after the inbox is
// gone is dropped. A resource. Thread: the dispatcher's.
class Inbox {
public:
    // `keptBytes`: how much of intermediate states of its requests a reader that is slow still gets to see, besides the newest
    // few.
    explicit Inbox(Dispatcher& dispatcher, std::size_t keptBytes = 0);
    ~Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    // A handler for one request, which puts what it hears in as coming from `source`. If many events wait, a value replaces the
    // one of the same request that still waits.
    [[nodiscard]] std::unique_ptr<kelo::IResponseHandler<kelo::Response>> makeHandler(std::size_t source, bool oneShot) const;

    // The next event in order of arrival; nothing when none waits.
    std::optional<Event> tryTake();
    // The next event; nothing at the deadline.
    Task<std::optional<Event>> take(std::optional<Deadline> until = {});
    // Called from `dispatch` when something has arrived; may destroy the inbox.
    void onArrival(std::function<void()> callback) { arrival_.onRaised(std::move(callback)); }

private:
    class Handler;
    struct Mail;

    Signal arrival_;
    std::shared_ptr<Mail> mail_;
};

// An open request. Ends it when destroyed. A resource. Thread: the dispatcher's.
class Stream {
public:
    Stream() = default;
    // `api` outlives it.
    Stream(kelo::IKeloApi& api, void* handle) noexcept : api_{&api}, handle_{handle} {}
    Stream(Stream&& other) noexcept : api_{other.api_}, handle_{std::exchange(other.handle_, nullptr)} {}
    Stream& operator=(Stream&& other) noexcept {
        std::swap(api_, other.api_);
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Stream() {
        if (handle_ != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) api_->cancel(handle_);
    }
    // Of a request that has ended by itself.
    void release() noexcept { handle_ = kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE; }

private:
    kelo::IKeloApi* api_ = nullptr;
    void* handle_ = kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE;
};

}  // namespace hmx::client
