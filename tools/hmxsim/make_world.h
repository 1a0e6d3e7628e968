// Worlds made by size, for stress.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "world.h"

namespace hmxsim {

// How many of each there are in all; they are spread evenly over the displays. Thread: any (a value).
struct WorldSize {
    int displays = 3;
    int displayables = 12;
    int popups = 12;
    int regions = 12;
};

// Reads "displays=N,displayables=N,popups=N,regions=N", in any order, each optional. "" on success, else what is wrong.
std::string readWorldSize(std::string_view text, WorldSize& size);

// The same size and seed make the same world.
World makeWorld(const WorldSize& size, std::uint64_t seed);

}  // namespace hmxsim
