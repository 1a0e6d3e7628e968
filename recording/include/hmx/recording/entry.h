// What a recording consists of: a head, and what its sources said, one entry after the other.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/document.h"

namespace hmx::recording {

using client::Json;

// What is followed: a retrieve that stays open. Thread: any (a value).
struct Source {
    std::string service;  // "/hmx"
    std::string path;     // "/popups"
    Json parameters{};    // an object, or null; an empty object means the same as null

    // One text per source, whatever the order of its parameters.
    [[nodiscard]] std::string key() const;
    friend bool operator==(const Source& a, const Source& b) { return a.key() == b.key(); }
    friend bool operator<(const Source& a, const Source& b) { return a.key() < b.key(); }
};

// The first line. Thread: any (a value).
struct Head {
    static constexpr int currentVersion = 1;

    Json programs = Json::object();  // versions: {"hmxctl":"0.1.0"}
    std::string wall{};              // the local time at the origin: "2026-11-22T12:30:00.123456789+01:00"
    std::string zone{};              // "Europe/Berlin"; "" where it has no name
    std::int64_t origin = 0;         // the recorder's steady clock in nanoseconds, where entries have the time 0
    std::string domain{};
    bool upstream = false;  // whether the upstream services were recorded, too
};

// One element of a document's array that is other than before. Steps are applied in order. Thread: any (a value).
struct Step {
    enum class Kind : std::uint8_t { set, insert, erase };
    Kind kind = Kind::set;
    std::size_t at = 0;  // the element's index, as left by the steps before
    Json element{};      // nothing for `erase`
};

enum class EntryKind : std::uint8_t {
    state,    // an answer as a whole
    change,   // an answer, as what differs from the one before
    lost,     // no connection to the source; its last answer stands as far as anybody knows
    missing,  // what is asked for is not there (any more)
    ended,    // the service ended the request without an error; it was asked again soon
    failed    // refused, or unreadable; nothing more came
};
[[nodiscard]] std::string_view nameOf(EntryKind kind) noexcept;

// What a source said at one time. Thread: any (a value).
struct Entry {
    std::chrono::nanoseconds at{0};         // since the origin
    std::optional<std::uint64_t> number{};  // counts the entries of its source; a file without numbers is taken as complete
    Source source{};
    EntryKind kind = EntryKind::state;
    int status = 0;        // 0: no answer
    std::string reason{};  // of all but `state` and `change`
    Json document{};       // state: the answer. change: the members besides the array that differ, null for those that are gone
    std::string array{};   // change: the member that holds the array; "": the document is the array
    std::vector<Step> steps{};  // change
    bool isBack = false;        // a state or `missing` that ends a loss
};

// Each as one line, with its end.
[[nodiscard]] std::string lineOf(const Head& head);
[[nodiscard]] std::string lineOf(const Entry& entry);
// The last line of a recorder that was not killed: until when it has recorded.
[[nodiscard]] std::string stopLine(std::chrono::nanoseconds at);

// The head or the entry that a line holds. Errors: Error, unreadable, with what is wrong, for any other line.
[[nodiscard]] Head headOf(std::string_view line);
[[nodiscard]] Entry entryOf(std::string_view line);
// The time, if the line says that the recorder stopped.
[[nodiscard]] std::optional<std::chrono::nanoseconds> stopIn(std::string_view line);

}  // namespace hmx::recording
