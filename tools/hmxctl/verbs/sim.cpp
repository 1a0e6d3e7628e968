// `sim`: the simulator's control service, on the command line. It speaks only JSON.

#include <algorithm>
#include <cctype>

#include "assignments.h"
#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"
#include "kelo/path.h"
#include "parameters.h"
#include "render.h"
#include "simulation.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

constexpr std::string_view controlService = "/hmxsim";

// A collection and what of it, "" for the whole. Thread: any (a value).
struct SimTarget {
    const Collection* collection = nullptr;
    std::string element;
};

// COLLECTION[/ELEMENT]; a collection may also be given as in plans and world files: "displaymanager/layerConfig/Driver_Display".
SimTarget simTarget(std::string_view word) {
    constexpr std::string_view root = "/state/";
    std::vector<std::string> names;
    for (const Collection& each : collections()) {
        const bool inState = each.path.starts_with(root);
        for (const std::string_view name : {each.name, inState ? each.path.substr(root.size()) : each.name}) {
            if (word == name) return {&each, ""};
            if (word.starts_with(name) && word[name.size()] == '/') return {&each, std::string{word.substr(name.size() + 1)}};
        }
        names.emplace_back(each.name);
    }
    const std::string_view typed = word.substr(0, word.find('/'));
    const std::string meant = didYouMean(typed, names);
    throw usageError("sim: no collection '" + std::string{typed} + "'", meant.empty() ? "collections: " + joined(names) : meant);
}

// The path of an element, whose name takes the place of the pattern's star: NAME, or DISPLAY/NAME for two of them.
std::string pathOf(std::string_view pattern, std::string_view word, const std::string& form) {
    std::string path;
    const auto stars = std::count(pattern.begin(), pattern.end(), '*');
    const std::size_t slash = word.find('/');
    const bool complete = stars == 2 ? slash != std::string_view::npos && slash > 0 && slash + 1 < word.size() : !word.empty();
    if (!complete) throw usageError("sim: '" + std::string{word} + "' names no element", form);
    if (stars == 1) return kelo::Path::replacePattern(pattern, {word});
    return kelo::Path::replacePattern(pattern, {word.substr(0, slash), word.substr(slash + 1)});
}

// Keys that no record types: numbers, true, false and null are what they look like.
Json byLook(Json body) {
    for (Json& value : body) {
        if (!value.is_string()) continue;
        const std::string& text = value.get_ref<const std::string&>();
        const bool number = !text.empty() && (text.front() == '-' || std::isdigit(static_cast<unsigned char>(text.front())) != 0);
        if (!number && text != "true" && text != "false" && text != "null") continue;
        Json look = Json::parse(text, nullptr, false);
        if (look.is_primitive() && !look.is_discarded()) value = std::move(look);
    }
    return body;
}

// Thread: main.
class Simulation {
public:
    explicit Simulation(Context& context) : context_{context}, words_{context.arguments.words} {}

    void set(const SimTarget& target) {
        const std::string form = target.collection->isPerDisplay() ? "for example sim popup Driver_Display/Phone requested=true"
                                                                   : "for example sim set displays/Driver_Display terminal=2";
        ask("update", pathOf(target.collection->elementPath, target.element, form), body(*target.collection));
    }

    void add(const SimTarget& target) {
        const Collection& collection = *target.collection;
        if (!collection.isPerDisplay() && !target.element.empty()) {
            throw usageError("sim add: the element's name is one of its keys", "name=" + target.element);
        }
        const std::string form = "for example sim add popups/Driver_Display name=Phone priorityInlayer=3";
        ask("insert", collection.isPerDisplay() ? pathOf(collection.path, target.element, form) : std::string{collection.path},
            body(collection));
    }

    void remove(const SimTarget& target) {
        const std::string form = "for example sim remove popups/Driver_Display/Phone";
        ask("delete", pathOf(target.collection->elementPath, target.element, form), nullptr);
    }

    void fault() {
        if (words_.size() == 1) return ask("retrieve", "/faults", nullptr);
        if (words_.size() == 2 && context_.arguments.file.empty()) return showFault(words_[1]);
        const std::string path = kelo::Path::replacePattern("/faults/*", {words_[1]});
        if (words_.size() == 3 && words_[2] == "clear") return ask("delete", path, nullptr);
        const Json rule = byLook(requestBody(context_, 2, {}));
        if (context_.arguments.validate) checkFault(rule);
        ask("update", path, rule);
    }

