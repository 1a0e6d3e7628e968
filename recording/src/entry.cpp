// One line is one JSON object, written in one order of members so that readers can find an entry's time and source without
// parsing its document, and read in any. Texts are UTF-8; what is not is replaced.
//
// Lines are read with the platform's pull reader, member by member; only documents become trees. What it does not read is read
// again with a parser that is slower and takes a little more: a line is deeper than its document, which may be as deep as a
// service may send it. It also says what is wrong. This parser has no limit of its own for the depth, but what is done with its
// tree afterwards is recursive, so lines are looked through before.

#include "hmx/recording/entry.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

#include "hmx/client/json_text.h"

namespace hmx::recording {
namespace {

using client::compact;
using client::Error;
using client::JsonText;
using client::member;
using client::text;

constexpr std::size_t deepest = 80;

constexpr std::array<std::string_view, 6> kinds{"state", "change", "lost", "missing", "ended", "failed"};
constexpr std::array<std::string_view, 3> stepKinds{"set", "insert", "erase"};

Error unreadable(const std::string& what) {
    return Error{Error::Kind::unreadable, what};
}

bool isTooDeep(std::string_view line) noexcept {
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (inString) {
            if (c == '\\') ++i;
            if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            if (++depth > deepest) return true;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return false;
}

Json objectIn(std::string_view line) {
    if (isTooDeep(line)) throw unreadable("nested too deep");
    Json object = Json::parse(line, nullptr, false);
    if (object.is_discarded()) throw unreadable("no complete JSON object");
    if (!object.is_object()) throw unreadable("no JSON object");
    return object;
}

template <std::size_t count>
std::optional<std::size_t> placeOf(const std::array<std::string_view, count>& names, std::string_view name) {
    const auto* found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? std::nullopt : std::optional{static_cast<std::size_t>(found - names.begin())};
}

template <std::size_t count>
std::size_t indexIn(const std::array<std::string_view, count>& names, const Json& name, const char* what) {
    const std::optional<std::size_t> found = name.is_string() ? placeOf(names, name.get_ref<const std::string&>()) : std::nullopt;
    if (!found) throw unreadable("no " + std::string{what} + " is called " + compact(name));
    return *found;
}

std::int64_t integer(const Json& object, const char* key, std::int64_t least) {
    const Json& value = member(object, key);
    const bool fits =
        value.is_number_integer() &&
        (!value.is_number_unsigned() || value.get<std::uint64_t>() <= std::uint64_t{std::numeric_limits<std::int64_t>::max()});
    if (!fits || value.get<std::int64_t>() < least)
        throw unreadable(std::string{"no entry: \""} + key + "\" is not a whole number");
    return value.get<std::int64_t>();
}

Step stepOf(Json& object) {
    Step step;
    step.kind = static_cast<Step::Kind>(indexIn(stepKinds, member(object, "step"), "step"));
    step.at = static_cast<std::size_t>(integer(object, "at", 0));
    if (step.kind == Step::Kind::erase) return step;
    const auto element = object.find("element");
    if (element == object.end()) throw unreadable("a step without its element");
    step.element = std::move(*element);
    return step;
}

std::optional<Step> readStep(JsonText& text) {
    Step step;
    std::optional<std::size_t> kind;
    std::int64_t at = -1;
    bool hasElement = false;
    text.members([&](const std::string& key) {
        if (key == "step") {
            kind = placeOf(stepKinds, text.string());
        } else if (key == "at") {
            at = text.integer();
        } else if (key == "element") {
            step.element = text.tree();
            hasElement = true;
        } else {
            (void)text.value();
        }
    });
    if (!kind || at < 0) return {};
    step.kind = static_cast<Step::Kind>(*kind);
    step.at = static_cast<std::size_t>(at);
    return hasElement || step.kind == Step::Kind::erase ? std::optional{std::move(step)} : std::nullopt;
}

// Nothing for what has to be looked at more closely.
std::optional<Entry> readEntry(std::string_view line) {
    JsonText text{line};
    Entry entry;
    std::optional<std::size_t> kind;
    std::int64_t at = -1;
    bool isGood = true;
    bool hasDocument = false;
    bool hasSteps = false;
    const auto natural = [&] {
        const std::int64_t number = text.integer();
        isGood = isGood && number >= 0;
        return number;
    };
    text.members([&](const std::string& key) {
        if (key == "t") {
            at = text.integer();
        } else if (key == "n") {
            entry.number = static_cast<std::uint64_t>(natural());
        } else if (key == "service") {
            entry.source.service = text.string();
        } else if (key == "path") {
            entry.source.path = text.string();
        } else if (key == "parameters") {
            entry.source.parameters = text.tree();
        } else if (key == "event") {
            kind = placeOf(kinds, text.string());
        } else if (key == "status") {
            entry.status = static_cast<int>(std::min<std::int64_t>(natural(), 999));
        } else if (key == "reason") {
            entry.reason = text.string();
        } else if (key == "back") {
            entry.isBack = text.boolean();
        } else if (key == "array") {
            entry.array = text.string();
        } else if (key == "document") {
            entry.document = text.tree();
            hasDocument = true;
        } else if (key == "steps") {
            hasSteps = true;
            text.elements([&] {
                std::optional<Step> step = readStep(text);
                isGood = isGood && step;
                if (isGood) entry.steps.push_back(std::move(*step));
            });
        } else {
            (void)text.value();
        }
    });
    if (!text.isDone() || !isGood || !kind || at < 0 || entry.source.service.empty() || entry.source.path.empty()) return {};
    entry.at = std::chrono::nanoseconds{at};
    entry.kind = static_cast<EntryKind>(*kind);
    if (entry.kind == EntryKind::state ? !hasDocument : entry.kind == EntryKind::change && !hasSteps) return {};
    return entry;
}

// Moves the member out, which may be large.
Json taken(Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? Json{} : std::move(*found);
}

}  // namespace

std::string_view nameOf(EntryKind kind) noexcept {
    return kinds.at(static_cast<std::size_t>(kind));
}

std::string Source::key() const {
    std::string key = service + ' ' + path;
    if (!parameters.is_object() || parameters.empty()) return key;
    const bool isSorted = parameters.size() == 1 && parameters.front().is_primitive();
    if (isSorted) return key + ' ' + compact(parameters);
    return key + ' ' + nlohmann::json(parameters).dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string lineOf(const Head& head) {
    const Json line{{"recording", Head::currentVersion},
                    {"programs", head.programs},
                    {"wall", head.wall},
                    {"zone", head.zone},
                    {"origin", head.origin},
                    {"domain", head.domain},
                    {"upstream", head.upstream}};
    return compact(line) + '\n';
}

std::string lineOf(const Entry& entry) {
    std::string line = "{\"t\":" + std::to_string(entry.at.count());
    if (entry.number) line += ",\"n\":" + std::to_string(*entry.number);
    line += ",\"service\":" + compact(entry.source.service) + ",\"path\":" + compact(entry.source.path);
    if (entry.source.parameters.is_object() && !entry.source.parameters.empty()) {
        line += ",\"parameters\":" + compact(entry.source.parameters);
    }
    line += ",\"event\":\"";
    line += nameOf(entry.kind);
    line += '"';
    if (entry.status != 0) line += ",\"status\":" + std::to_string(entry.status);
    if (!entry.reason.empty()) line += ",\"reason\":" + compact(entry.reason);
    if (entry.isBack) line += ",\"back\":true";
    if (entry.kind == EntryKind::change) {
        if (!entry.array.empty()) line += ",\"array\":" + compact(entry.array);
        line += ",\"steps\":[";
        for (const Step& step : entry.steps) {
            if (&step != &entry.steps.front()) line += ',';
            line += "{\"step\":\"";
            line += stepKinds.at(static_cast<std::size_t>(step.kind));
            line += "\",\"at\":" + std::to_string(step.at);
            if (step.kind != Step::Kind::erase) line += ",\"element\":" + compact(step.element);
            line += '}';
        }
        line += ']';
    }
    if (entry.kind == EntryKind::state || !entry.document.is_null()) line += ",\"document\":" + compact(entry.document);
    line += "}\n";
    return line;
}

std::string stopLine(std::chrono::nanoseconds at) {
    return "{\"t\":" + std::to_string(at.count()) + ",\"event\":\"stopped\"}\n";
}

Head headOf(std::string_view line) {
    const Json object = objectIn(line);
    Head head;
    if (!object.contains("recording")) throw unreadable("no head of a recording");
    const std::int64_t version = integer(object, "recording", 1);
    if (version > Head::currentVersion) {
        throw Error{Error::Kind::invalid, "written in version " + std::to_string(version) +
                                              " of the format; this program reads version " +
                                              std::to_string(Head::currentVersion)};
    }
    if (const Json& programs = member(object, "programs"); programs.is_object()) head.programs = programs;
    head.wall = text(object, "wall");
    head.zone = text(object, "zone");
    if (object.contains("origin")) head.origin = integer(object, "origin", std::numeric_limits<std::int64_t>::min());
    head.domain = text(object, "domain");
    head.upstream = member(object, "upstream") == true;
    return head;
}

Entry entryOf(std::string_view line) {
    if (std::optional<Entry> entry = readEntry(line)) return std::move(*entry);
    Json object = objectIn(line);
    Entry entry;
    entry.at = std::chrono::nanoseconds{integer(object, "t", 0)};
    if (object.contains("n")) entry.number = static_cast<std::uint64_t>(integer(object, "n", 0));
    entry.source = {text(object, "service"), text(object, "path"), taken(object, "parameters")};
    if (entry.source.service.empty() || entry.source.path.empty()) throw unreadable("no service, or no path");
    entry.kind = static_cast<EntryKind>(indexIn(kinds, member(object, "event"), "event"));
    if (object.contains("status")) entry.status = static_cast<int>(std::min<std::int64_t>(integer(object, "status", 0), 999));
    entry.reason = text(object, "reason");
    entry.isBack = member(object, "back") == true;
    if (entry.kind == EntryKind::state && !object.contains("document")) throw unreadable("a state without its document");
    entry.document = taken(object, "document");
    if (entry.kind != EntryKind::change) return entry;
    entry.array = text(object, "array");
    const auto steps = object.find("steps");
    if (steps == object.end() || !steps->is_array()) throw unreadable("a change without its steps");
    for (Json& step : *steps) entry.steps.push_back(stepOf(step));
    return entry;
}

std::optional<std::chrono::nanoseconds> stopIn(std::string_view line) {
    constexpr std::size_t longest = 256;  // bytes; entries are read often, and are not looked through for this
    if (line.size() > longest || line.find("\"stopped\"") == std::string_view::npos) return {};
    try {
        const Json object = objectIn(line);
        if (member(object, "event") != "stopped" || object.contains("path")) return {};
        return std::chrono::nanoseconds{integer(object, "t", 0)};
    } catch (const Error&) {
        return {};
    }
}

}  // namespace hmx::recording
