// Makes the lines of one source out of what it says.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hmx/recording/entry.h"

namespace hmx::recording {

// Numbers them, and writes an answer as what differs from the one before where that is shorter. A whole one comes first, after
// each loss, and whenever the changes since the last one have become large, so that a reader need not go back far.
// Thread: one at a time.
class Trail {
public:
    explicit Trail(Source source) : source_{std::move(source)} {}

    const Source& source() const noexcept { return source_; }

    // The line for an answer, which is a JSON text. It ends a loss if one was noted since the last answer. Errors: Error,
    // unreadable, for what is none; then nothing has changed.
    std::string answer(std::chrono::nanoseconds at, int status, std::string text);
    std::string answer(std::chrono::nanoseconds at, int status, const Json& document) {
        return answer(at, status, client::compact(document));
    }
    // The line for anything else: lost, missing, ended, failed.
    std::string event(std::chrono::nanoseconds at, EntryKind kind, int status, std::string reason);
    // What was noted last; nothing at first.
    std::optional<EntryKind> last() const noexcept { return last_; }
    // The answer that stands, as a JSON text; "" after anything else but `ended`.
    const std::string& text() const noexcept { return document_.text; }

private:
    struct Piece {
        std::size_t begin = 0;
        std::size_t size = 0;
    };
    struct Member {
        std::string key;
        Piece value;
    };
    // A text, and where its parts are.
    struct Document {
        std::string text{};
        bool isArray = false;
        std::vector<Member> members{};
        std::optional<std::string> array{};  // the member that holds it; "": the document is the array
        std::vector<Piece> elements{};       // of the array

        std::string_view operator[](const Piece& piece) const { return std::string_view{text}.substr(piece.begin, piece.size); }
        const Member* find(const std::string& key) const;
    };

    static Document read(std::string text);
    static bool findMembers(const Document& before, const Document& now, Entry& change);
    static std::vector<Step> stepsBetween(const Document& before, const Document& now);
    Entry begin(std::chrono::nanoseconds at, EntryKind kind, int status);

    Source source_;
    std::uint64_t count_ = 0;
    std::optional<EntryKind> last_;
    bool isDown_ = false;
    Document document_;            // the last answer; empty if a whole one is due
    std::size_t wholeBytes_ = 0;   // of the line of the last whole answer
    std::size_t changeBytes_ = 0;  // of the lines since
};

// Makes `document` what it was after the change, whose elements go into it. Nothing if it went well, else what does not fit; then
// `document` may be half changed.
[[nodiscard]] std::optional<std::string> applySteps(Json& document, Entry change);

}  // namespace hmx::recording
