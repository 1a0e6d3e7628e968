// Follows sources and makes the lines of a recording of what they say.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hmx/client/client.h"
#include "hmx/recording/entry.h"

namespace hmx::recording {

// What is recorded. Thread: any (a value).
struct Plan {
    std::vector<Source> sources{};
    bool popups = false;    // of every display that /displays of /hmx shows, now or later
    bool upstream = false;  // what the display manager says, and the others about each of its displays

    // All that can be listed, and every region configuration whose id is known without asking.
    [[nodiscard]] static Plan everything();
};

// Begins with the next dispatch, and never ends by itself: a source that is lost, missing or failed is asked again, a few times
// a second at first. A resource. Thread: the dispatcher's; callbacks come from `dispatch`.
class Recorder {
public:
    struct Callbacks {  // they throw nothing
        // A line, with its time.
        std::function<void(std::chrono::nanoseconds at, std::string line)> line;
        // Something that people may want to know: a source answers (again), or does not.
        std::function<void(const Source& source, EntryKind kind, const std::string& reason)> turn;
    };

    // `client` outlives it.
    Recorder(client::Client& client, const Head& head, Plan plan, Callbacks callbacks);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder();

    // The answers of the sources of /hmx that answer at present. Good until the next dispatch.
    std::vector<const Json*> documents() const;
    // Why nothing has ever answered; nothing if something has.
    std::optional<client::Error> silence() const;

private:
    class Followers;
    std::unique_ptr<Followers> followers_;
};

}  // namespace hmx::recording
