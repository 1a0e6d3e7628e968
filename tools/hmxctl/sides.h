// The two sides of a comparison: a recording, a recording at a time, a world file of the simulator, or the running system.
#pragma once

#include <string>
#include <vector>

#include "context.h"
#include "history.h"

namespace hmxctl {

// Thread: main.
struct Side {
    std::string name;      // as it was given
    History history;       // counted by the texts that all sides share
    bool isWhole = false;  // all of a recording; else one state
    bool isWorld = false;
    std::vector<std::string> complaints{};  // what is wrong with the file, or could not be had
};

// `words`: the two, "live", FILE or FILE@TIME. What the running system is asked depends on what the other side holds. A whole
// recording against a single state counts with its end. What is wrong with the files is said on standard error. Errors: Failure.
[[nodiscard]] std::vector<Side> readSides(Context& context, const std::vector<std::string>& words, Texts& texts);

}  // namespace hmxctl
