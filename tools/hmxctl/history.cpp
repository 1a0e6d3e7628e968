// An element is told from the others of its source by its id; those of the upstream services by their name, a layer configuration
// by that of its display, a touch region by its number. Of several that share it, or have none, the first is told from the second
// by its place.
//
// Most changes of a recording are steps in one array. They touch only the elements that they name, so a change costs as much as
// these, however large the document is. What is erased and inserted again in one change has only moved.

#include "history.h"

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "hmx/recording/trail.h"

namespace hmxctl {
namespace {

using namespace hmx::client;  // NOLINT(google-build-using-namespace)
using hmx::recording::Entry;
using hmx::recording::EntryKind;
using hmx::recording::Source;
using hmx::recording::Step;
using std::chrono::nanoseconds;

std::string identityOf(const Json& element) {
    const std::string id = text(element, "id");
    if (!id.empty()) return id;
    std::string name = text(member(member(element, "layersForDisplay"), "display"), "name");
    if (name.empty()) name = text(element, "name");
    if (!name.empty()) return name;
    for (const char* key : {"id", "regionID", "hapticRegion"}) {
        if (member(element, key).is_number())
            return (std::string_view{key} == "hapticRegion" ? "haptic " : "") + compact(member(element, key));
    }
    return "?";
}

// `name`, or, if it is taken, the first of name#2, name#3… that is not.
std::string unique(const std::string& name, const std::set<std::string>& taken) {
    std::string unique = name;
    for (int number = 2; taken.contains(unique); ++number) unique = name + "#" + std::to_string(number);
    return unique;
}

bool isList(const Json& value) {
    return value.is_array() && std::all_of(value.begin(), value.end(), [](const Json& each) { return each.is_object(); });
}

// As compact(text) writes it: what needs no escapes as it is.
void writeText(const std::string& text, std::string& out) {
    const bool isPlain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
    if (!isPlain) {
        out += compact(text);
        return;
    }
    out += '"';
    out += text;
    out += '"';
}

// As compact(value) writes it, but without the members below these paths, and several times faster where values are simple.
void writeState(const Json& value, const std::vector<std::string_view>& ignored, std::string& out) {
    switch (value.type()) {
        case Json::value_t::object: {
            char divider = '{';
            for (const auto& [key, each] : value.get_ref<const Json::object_t&>()) {
                std::vector<std::string_view> below;
                bool isLeftOut = false;
                for (const std::string_view path : ignored) {
                    if (!path.starts_with(key)) continue;
                    isLeftOut = isLeftOut || path.size() == key.size();
                    if (path.size() > key.size() && path[key.size()] == '.') below.push_back(path.substr(key.size() + 1));
                }
                if (isLeftOut) continue;
                out += divider;
                divider = ',';
                writeText(key, out);
                out += ':';
                writeState(each, below, out);
            }
            if (divider == '{') out += '{';
            out += '}';
            return;
        }
        case Json::value_t::array: {
            out += '[';
            for (const Json& each : value) {
                if (&each != &value.front()) out += ',';
                writeState(each, {}, out);
            }
            out += ']';
            return;
        }
        case Json::value_t::boolean:
            out += value.get<bool>() ? "true" : "false";
            return;
        case Json::value_t::number_integer:
            out += std::to_string(value.get<std::int64_t>());
            return;
        case Json::value_t::string:
            writeText(value.get_ref<const std::string&>(), out);
            return;
        default:
            out += compact(value);
    }
}

}  // namespace

Texts::Number Texts::numberOf(const std::string& text) {
    const auto [place, isNew] = numbers_.emplace(text, static_cast<Number>(texts_.size()));
    if (isNew) texts_.push_back(&place->first);
    return place->second;
}

SourceHistory& History::of(const Source& source) {
    // Most entries are from the source of the one before.
    const auto isSame = [&](const Source& last) {
        return last.path == source.path && last.service == source.service && last.parameters == source.parameters;
    };
    if (last_ != nullptr && isSame(last_->source)) return *last_;
    SourceHistory& history = sources_[source.key()];
    if (history.source.service.empty()) history.source = source;
    last_ = &history;
    return history;
}

void History::push(Track& track, nanoseconds at, Texts::Number state) const {
    if (track.empty() || track.back().state != state) track.push_back({at, state});
}

Texts::Number History::stateOf(const Json& element) {
    scratch_.clear();
    writeState(element, {ignored_.begin(), ignored_.end()}, scratch_);
    return texts_->numberOf(scratch_);
}

// All elements of the document anew.
void History::takeWhole(SourceHistory& history, nanoseconds at) {
    const Json& document = history.document;
    std::vector<const Json*> lists;
    history.array.clear();
    if (isList(document)) {
        lists.push_back(&document);
    } else if (isList(member(document, "data"))) {
        history.array = "data";
        lists.push_back(&member(document, "data"));
    } else if (text(document, "id").empty() && document.is_object()) {
        for (const auto& [key, value] : document.items()) {
            if (!isList(value)) continue;
            history.array = key;
            lists.push_back(&value);
        }
    }
    history.isSimple = lists.size() == 1;
    history.order.clear();
    std::set<std::string> present;
    const auto take = [&](const Json& element) {
        const std::string name = unique(identityOf(element), present);
        present.insert(name);
        history.order.push_back(name);
        // What comes later was not there before.
        const bool isNew = history.hasDocument && !history.elements.contains(name);
        Track& track = history.elements[name];
        if (isNew) push(track, at, Texts::absent);
        push(track, at, stateOf(element));
    };
    for (const Json* list : lists) {
        for (const Json& element : *list) take(element);
    }
    if (lists.empty() && !document.is_null()) take(document);
    for (auto& [name, track] : history.elements) {
        if (!present.contains(name)) push(track, at, Texts::absent);
    }
    history.hasDocument = true;
}

void History::takeSteps(SourceHistory& history, Entry& entry) {
    std::vector<std::string>& order = history.order;
    Json& array = entry.array.empty() ? history.document : history.document[entry.array];
    std::map<std::string, Texts::Number> touched;
    for (Step& step : entry.steps) {
        if (step.at >= order.size() + (step.kind == Step::Kind::insert ? 1 : 0)) return;  // it does not fit what was before
        const auto place = array.begin() + static_cast<std::ptrdiff_t>(step.at);
        if (step.kind != Step::Kind::insert) {
            touched.emplace(order[step.at], Texts::absent).first->second = Texts::absent;
        }
        if (step.kind == Step::Kind::erase) {
            order.erase(order.begin() + static_cast<std::ptrdiff_t>(step.at));
            array.erase(place);
            continue;
        }
        std::string name = identityOf(step.element);
        if (step.kind == Step::Kind::set) {
            const std::string& old = order[step.at];
            if (old.starts_with(name + "#")) name = old;
            order[step.at] = name;
        } else {
            if (std::find(order.begin(), order.end(), name) != order.end()) {
                name = unique(name, std::set<std::string>(order.begin(), order.end()));
            }
            order.insert(order.begin() + static_cast<std::ptrdiff_t>(step.at), name);
        }
        touched[name] = stateOf(step.element);
        if (step.kind == Step::Kind::set) {
            *place = std::move(step.element);
        } else {
            array.insert(place, std::move(step.element));
        }
    }
    for (const auto& [name, state] : touched) {
        const bool isNew = !history.elements.contains(name);
        Track& track = history.elements[name];
        if (isNew) push(track, entry.at, Texts::absent);
        push(track, entry.at, state);
    }
}

void History::take(Entry entry) {
    if (entry.kind == EntryKind::ended) return;
    if (entry.kind == EntryKind::state) return answer(entry.source, entry.at, std::move(entry.document));
    if (entry.kind != EntryKind::change) return silence(entry.source, entry.at, entry.kind);
    SourceHistory& history = of(entry.source);
    push(history.turns, entry.at, texts_->numberOf("answers"));
    if (history.isSimple && entry.document.is_null() && entry.array == history.array) return takeSteps(history, entry);
    if (!hmx::recording::applySteps(history.document, entry)) takeWhole(history, entry.at);
}

void History::answer(const Source& source, nanoseconds at, Json document) {
    SourceHistory& history = of(source);
    push(history.turns, at, texts_->numberOf("answers"));
    history.document = std::move(document);
    takeWhole(history, at);
}

void History::silence(const Source& source, nanoseconds at, EntryKind kind) {
    SourceHistory& history = of(source);
    push(history.turns, at, texts_->numberOf(std::string{nameOf(kind)}));
    if (kind != EntryKind::missing) return;
    // Then there are no elements.
    history.document = nullptr;
    takeWhole(history, at);
}

void History::countBy(Texts& texts) {
    const auto recount = [&](Track& track) {
        for (Point& point : track) point.state = texts.numberOf(texts_->text(point.state));
    };
    for (auto& [key, history] : sources_) {
        recount(history.turns);
        for (auto& [name, track] : history.elements) recount(track);
    }
    texts_ = &texts;
}

void History::keepEnd() {
    const auto cut = [](Track& track) {
        if (track.size() > 1) track.erase(track.begin(), track.end() - 1);
    };
    for (auto& [key, history] : sources_) {
        cut(history.turns);
        for (auto& [name, track] : history.elements) cut(track);
    }
}

}  // namespace hmxctl
