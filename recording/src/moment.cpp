// The state at one time needs, of each source, only its last whole answer before that time and what follows. So lines are looked
// at as far as time, number, source and kind go, and kept, as text, until a later whole answer of their source replaces them;
// only those that are left at the end are parsed. That holds for files that are as a recorder writes them, but for a last line
// that was cut. Of any other file every line is parsed, so that what is wrong with it has the same consequences as in a reader.

#include "hmx/recording/moment.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "entry_prefix.h"
#include "faults.h"
#include "hmx/recording/trail.h"
#include "line_splitter.h"

namespace hmx::recording {
namespace {

using client::Error;

// The lines of a source from which its state can be made.
struct Kept {
    std::optional<std::uint64_t> last;
    bool isWhole = false;
    std::vector<std::pair<std::uint64_t, std::string>> lines;  // with their places among those of all sources
};

// One source may be written in different ways.
std::string keyOf(const std::string& source) {
    return entryOf("{\"t\":0" + source + ",\"event\":\"lost\"}").source.key();
}

bool isCut(std::string_view line) {
    try {
        (void)entryOf(line);
        return false;
    } catch (const Error&) {
        return true;
    }
}

// Nothing when the file is not as a recorder writes it.
std::optional<Moment> fastMoment(const std::string& file, std::optional<std::chrono::nanoseconds> until,
                                 std::vector<Problem>* problems) {
    LineSplitter splitter{file};
    std::string_view line;
    if (!splitter.next(line) || !line.starts_with("{\"recording\"")) return {};
    try {
        (void)headOf(line);
    } catch (const Error&) {
        return {};
    }
    std::unordered_map<std::string, Kept> sources;
    std::chrono::nanoseconds latest{0};
    std::chrono::nanoseconds end{0};
    std::string key;
    while (splitter.next(line)) {
        if (const auto stop = stopIn(line)) {
            end = std::max(end, *stop);
            continue;
        }
        if (!splitter.isComplete() && isCut(line)) {
            if (problems != nullptr) problems->push_back({splitter.number(), cutLine});
            break;
        }
        EntryPrefix prefix;
        if (!readPrefix(line, prefix) || prefix.at < latest) return {};
        latest = prefix.at;
        key = prefix.source;
        Kept& kept = sources[key];
        if (kept.last && prefix.number != *kept.last + 1) return {};
        kept.last = prefix.number;
        if (until && prefix.at > *until) continue;
        if (prefix.kind == EntryKind::state) {
            kept.isWhole = true;
            kept.lines.clear();
        }
        if (prefix.kind == EntryKind::change && !kept.isWhole) return {};
        kept.lines.emplace_back(splitter.number(), line);
    }
    std::vector<std::pair<std::uint64_t, std::string>> lines;
    for (auto& [source, kept] : sources) {
        lines.insert(lines.end(), std::make_move_iterator(kept.lines.begin()), std::make_move_iterator(kept.lines.end()));
    }
    std::sort(lines.begin(), lines.end());
    Moment moment;
    std::set<std::string> keys;
    try {
        for (const auto& [source, kept] : sources) {
            if (!keys.insert(keyOf(source)).second) return {};
        }
        for (const auto& [number, text] : lines) (void)moment.apply(entryOf(text));
        if (!until) moment.passUntil(end);
    } catch (const Error&) {
        return {};
    }
    return moment;
}

}  // namespace

const SourceState* Moment::find(const Source& source) const {
    const auto found = sources_.find(source.key());
    return found == sources_.end() ? nullptr : &found->second;
}

const SourceState& Moment::apply(Entry entry) {
    SourceState& state = sources_[entry.source.key()];
    if (state.source.path.empty()) state.source = entry.source;
    at_ = std::max(at_, entry.at);
    std::optional<std::string> fault;
    if (entry.kind == EntryKind::state) {
        state.document = std::move(entry.document);
        state.isKnown = true;
    }
    const bool isChange = entry.kind == EntryKind::change;
    state.since = entry.at;
    state.status = entry.status;
    state.kind = isChange ? EntryKind::state : entry.kind;
    state.reason = std::move(entry.reason);
    if (isChange) fault = state.isKnown ? applySteps(state.document, std::move(entry)) : "there is none before it";
    if (fault) {
        state.isKnown = false;
        state.document = nullptr;
        throw Error{Error::Kind::unreadable, "a change of " + state.source.path + " does not fit the answer before: " + *fault};
    }
    return state;
}

Moment momentAt(const std::string& file, std::optional<std::chrono::nanoseconds> at, std::vector<Problem>* problems) {
    const std::string name = rereadable(file);
    if (std::optional<Moment> moment = fastMoment(name, at, problems)) return std::move(*moment);
    Reader reader{name};
    Moment moment;
    std::vector<Problem> faults;
    while (std::optional<Entry> entry = reader.next()) {
        if (at && entry->at > *at) continue;
        try {
            (void)moment.apply(std::move(*entry));
        } catch (const Error& error) {
            faults.push_back({reader.line(), error.what()});
        }
    }
    if (!at) moment.passUntil(reader.end());
    if (problems != nullptr) {
        *problems = reader.problems();
        problems->insert(problems->end(), faults.begin(), faults.end());
    }
    return moment;
}

}  // namespace hmx::recording
