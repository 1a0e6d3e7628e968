// A plan is an array of steps, or an object {"seed": N, "steps": […]}. A step is an object with one verb:
//
//     {"at_ms": 500, "set": "displaymanager/displays/Driver_Display", "value": {"updateRate": 30}}
//     {"at_ms": 800, "popup": "Driver_Display/Incoming_Call", "value": {"requested": true}}
//     {"at_ms": 900, "fault": "popupmanager", "value": {"delay_ms": 50, "count": 3}}
//     {"at_ms": 950, "insert" | "update" | "delete": "<path of the control service>", "value": {…}}
//
// It may also have: "jitter_ms", up to which a random time is added; "every_ms" and "times", which repeat the step; "chance",
// from 0 to 1, the probability that it happens; and, instead of "value", "values", one of which is chosen at random. Each
// repetition makes its own random choices.
#include "plan.h"

#include <algorithm>
#include <array>

#include "faults.h"
#include "hmx/displaymanager/display.h"
#include "hmx/displaymanager/display_layers.h"
#include "hmx/displaymanager/displayable.h"
#include "hmx/popups/popup.h"
#include "input_display.h"
#include "random.h"

namespace hmxsim {

namespace {

namespace dm = kelo::hmx::displaymanager;

constexpr std::size_t mostSteps = 100'000;
constexpr std::int64_t mostMilliseconds = 7LL * 24 * 3600 * 1000;

struct Verb {
    std::string_view name;
    std::string_view command;
    std::string_view prefix;  // of the path
};
constexpr std::array<Verb, 6> verbs{{{"set", "update", "/state/"},
                                     {"popup", "update", "/popups/"},
                                     {"fault", "update", "/faults/"},
                                     {"insert", "insert", ""},
                                     {"update", "update", ""},
                                     {"delete", "delete", ""}}};

// What the values of a place are. Thread: any (a constant).
struct Place {
    std::string_view prefix;  // of the paths
    const kelo::record::Description& (*record)();
};
constexpr std::array<Place, 6> places{{{"/faults/", kelo::record::describe<FaultRule>},
                                       {"/popups/", kelo::record::describe<kelo::hmx::popups::Popup>},
                                       {"/state/displaymanager/displays", kelo::record::describe<dm::Display>},
                                       {"/state/displaymanager/displayables", kelo::record::describe<dm::Displayable>},
                                       {"/state/displaymanager/layerConfig", kelo::record::describe<dm::DisplayLayers>},
                                       {"/state/inputmanager/displays", kelo::record::describe<InputDisplay>}}};

// Reads the members of one step. Thread: one at a time; refers to all it is given.
class StepReader {
public:
    StepReader(const Document& document, const Node& step, std::string path)
        : document_{document}, step_{step}, path_{std::move(path)} {
        document.expectKeys(step,
                            {"at_ms", "jitter_ms", "every_ms", "times", "chance", "value", "values", "set", "popup", "fault",
                             "insert", "update", "delete"},
                            path_);
    }

