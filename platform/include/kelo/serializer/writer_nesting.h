// A writer's position in its document: what may come next.
#pragma once

#include <cstdint>
#include <string_view>

#include "kelo/serializer/failure.h"

namespace kelo::serializer {

// Keeps a writer from producing a malformed document: each operation says what it is about to write, and is refused if that may
// not come here. After a failure, and before a start, everything is refused, so an unfinished document cannot be mistaken for a
// complete one. One byte of state and one bit for each level. Thread: one at a time (a value).
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

    // Each returns true, and has recorded the failure, if the call is not allowed here.
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
    // `first`: the caller believes that this is the first member or element.
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
    // Complete members have been written to an object that has begun, without a failure since.
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
    // close: the end of the member or element that holds the value just written.
    enum class Next : std::uint8_t { nothing, value, close, firstMember, furtherMember, firstElement, furtherElement };

    static Next firstOf(bool object) noexcept { return object ? Next::firstMember : Next::firstElement; }
    static Next furtherOf(bool object) noexcept { return object ? Next::furtherMember : Next::furtherElement; }
    bool inObject() const noexcept { return (objects_ & 1U) != 0; }

    std::uint64_t objects_ = 0;  // one bit for each level, the innermost lowest
    unsigned depth_ = 0;
    Next next_ = Next::nothing;
};

}  // namespace kelo::serializer
