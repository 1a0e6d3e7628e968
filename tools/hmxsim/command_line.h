// The simulator's command line.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "managers.h"
#include "replay.h"

namespace hmxsim {

// Draws begin with it where no other is named.
inline constexpr std::uint64_t usualSeed = 1;

// What was asked for. Thread: any (a value).
struct CommandLine {
    std::string world;         // a file or a sample's name; "" for the standard sample
    std::string mimeType;      // offered first; "" for the usual order
    std::string recordFile;    // "" for none
    std::string scenarioFile;  // "" for none
    ReplayOptions replay;
    std::string worldSize;  // print a world of this size instead of serving; "" to serve
    std::optional<std::uint64_t> seed;
    std::vector<ManagerId> managers;  // to simulate; all, if none was named
};

// Fills `line` from the arguments. A value when the process is to end at once with that exit status (0: help or version was
// printed to `out`; 2: wrong usage, said on `err`).
std::optional<int> readCommandLine(int argc, const char* const* argv, CommandLine& line, std::ostream& out, std::ostream& err);

}  // namespace hmxsim
