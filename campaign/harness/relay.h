// A service's socket that passes every byte on to another socket, until it is told to cut a connection at some byte.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "harness/scope.h"

namespace campaign {

// Thread: any; bytes are passed on by a thread of its own.
class Relay {
public:
    enum class Way : std::uint8_t { toProvider, toClient };

    // Listens at `path` and connects each client to `target`.
    Relay(const std::string& path, std::string target);
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay();

    // Passes `bytes` more in that direction, on the existing connections or from the start of the next one, and then ends them.
    void cutAfter(Way way, std::uint64_t bytes);
    void cutNextAfter(Way way, std::uint64_t bytes);
    // On the existing connections, flips the bits in `mask` of the byte that comes after `bytes` more in that direction. A mask
    // of 0 cancels this.
    void damage(Way way, std::uint64_t bytes, std::uint8_t mask);
    // Ends the existing connections.
    void drop();
    // The number of bytes passed in that direction, on all connections.
    std::uint64_t passed(Way way) const noexcept { return passed_[static_cast<std::size_t>(way)]; }
    // The number of connections ended so far, by us or by either end.
    unsigned ended() const noexcept { return ended_; }

private:
    static constexpr std::uint64_t noEnd = ~std::uint64_t{0};

    struct Link {
        int ends[2];  // the client's, the provider's
        std::uint64_t left[2] = {noEnd, noEnd};
        std::uint64_t leftToDamage[2] = {noEnd, noEnd};
        std::uint8_t mask = 0;
        bool over = false;
    };

    void run();
    void accept();
    void pass(Link& link, Way way);
    void wake() const;

    const std::string target_;
    int listener_ = -1;
    int wake_ = -1;
    std::atomic<std::uint64_t> passed_[2] = {0, 0};
    std::atomic<unsigned> ended_{0};
    std::mutex mutex_;
    std::vector<Link> links_;                       // guarded by mutex_
    std::uint64_t leftOfNext_[2] = {noEnd, noEnd};  // likewise
    bool isOver_ = false;                           // likewise
    std::thread thread_;
};

}  // namespace campaign
