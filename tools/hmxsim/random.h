// Random numbers that are the same on every machine for the same seed.
#pragma once

#include <cstdint>
#include <random>

namespace hmxsim {

// The generator's sequence is fixed by the language; the library's distributions are not, so they are not used.
// Thread: one at a time (a value).
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_{seed} {}

    // From 0 to `count` - 1; 0 when `count` is 0.
    std::uint64_t below(std::uint64_t count) { return count == 0 ? 0 : engine_() % count; }
    // Whether something happens that has this probability.
    bool chance(double probability) { return static_cast<double>(engine_() >> 11U) * 0x1p-53 < probability; }

private:
    std::mt19937_64 engine_;
};

}  // namespace hmxsim