    void plan() {
        if (words_.size() == 2 && words_[1] == "clear") return ask("delete", "/plan", nullptr);
        if (words_.size() > 1) throw usageError("sim plan: what is '" + words_[1] + "'?", "sim plan [-f FILE | clear]");
        const Json steps = requestBody(context_, 1, {});
        ask(steps.is_null() ? "retrieve" : "insert", "/plan", steps);
    }

    void requests() {
        const bool clear = words_.size() == 2 && words_[1] == "clear";
        if (words_.size() > 1 && !clear) throw usageError("sim requests: what is '" + words_[1] + "'?", "sim requests [clear]");
        ask(clear ? "delete" : "retrieve", "/requests", nullptr);
    }

    void replay() {
        if (words_.size() == 1) return ask("retrieve", "/replay", nullptr);
        if (words_.size() > 2 || (words_[1] != "run" && words_[1] != "pause")) {
            throw usageError("sim replay: what is '" + words_.back() + "'?", "sim replay [run | pause]");
        }
        ask("update", "/replay", words_[1] == "run");
    }

    // For a file, unless asked for otherwise.
    void world() {
        const Answer world = answer("retrieve", "/world", nullptr);
        if (context_.arguments.formatGiven) return printAnswer(context_, world);
        context_.out.line(decode(world.payload).dump(2, ' ', false, Json::error_handler_t::replace));
    }

private:
    static void checkFault(const Json& rule) {
        const std::vector<std::string> known(faultKeys.begin(), faultKeys.end());
        for (const auto& [key, value] : rule.items()) {
            if (std::find(known.begin(), known.end(), key) != known.end()) continue;
            const std::string meant = didYouMean(key, known);
            throw usageError("sim fault: no key '" + key + "'", meant.empty() ? "keys: " + joined(known) : meant);
        }
    }

    void showFault(const std::string& service) {
        const Json faults = decode(answer("retrieve", "/faults", nullptr).payload);
        if (!faults.contains(service)) {
            std::vector<std::string> names;
            for (const auto& [name, rule] : faults.items()) names.push_back(name);
            throw Failure{ExitCode::notFound, "there is no service '" + service + "'", "services: " + joined(names)};
        }
        printDocument(context_, faults[service]);
    }

    Json body(const Collection& collection) const {
        const Members members = collection.record == nullptr ? Members{} : collection.record().members;
        Json body = requestBody(context_, 2, members);
        if (body.is_null()) throw usageError("sim " + words_[0] + ": no KEY=VALUE and no -f FILE given");
        if (collection.record == nullptr) return byLook(std::move(body));
        if (context_.arguments.validate) {
            const Description& record = collection.record();
            if (words_[0] == "add") {
                checkBody(body, record, context_.action());
            } else {
                checkPatch(body, record, context_.action());
            }
        }
        return body;
    }

    Answer answer(const char* command, const std::string& path, const Json& body) {
        RequestStyle style = context_.client.options().style;
        style.mimeType = "application/json";
        const Service control = context_.service(controlService, std::move(style));
        return context_.wait(control.request({command, path, body}, context_.deadline));
    }

    void ask(const char* command, const std::string& path, const Json& body) {
        printAnswer(context_, answer(command, path, body));
    }

    Context& context_;
    const std::vector<std::string>& words_;
};

}  // namespace

ExitCode runSim(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    const std::string& action = words.front();
    if (std::find(simActions.begin(), simActions.end(), action) == simActions.end()) {
        const std::vector<std::string> known(simActions.begin(), simActions.end());
        const std::string meant = didYouMean(action, known);
        throw usageError("sim: no action '" + action + "'", meant.empty() ? "actions: " + joined(known) : meant);
    }
    const bool needsTarget = action == "set" || action == "add" || action == "remove" || action == "popup";
    if ((action == "world" && words.size() > 1) || (action == "remove" && words.size() > 2)) {
        throw usageError("sim " + action + ": what is '" + words.back() + "'?", "`hmxctl help sim` shows the forms");
    }
    if (needsTarget && words.size() < 2) throw usageError("sim " + action + ": of what?", "`hmxctl help sim` shows the forms");
    const SimTarget target = needsTarget ? simTarget((action == "popup" ? "popups/" : "") + words[1]) : SimTarget{};

    Simulation simulation{context};
    if (action == "set" || action == "popup") simulation.set(target);
    if (action == "add") simulation.add(target);
    if (action == "remove") simulation.remove(target);
    if (action == "fault") simulation.fault();
    if (action == "plan") simulation.plan();
    if (action == "world") simulation.world();
    if (action == "requests") simulation.requests();
    if (action == "replay") simulation.replay();
    return ExitCode::ok;
}

}  // namespace hmxctl
