// Requests to one service: asked, waited for, and turned into an answer or a failure that says what was tried.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "deadline.h"
#include "document.h"
#include "failure.h"
#include "inbox.h"
#include "kelo/kelo_api.h"

namespace hmxctl {

// Thread: any (a value).
struct Query {
    std::string command;
    std::string path;
    Json body;  // parameters or body; null for none
};

// Thread: any (a value).
struct Answer {
    std::uint16_t status = 0;
    kelo::Payload payload;
};

// An open request. Ends it when destroyed. Thread: main.
class Stream {
public:
    Stream() = default;
    Stream(kelo::IKeloApi& api, void* handle) : api_{&api}, handle_{handle} {}
    Stream(Stream&& other) noexcept : api_{other.api_}, handle_{std::exchange(other.handle_, nullptr)} {}
    Stream& operator=(Stream&& other) noexcept {
        std::swap(api_, other.api_);
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Stream() {
        if (handle_ != kelo::IKeloApi::UNDEFINED_REQUEST_HANDLE) api_->cancel(handle_);
    }

private:
    kelo::IKeloApi* api_ = nullptr;
    void* handle_ = nullptr;
};

// Thread: main.
class Service {
public:
    // `api` outlives it. `trace`, which may be null, hears what is asked and answered. `patient`: what fails because something is
    // away is asked again until the deadline, if that can do no harm.
    Service(kelo::IKeloApi& api, std::string path, std::string mimeType, std::ostream* trace, bool patient = false)
        : api_{api}, path_{std::move(path)}, mimeType_{std::move(mimeType)}, trace_{trace}, patient_{patient} {}

    const std::string& path() const noexcept { return path_; }
    kelo::IKeloApi& api() const noexcept { return api_; }
    const std::string& mimeType() const noexcept { return mimeType_; }

    // Asks and waits. Errors: Failure with the exit code and the reason of any status but 2xx, timeout at the deadline.
    Answer request(const Query& query, const Deadline& deadline) const;
    // The same, but a 404 is nothing.
    std::optional<Answer> find(const Query& query, const Deadline& deadline) const;
    // Asks and leaves the request open: its answers go to `inbox`, marked with `source`.
    [[nodiscard]] Stream open(const Query& query, const std::shared_ptr<Inbox>& inbox, std::size_t source) const;

    // The failure that an error answer stands for.
    [[nodiscard]] Failure failure(const Query& query, const kelo::Response& response) const;
    // The one for no answer at all.
    [[nodiscard]] Failure timedOut(const Query& query) const;

private:
    Answer requestOnce(const Query& query, const Deadline& deadline) const;
    kelo::Request makeRequest(const Query& query, bool oneShot) const;
    void trace(const Query& query) const;
    void trace(const kelo::Response& response, Deadline::Clock::time_point asked) const;

    kelo::IKeloApi& api_;
    std::string path_;
    std::string mimeType_;
    std::ostream* trace_;
    bool patient_;
};

// "retrieve /displays at /hmx".
[[nodiscard]] std::string describeQuery(const Query& query, const std::string& service);

}  // namespace hmxctl
