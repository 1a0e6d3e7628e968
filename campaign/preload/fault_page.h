// Tells the library that makes system calls fail what to do, and receives its counts: a page of memory shared with the program's
// driver.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace campaign {

enum class Call : std::uint8_t {
    accept,
    allocate,
    bind,
    connect,
    epollControl,
    epollWait,
    makeDirectory,
    open,
    receive,
    rename,
    send,
    socket,
    unlink
};
inline constexpr std::size_t callCount = 13;

enum class Action : std::uint8_t {
    none,
    fail,     // with the rule's error; the call is not made
    shorten,  // the call transfers a single byte
    kill,     // the process, before the call
    killAfter,
    stop,  // likewise, with SIGSTOP
    stopAfter,
    reset,  // the connection: its socket is closed for good; unread data is discarded
};

// Counts the calls of one kind and acts on those numbered `from` and above (the first is 1): on every `every`-th, at most `times`
// times. All zero: only counts.
struct FaultRule {
    std::atomic<std::uint64_t> calls;
    std::atomic<std::uint64_t> from;
    std::atomic<std::uint64_t> times;
    std::atomic<std::uint64_t> every;
    std::atomic<int> error;
    std::atomic<Action> action;
};

struct FaultPage {
    FaultRule rules[callCount];
    std::atomic<std::uint64_t> hits;        // calls that were acted on
    std::atomic<std::int64_t> clockOffset;  // added to the time of day, in seconds
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "the page is shared by processes");

inline constexpr const char* faultPageVariable = "HMX_FAULT_PAGE";

}  // namespace campaign
