// The services of a recording, found and asked like running ones.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "hmx/client/domain.h"

namespace hmxctl {

// Thread: any (a value).
struct PlaybackOptions {
    std::string file{};  // "-": standard input
    std::string at{};    // a time of the recording; "": its end or, to play, its start
    bool plays = false;
    std::optional<double> speed{};  // recorded seconds per second; nothing: as fast as it can be followed
};

// Thread: main.
class RecordedDomain : public hmx::client::Domain {
public:
    // Whether it has been played to its end, and whoever follows it has been told all.
    virtual bool isOver() const = 0;
    // The recorder's clock on the wall at the time that is shown: "12:34:56.789".
    virtual std::string clock() const = 0;
    // What is wrong with the file, a line for each.
    virtual std::vector<std::string> complaints() const = 0;
};

// `dispatcher` outlives it. Errors: Error, as of a recording's Reader, and invalid for a time that is none.
[[nodiscard]] std::unique_ptr<RecordedDomain> openRecording(hmx::client::Dispatcher& dispatcher, const PlaybackOptions& options);

}  // namespace hmxctl
