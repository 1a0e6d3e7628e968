// Prints popups as they change, from a loop that has other things to do: here, to end when standard input does.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>

#include "hmx/client/subscription.h"

namespace {

using namespace hmx::client;

void print(const Update& update) {
    if (update.kind == Update::Kind::snapshot) std::cout << "snapshot of " << update.elements.size() << '\n';
    for (const ElementChange& change : update.changes) {
        constexpr std::array names{"added", "changed", "removed"};
        std::cout << names.at(static_cast<std::size_t>(change.kind)) << ' ' << compact(change.element) << '\n';
    }
    if (update.error && !update.isRepeated) std::cout << "lost: " << update.error->what() << '\n';
    std::cout << std::flush;
}

// For poll: until something is due, rounded up; -1 if nothing is.
int millisecondsUntil(const std::optional<Dispatcher::Clock::time_point>& timer) {
    if (!timer) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*timer - Dispatcher::Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

}  // namespace

int main() try {
    Client hmx;
    Subscription popups{hmx, {.target = parseTarget("popups")}};
    for (;;) {
        std::array<pollfd, 2> waits{pollfd{hmx.descriptor(), POLLIN, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
        ::poll(waits.data(), waits.size(), millisecondsUntil(hmx.nextTimer()));
        std::array<char, 512> input{};
        if (waits[1].revents != 0 && ::read(STDIN_FILENO, input.data(), input.size()) <= 0) return 0;
        hmx.dispatch();
        while (const auto update = popups.tryNext()) {
            print(*update);
            if (update->kind == Update::Kind::failed) return 1;
        }
    }
} catch (const Error& error) {
    std::cerr << "watch_popups: " << error.what() << '\n';
    return 1;
}
