// Where a writer stands in its document: what may come next.
#pragma once

#include <cstdint>
#include <string_view>

#include "kelo/serializer/failure.h"

namespace kelo::serializer {

// Keeps a writer from producing a document that is none: each operation says what it is about to write and is refused out of
// turn. After a failure, and before a start, nothing is anybody's turn, so that what was begun can not be mistaken for a
// document. One byte of state and a bit a level. Thread: one at a time (a value).
class WriterNesting {
public:
    void start() noexcept {
        *this = {};
        next_ = Next::value;
    }
    unsigned depth() const noexcept { return depth_; }

    // Refuses everything until the next start; always true.
    [[gnu::cold]] bool fail(std::string_view what) noexcept {
        next_ = Next::nothing;
        return writeFailed(what);
    }

    // Each is true, and has recorded the failure, when it is not its turn.
    bool value() noexcept {
        if (next_ != Next::value) [[unlikely]]
            return fail("a value where none may stand");
        next_ = Next::close;
        return false;
    }
    bool begin(bool object) noexcept {
        if (next_ != Next::value) [[unlikely]]
            return fail("a value where none may stand");
        if (depth_ == maximumDepth) [[unlikely]]
            return fail(fault::tooDeep);
        objects_ = objects_ << 1U | (object ? 1U : 0U);
        ++depth_;
        next_ = firstOf(object);
        return false;
    }
    // `first`: the caller takes this for the first member or element.
    bool open(bool object, bool first) noexcept {
        if (next_ != (first ? firstOf(object) : furtherOf(object))) [[unlikely]]
            return fail("a member or element where none may begin");
        next_ = Next::value;
        return false;
    }
    bool close(bool object) noexcept {
        if (next_ != Next::close || depth_ == 0 || inObject() != object) [[unlikely]]
            return fail("a member or element ends without a value");
        next_ = furtherOf(object);
        return false;
    }
    // Of an object that has begun and has not been refused anything since, members have been written whole.
    void membersAreWritten() noexcept { next_ = Next::furtherMember; }
    bool end(bool object) noexcept {
        if (next_ != firstOf(object) && next_ != furtherOf(object)) [[unlikely]]
            return fail("a container ends where it may not");
        objects_ >>= 1U;
        --depth_;
        next_ = Next::close;
        return false;
    }
    bool finish() noexcept {
        if (next_ != Next::close || depth_ != 0) return fail("the document is not complete");
        next_ = Next::nothing;
        return false;
    }

private:
    // close: of what holds the value just written.
    enum class Next : std::uint8_t { nothing, value, close, firstMember, furtherMember, firstElement, furtherElement };

    static Next firstOf(bool object) noexcept { return object ? Next::firstMember : Next::firstElement; }
    static Next furtherOf(bool object) noexcept { return object ? Next::furtherMember : Next::furtherElement; }
    bool inObject() const noexcept { return (objects_ & 1U) != 0; }

    std::uint64_t objects_ = 0;  // a bit a level, the innermost lowest
    unsigned depth_ = 0;
    Next next_ = Next::nothing;
};

}  // namespace kelo::serializer
