// Lines go directly to standard error, each in one write that cannot block. There is no queue, thread or lock in between. A line
// costs its formatting and two system calls, and has been written when the call returns. If standard error cannot take a line at
// once (a pipe whose reader is stuck), the line is lost; the next line that gets through gives the number of lost lines.
//
// The recent lines of each kind are counted in a table whose entries are never removed. There are about a hundred kinds, each a
// literal in the program. If there is no room for a kind, it shares an entry.
//
// A sink replaces standard error. It is called without the lock held. setSink waits until all calls of the old sink have
// returned, so what that sink refers to may then be destroyed.

#include "tracing/channel.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>

#include "tracing/client_helper.h"
#include "tracing/journal.h"
#include "tracing/output.h"
#include "tracing/replaceable.h"
#include "util/line_buffer.h"
#include "util/util.h"

namespace tracing {

namespace {

constexpr int levelOfLoss = 3;

constinit std::atomic<bool> outputEnabled{true};
constinit std::atomic<std::uint64_t> lostLines{0};

constinit Replaceable<const char*, int, const char*> sink;

// --- Lines ---

// "2025-03-01 12:34:56.789". The text of the second is cached, so most lines need no calendar computation.
void appendTime(util::LineBuffer& line) noexcept {
    struct Second {
        std::time_t second = -1;
        char text[20] = {};
    };
    static constinit thread_local Second cached;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != cached.second) {
        std::tm local{};
        localtime_r(&now.tv_sec, &local);
        std::strftime(cached.text, sizeof cached.text, "%Y-%m-%d %H:%M:%S", &local);
        cached.second = now.tv_sec;
    }
    const auto milliseconds = now.tv_nsec / 1'000'000;
    const char fraction[] = {'.', static_cast<char>('0' + milliseconds / 100), static_cast<char>('0' + milliseconds / 10 % 10),
                             static_cast<char>('0' + milliseconds % 10)};
    line.append(cached.text);
    line.append({fraction, sizeof fraction});
}

// What every line begins with. The journal records time and program itself, and sorts by priority.
void beginLine(util::LineBuffer& line, int level) noexcept {
    if (journal::isStandardError()) return journal::appendPriority(line, level);
    appendTime(line);
    line.append(" ");
    line.append(util::Util::applicationName());
    line.append(" ");
}

// --- Limits ---

// The lines of one kind in the current second.
struct LineCount {
    std::atomic<const char*> kind{nullptr};
    std::atomic<std::int64_t> second{-1};
    std::atomic<std::uint32_t> inSecond{0};
    std::atomic<std::uint64_t> held{0};
};
constinit std::array<LineCount, 256> lineCounts;

LineCount& countOf(const char* kind) noexcept {
    constexpr unsigned tries = 8;
    const std::size_t home = std::hash<const char*>{}(kind) / alignof(std::max_align_t);
    for (unsigned i = 0; i < tries; ++i) {
        LineCount& count = lineCounts[(home + i) % lineCounts.size()];
        const char* present = count.kind.load(std::memory_order_relaxed);
        if (present == nullptr && count.kind.compare_exchange_strong(present, kind, std::memory_order_relaxed)) return count;
        if (present == kind) return count;
    }
    return lineCounts[home % lineCounts.size()];
}

// Whether the line may be written; `held` is then the number of lines held back since the last one of the same kind.
bool admits(int level, const char* kind, std::uint64_t& held) noexcept {
    constexpr int ofOthers = 3;
    held = 0;
    if (level < ofOthers) return true;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    LineCount& count = countOf(kind);
    std::int64_t second = count.second.load(std::memory_order_relaxed);
    if (second != now.tv_sec && count.second.compare_exchange_strong(second, now.tv_sec, std::memory_order_relaxed)) {
        count.inSecond.store(0, std::memory_order_relaxed);
    }
    if (count.inSecond.fetch_add(1, std::memory_order_relaxed) < linesPerSecond) {
        held = count.held.exchange(0, std::memory_order_relaxed);
        return true;
    }
    count.held.fetch_add(1, std::memory_order_relaxed);
    return false;
}

void appendLost(util::LineBuffer& line, std::uint64_t lost) noexcept {
    line.append("(");
    line.appendNumber(static_cast<std::int64_t>(lost));
    line.append(" lines lost) ");
}

}  // namespace

namespace {

void writeLine(const Channel& channel, int level, std::uint64_t held, const char* text) noexcept {
    char counted[util::LineBuffer::capacity];
    if (held != 0) {
        std::snprintf(counted, sizeof counted, "(%llu such lines held back) %s", static_cast<unsigned long long>(held), text);
        text = counted;
    }
    if (!output::toSink(channel.name(), level, text)) output::toStandardError(channel.name(), level, text);
}

}  // namespace

void output::toStandardError(const char* channel, int level, const char* text) noexcept {
    if (!outputEnabled.load(std::memory_order_relaxed)) return;
    util::LineBuffer line;
    beginLine(line, level);
    line.append(channel);
    line.append(" ");
    line.appendNumber(level);
    line.append(" ");
    const std::uint64_t lost = lostLines.exchange(0, std::memory_order_relaxed);
    if (lost != 0) appendLost(line, lost);
    line.appendEscaped(text);
    if (!line.writeTo(STDERR_FILENO)) lostLines.fetch_add(lost + 1, std::memory_order_relaxed);
}

void emitLine(const Channel& channel, int level, const char* text) noexcept {
    std::uint64_t held = 0;
    if (admits(level, text, held)) writeLine(channel, level, held, text);
}

void output::setEnabled(bool enabled) noexcept {
    outputEnabled.store(enabled, std::memory_order_relaxed);
}

bool output::toSink(const char* channel, int level, const char* text) noexcept {
    return sink.call(channel, level, text);
}

void setSink(Sink function, void* context) noexcept {
    sink.replace(function, context);
    for (LineCount& count : lineCounts) {
        count.second.store(-1, std::memory_order_relaxed);
        count.held.store(0, std::memory_order_relaxed);
    }
}

void logCV(const Channel& channel, int level, const char* format, ...) noexcept {
    std::uint64_t held = 0;
    if (!channel.isEnabled(level) || !admits(level, format, held)) return;
    char text[util::LineBuffer::capacity];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    writeLine(channel, level, held, length < 0 ? format : text);
}

void Client::flush(bool wait) noexcept {
    // Lines have been written already. Only the number of lost lines since the last one that got through is left.
    const std::uint64_t lost = lostLines.exchange(0, std::memory_order_relaxed);
    if (lost == 0) return;
    constexpr int patienceMs = 100;
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    if (wait) (void)poll(&ready, 1, patienceMs);
    util::LineBuffer line;
    beginLine(line, levelOfLoss);
    appendLost(line, lost);
    if (!line.writeTo(STDERR_FILENO)) lostLines.fetch_add(lost, std::memory_order_relaxed);
}

Client& client_helper::getClient() noexcept {
    static Client client;
    return client;
}

}  // namespace tracing
