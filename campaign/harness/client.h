// A client that writes and reads raw bytes and keeps a record: what it asked, what the answers were, and whether anything ended
// twice.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "harness/scope.h"
#include "harness/wire.h"

namespace campaign {

// One request and its answers. Thread: any (a value).
struct Asked {
    Clock::time_point sentAt;
    Clock::time_point endedAt;
    bool oneShot = true;
    bool cancelled = false;
    unsigned values = 0;
    unsigned ends = 0;
    int status = 0;      // of the last answer; 0 if there is none or it was a completion
    std::string answer;  // the last payload

    bool isOver() const noexcept { return ends > 0; }
    double took() const { return std::chrono::duration<double, std::milli>(endedAt - sentAt).count(); }
};

// Thread: one at a time.
class Client {
public:
    // Connects and exchanges hellos; throws Failure if there is no answer.
    explicit Client(const std::string& socket, std::string_view service = "/hmx");
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(); }

    int fd() const noexcept { return fd_; }
    void close();

    // Sends a request and returns its id. If the service has no room for it, waits and reads answers meanwhile.
    std::uint64_t ask(std::string_view command, std::string_view path, bool oneShot = true, std::string_view payload = {});
    void cancel(std::uint64_t id);
    // Sends any bytes; false if the connection is over.
    bool send(const Bytes& bytes);

    // Reads what arrives until `done`, at most for `patience`. Returns whether it was done.
    bool serveUntil(const std::function<bool()>& done, milliseconds patience = milliseconds{10'000});
    // Asks and waits until the request has ended in any way.
    const Asked& call(std::string_view command, std::string_view path, std::string_view payload = {},
                      milliseconds patience = milliseconds{15'000});
    // The same; throws Failure for anything but an answer with status 2xx.
    const std::string& get(std::string_view path, std::string_view payload = {});

    const Asked& at(std::uint64_t id) const { return asked_.at(id); }
    const std::unordered_map<std::uint64_t, Asked>& all() const noexcept { return asked_; }
    // Forgets requests that are over.
    void forgetEnded();

    std::size_t open() const noexcept { return open_; }              // neither over nor cancelled
    std::size_t endedTwice() const noexcept { return endedTwice_; }  // answers to requests that were over
    std::size_t foreign() const noexcept { return foreign_; }        // answers to requests that were never made
    bool isLost() const noexcept { return lost_; }

    // Called for every answer, after it has been recorded.
    std::function<void(std::uint64_t, const Asked&)> onAnswer;
    // Whether the payloads of answers are kept.
    bool keepsAnswers = true;

private:
    void take();

    int fd_;
    FrameReader reader_;
    std::uint64_t last_ = 0;
    std::unordered_map<std::uint64_t, Asked> asked_;
    std::uint64_t forgotten_ = 0;  // ids up to this one may be unknown by now
    std::size_t open_ = 0;
    std::size_t endedTwice_ = 0;
    std::size_t foreign_ = 0;
    bool greeted_ = false;
    bool lost_ = false;
};

}  // namespace campaign
