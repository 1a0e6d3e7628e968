// Lets the managers say what those of a recording said.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hmx/recording/moment.h"
#include "hmx/recording/reader.h"
#include "managers.h"
#include "timers.h"
#include "world.h"

namespace hmxsim {

// Thread: any (a value).
struct ReplayOptions {
    std::string file{};               // "": none; "-": standard input
    std::string start{}, end{};       // times of the recording; "": when all had answered, and its end
    std::optional<double> speed = 1;  // recorded seconds per second; nothing: as fast as can be followed
    bool loops = false;
    bool isPaused = false;  // until told to run
};

// A time during which a manager was away.
struct Outage {
    ManagerId manager;
    std::chrono::nanoseconds from, to;  // its last source that returned had said something
};

// What of a recording can be replayed. Thread: any (a value).
struct ReplayPlan {
    ReplayOptions options;
    std::string file;  // to be read, more than once
    std::chrono::nanoseconds start{0}, end{0};
    std::vector<ManagerId> managers;  // that are in it
    std::vector<Outage> outages;      // in the order of their beginnings
    std::vector<std::string> complaints;
};
// Errors: hmx::client::Error: what a recording's reader reports; invalid if it does not hold what managers said.
[[nodiscard]] ReplayPlan planReplay(const ReplayOptions& options);

// Thread: the simulator's worker.
class Replay {
public:
    // What it does with the managers.
    struct Stage {
        std::function<void(ManagerId)> changed;             // the world of this manager is other than before
        std::function<void(ManagerId, bool)> setPublished;  // it has come or gone
        std::function<std::uint64_t()> changes;             // how many requests of clients have changed something
    };

    // The world, and `timers`, outlive this. The world becomes that of the start.
    Replay(ReplayPlan plan, World& world, Timers& timers, Stage stage);
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    // Whether the manager is there at the start.
    bool isThere(ManagerId manager) const;
    // Goes on, or stops for a while.
    void run(bool runs);
    // What it is at, as JSON.
    std::string status() const;

private:
    using Entry = hmx::recording::Entry;

    void begin();
    void anchor();
    std::chrono::nanoseconds nextDue() const;
    void schedule();
    void goOn();
    void setPublished(ManagerId manager, bool isPublished);
    std::optional<ManagerId> apply(const Entry& entry);

    ReplayPlan plan_;
    World& world_;
    Timers& timers_;
    Stage stage_;
    hmx::recording::Moment moment_;
    std::unique_ptr<hmx::recording::Reader> reader_;
    std::optional<Entry> next_;
    std::map<ManagerId, bool> isThere_;
    std::chrono::nanoseconds at_{0};        // recorded time that is reached
    std::chrono::nanoseconds anchorAt_{0};  // the recorded time that belongs to `anchor_`
    Timers::Time anchor_{};
    std::chrono::nanoseconds breath_{0};  // before what comes next, if the speed has no limit
    bool runs_ = false;
    bool isOver_ = false;
    std::uint64_t turn_ = 0;  // of the timer that counts; those before it do not
    std::uint64_t entries_ = 0, rounds_ = 0;
};

}  // namespace hmxsim