    std::int64_t integer(std::string_view key, std::int64_t otherwise, std::int64_t most) const {
        const Node* const node = step_.find(key);
        if (node == nullptr) return otherwise;
        document_.expect(*node, Node::Type::integer, memberPath(path_, key));
        if (node->integer < 0 || node->integer > most) {
            document_.refuse(*node, memberPath(path_, key), "not from 0 to " + std::to_string(most));
        }
        return node->integer;
    }
    double chance() const {
        const Node* const node = step_.find("chance");
        if (node == nullptr) return 1;
        const bool isNumber = node->type == Node::Type::integer || node->type == Node::Type::floating;
        if (!isNumber || node->floating < 0 || node->floating > 1) {
            document_.refuse(*node, memberPath(path_, "chance"), "not a number from 0 to 1");
        }
        return node->floating;
    }
    // Command and path.
    PlannedStep request() const {
        const Node* found = nullptr;
        PlannedStep step{};
        for (const Verb& verb : verbs) {
            const Node* const target = step_.find(verb.name);
            if (target == nullptr) continue;
            if (found != nullptr) document_.refuse(*target, path_, "a step has one verb, this one has two");
            found = target;
            document_.expect(*target, Node::Type::string, memberPath(path_, verb.name));
            step.command = verb.command;
            step.path = std::string{verb.prefix} + target->text;
            if (!step.path.starts_with('/')) document_.refuse(*target, memberPath(path_, verb.name), "a path begins with \"/\"");
        }
        if (found == nullptr) document_.refuse(step_, path_, "a step needs one of set, popup, fault, insert, update, delete");
        return step;
    }
    // The bodies of which one is drawn: none, one, or several. What cannot be right is refused now, not when its time has come.
    std::vector<std::string> bodies(const PlannedStep& request) const {
        std::vector<std::string> bodies;
        const auto* const known =
            std::find_if(places.begin(), places.end(), [&](const Place& each) { return request.path.starts_with(each.prefix); });
        const auto add = [&](const Node& node, const std::string& path) {
            document_.expect(node, Node::Type::object, path);
            if (known != places.end()) document_.check(node, known->record(), path, Document::Extent::patch);
            bodies.emplace_back(document_.textOf(node));
        };
        if (const Node* const value = step_.find("value")) add(*value, memberPath(path_, "value"));
        if (const Node* const values = step_.find("values")) {
            const std::string place = memberPath(path_, "values");
            document_.expect(*values, Node::Type::array, place);
            if (!bodies.empty()) document_.refuse(*values, place, "beside \"value\"");
            if (values->children.empty()) document_.refuse(*values, place, "empty");
            for (std::size_t i = 0; i < values->children.size(); ++i) add(values->children[i], elementPath(place, i));
        }
        return bodies;
    }

private:
    const Document& document_;
    const Node& step_;
    const std::string path_;
};

void readStep(const Document& document, const Node& node, const std::string& path, Random& random, Plan& plan) {
    const StepReader reader{document, node, path};
    const std::int64_t at = reader.integer("at_ms", 0, mostMilliseconds);
    const auto jitter = static_cast<std::uint64_t>(reader.integer("jitter_ms", 0, mostMilliseconds));
    const std::int64_t every = reader.integer("every_ms", 0, mostMilliseconds);
    const std::int64_t times = reader.integer("times", 1, static_cast<std::int64_t>(mostSteps));
    const double chance = reader.chance();
    const PlannedStep request = reader.request();
    const std::vector<std::string> bodies = reader.bodies(request);
    for (std::int64_t i = 0; i < times; ++i) {
        const auto late = static_cast<std::int64_t>(random.below(jitter + 1));
        const bool happens = random.chance(chance);
        const std::size_t choice = random.below(bodies.size());
        if (!happens) continue;
        if (plan.size() == mostSteps) document.refuse(node, path, "more than 100000 steps");
        PlannedStep& step = plan.emplace_back(request);
        step.at = std::chrono::milliseconds{at + i * every + late};
        if (!bodies.empty()) step.body = bodies[choice];
    }
}

}  // namespace

Plan readPlan(const Document& document, std::uint64_t seed, std::optional<std::uint64_t> instead) {
    const Node* steps = &document.root();
    std::string path;
    if (steps->type == Node::Type::object) {
        document.expectKeys(*steps, {"seed", "steps"}, "");
        if (const Node* const own = steps->find("seed")) {
            document.expect(*own, Node::Type::integer, "seed");
            seed = static_cast<std::uint64_t>(own->integer);
        }
        path = "steps";
        steps = steps->find("steps");
        if (steps == nullptr) document.refuse(document.root(), "", "\"steps\" is missing");
    }
    document.expect(*steps, Node::Type::array, path);
    Plan plan;
    Random random{instead.value_or(seed)};
    for (std::size_t i = 0; i < steps->children.size(); ++i)
        readStep(document, steps->children[i], elementPath(path, i), random, plan);
    std::stable_sort(plan.begin(), plan.end(), [](const PlannedStep& a, const PlannedStep& b) { return a.at < b.at; });
    return plan;
}

void PlanRunner::start(Plan plan) {
    if (plan.empty()) return;
    const std::uint64_t number = ++started_;
    wait(number, running_.emplace(number, Running{std::move(plan), timers_.now()}).first->second);
}

std::size_t PlanRunner::pending() const noexcept {
    std::size_t steps = 0;
    for (const auto& [number, running] : running_) steps += running.plan.size() - running.next;
    return steps;
}

void PlanRunner::wait(std::uint64_t number, const Running& running) {
    timers_.at(running.start + running.plan[running.next].at, [this, number] { runDue(number); });
}

// A step may cancel all plans, including this one, so the plan is looked up again after each step.
void PlanRunner::runDue(std::uint64_t number) {
    for (;;) {
        const auto entry = running_.find(number);
        if (entry == running_.end()) return;
        Running& running = entry->second;
        if (running.next == running.plan.size()) {
            running_.erase(entry);
            return;
        }
        if (running.start + running.plan[running.next].at > timers_.now()) return wait(number, running);
        const PlannedStep step = std::move(running.plan[running.next++]);
        run_(step);
    }
}

}  // namespace hmxsim
