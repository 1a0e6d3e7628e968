// The thresholds of all channels, listed and changed while the process runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tracing {

// Thread: any (a value).
struct ChannelLevel {
    std::string channel;
    int threshold;
    std::string id;  // four characters that stand for the channel where a log system has no room for its name
};

// Every channel of the process once, sorted by name. Thread: any.
[[nodiscard]] std::vector<ChannelLevel> channelLevels();

// Sets the threshold of the channel with that name; "*" means every channel. False if there is none. Thread: any.
bool setThreshold(std::string_view channel, int threshold);

// Sets all thresholds anew: first what the file says, then what KELO_TRACE says. The file is $KELO_TRACE_FILE, else
// /etc/kelo/trace, which need not exist. It has the form of KELO_TRACE; line ends count as commas, and what follows a '#' is
// ignored. What is wrong in the file is logged, and the rest of it takes effect. Thread: any.
void reloadThresholds();

}  // namespace tracing
