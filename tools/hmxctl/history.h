// What sources have said, element by element: what `diff` compares.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hmx/client/document.h"
#include "hmx/recording/entry.h"

namespace hmxctl {

// Each text once, so that equal states have equal numbers. Thread: one at a time.
class Texts {
public:
    using Number = std::uint32_t;
    static constexpr Number absent = 0;

    Texts() = default;
    Texts(const Texts&) = delete;
    Texts& operator=(const Texts&) = delete;

    Number numberOf(const std::string& text);
    // Of `absent`, "".
    const std::string& text(Number number) const { return *texts_[number]; }

private:
    std::unordered_map<std::string, Number> numbers_{{"", absent}};
    std::deque<const std::string*> texts_{&numbers_.begin()->first};
};

// The states of one element, or of a source, in their order; a state that stays is one. Thread: any (a value).
struct Point {
    std::chrono::nanoseconds at{0};
    Texts::Number state = Texts::absent;
};
using Track = std::vector<Point>;

// Thread: one at a time (a value).
struct SourceHistory {
    hmx::recording::Source source{};
    Track turns{};                            // whether it answers: "answers", "lost", "missing", "failed"
    std::map<std::string, Track> elements{};  // by what tells them apart: id or name
    bool hasDocument = false;

    // Of the present document.
    hmx::client::Json document{};
    std::string array{};               // the member that holds all elements, "" for the document itself
    bool isSimple = false;             // whether there is just that array
    std::vector<std::string> order{};  // the elements of it
};

// Thread: one at a time.
class History {
public:
    // `ignored`: members, or paths of them, that do not count. `texts` outlives it.
    History(History&&) = default;
    History& operator=(History&&) = default;
    History(Texts& texts, std::vector<std::string> ignored) : texts_{&texts}, ignored_{std::move(ignored)} {}

    void take(hmx::recording::Entry entry);
    void answer(const hmx::recording::Source& source, std::chrono::nanoseconds at, hmx::client::Json document);
    void silence(const hmx::recording::Source& source, std::chrono::nanoseconds at, hmx::recording::EntryKind kind);

    // Forgets all but the last states.
    void keepEnd();
    // Counts its states by these texts from now on, so that it can be compared with a history that does.
    void countBy(Texts& texts);

    // By key.
    const std::map<std::string, SourceHistory>& sources() const noexcept { return sources_; }

private:
    SourceHistory& of(const hmx::recording::Source& source);
    void push(Track& track, std::chrono::nanoseconds at, Texts::Number state) const;
    Texts::Number stateOf(const hmx::client::Json& element);
    void takeWhole(SourceHistory& history, std::chrono::nanoseconds at);
    void takeSteps(SourceHistory& history, hmx::recording::Entry& entry);

    Texts* texts_;
    std::vector<std::string> ignored_;
    std::map<std::string, SourceHistory> sources_;
    SourceHistory* last_ = nullptr;  // that an entry was from; in `sources_`
    std::string scratch_;
};

}  // namespace hmxctl
