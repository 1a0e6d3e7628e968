// What every driver gets: where the programs are, how much to do, and random numbers.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "random.h"

namespace campaign {

using Clock = std::chrono::steady_clock;
using hmxsim::Random;
using std::chrono::milliseconds;

inline double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Ends a driver: something that it needs is missing, or a promise is broken in such a way that it cannot continue.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Scope {
    std::uint64_t seed = 1;
    bool isCut = false;         // the short run of `make test`
    bool keep = false;          // do not delete the stages' directories
    std::string programs;       // the folder of the programs under test
    std::string faultsLibrary;  // to be preloaded into a program: see fault_page.h

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool isSanitized = true;  // memory figures are not comparable
    static constexpr double slowness = 5;      // and everything is slower
#elif defined(HMX_EMULATED)
    static constexpr bool isSanitized = false;
    static constexpr double slowness = 5;
#else
    static constexpr bool isSanitized = false;
    static constexpr double slowness = 1;
#endif

    // How often to do something: `all` in the full campaign, `cut` in the short one.
    unsigned times(unsigned all, unsigned cut) const noexcept {
        return isCut ? cut : all;
    }
};

}  // namespace campaign
