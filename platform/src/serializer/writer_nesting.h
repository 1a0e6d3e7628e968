// Where a writer stands in its document: what may come next.
#pragma once

#include <cstdint>

namespace kelo::serializer {

inline constexpr unsigned maximumDepth = 64;

// Reports a write failure; always true, so that a writer can return it.
bool writeFailed(const char* what) noexcept;

// Keeps a writer from producing a document that is none: each operation says what it is about to write and is refused out of
// turn. One byte of state and a bit a level. Thread: one at a time (a value).
class WriterNesting {
public:
    void reset() noexcept { *this = {}; }
    unsigned depth() const noexcept { return depth_; }

    // Each is true, and has recorded the failure, when it is not its turn.
    bool value() noexcept {
        if (next_ != Next::value) return writeFailed("a value where none may stand");
        next_ = Next::close;
        return false;
    }
    bool begin(bool object) noexcept {
        if (next_ != Next::value) return writeFailed("a value where none may stand");
        if (depth_ == maximumDepth) return writeFailed("containers nested more than 64 deep");
        objects_ = objects_ << 1U | (object ? 1U : 0U);
        ++depth_;
        next_ = Next::open;
        return false;
    }
    bool open(bool object) noexcept {
        if (next_ != Next::open || inObject() != object) return writeFailed("a member or element where none may begin");
        next_ = Next::value;
        return false;
    }
    bool close(bool object) noexcept {
        if (next_ != Next::close || depth_ == 0 || inObject() != object)
            return writeFailed("a member or element ends without a value");
        next_ = Next::open;
        return false;
    }
    bool end(bool object) noexcept {
        if (next_ != Next::open || inObject() != object) return writeFailed("a container ends where it may not");
        objects_ >>= 1U;
        --depth_;
        next_ = Next::close;
        return false;
    }
    bool finish() const noexcept {
        return next_ == Next::close && depth_ == 0 ? false : writeFailed("the document is not complete");
    }

private:
    enum class Next : std::uint8_t { value, close, open };  // close: the end of what holds the value just written

    bool inObject() const noexcept { return depth_ > 0 && (objects_ & 1U) != 0; }

    std::uint64_t objects_ = 0;  // a bit a level, the innermost lowest
    unsigned depth_ = 0;
    Next next_ = Next::value;
};

}  // namespace kelo::serializer
