// Plans: changes and faults at set times.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "document.h"
#include "timers.h"

namespace hmxsim {

// One request to the control service. Thread: any (a value).
struct PlannedStep {
    std::chrono::milliseconds at;  // from the plan's start
    std::string command;
    std::string path;
    std::string body;  // JSON, or empty
};

// In the order of time. Thread: any (a value).
using Plan = std::vector<PlannedStep>;

// The steps that the document describes, which are all drawn here, so that the same document and seed are the same plan. `seed`
// is used where the document has none, `instead`, where it is given, in the place of either. Throws DocumentError.
Plan readPlan(const Document& document, std::uint64_t seed, std::optional<std::uint64_t> instead = {});

// Thread: the simulator's worker.
class PlanRunner {
public:
    using Run = std::function<void(const PlannedStep&)>;

    // `timers` outlives this, and fires no more once this is gone. `run` is called for each step when its time has come.
    PlanRunner(Timers& timers, Run run) : timers_{timers}, run_{std::move(run)} {}

    // Starts the plan now, beside those that run already.
    void start(Plan plan);
    void cancelAll() { running_.clear(); }
    // Steps whose time has not come.
    std::size_t pending() const noexcept;

private:
    struct Running {
        Plan plan;
        Timers::Time start;
        std::size_t next = 0;
    };
    void wait(std::uint64_t number, const Running& running);
    void runDue(std::uint64_t number);

    Timers& timers_;
    Run run_;
    std::map<std::uint64_t, Running> running_;
    std::uint64_t started_ = 0;
};

}  // namespace hmxsim
