// Logs numbered lines at a steady rate, then says what that cost and waits for its standard input to end.
// Usage: chatter LINES PER_SECOND

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "tracing/channel.h"
#include "util/util.h"

namespace {

using Clock = std::chrono::steady_clock;

const tracing::Channel channel{"CHATTER"};

long residentKiB() {
    long pages = 0;
    std::ifstream{"/proc/self/statm"} >> pages >> pages;
    return pages * (::sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) return 2;
    const int lines = std::atoi(argv[1]);
    const auto pause = std::chrono::nanoseconds{1'000'000'000} / std::atoi(argv[2]);
    const auto guard = util::Util::init("chatter", true, false, false, false);
    long halfway = 0;
    Clock::duration slowest{};
    auto next = Clock::now();
    for (int number = 1; number <= lines; ++number) {
        std::this_thread::sleep_until(next += pause);
        const auto begin = Clock::now();
        tracing::logCV(channel, 2, "line %i of a flood that nobody reads but the test, which counts to %i", number, lines);
        slowest = std::max(slowest, Clock::now() - begin);
        if (number == lines / 2) halfway = residentKiB();
    }
    const auto slowestMs = std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count();
    std::printf(R"({"slowest_ms": %li, "grown_kib": %li})"
                "\n",
                static_cast<long>(slowestMs), residentKiB() - halfway);
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
