// One line of at most 4096 bytes, composed without allocating and written with one system call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace util {

// Text that does not fit is cut, at a character boundary, and the line then ends in "…". Thread: one at a time.
class LineBuffer {
public:
    static constexpr std::size_t capacity = 4096;  // what a pipe takes as a whole (PIPE_BUF)

    // As it is; for our own texts.
    void append(std::string_view text) noexcept;
    // Characters that a terminal would act on are written as "\n", "\x1b" and so on, so the line stays one line whatever it
    // quotes.
    void appendEscaped(std::string_view text) noexcept;
    void appendNumber(std::int64_t number) noexcept;

    // Ends the line and writes it with its newline. Does not block; false if the descriptor could not take all of it at once.
    [[nodiscard]] bool writeTo(int descriptor) noexcept;
    // Ends the line instead, with a zero byte; the text is the buffer's own.
    [[nodiscard]] const char* text() noexcept;

private:
    void end(char last) noexcept;

    std::array<char, capacity> bytes_;  // deliberately not zeroed
    std::size_t size_ = 0;
    bool cut_ = false;
};

// The longest prefix of at most `limit` bytes that does not end inside a UTF-8 character.
[[nodiscard]] std::string_view cutUtf8(std::string_view text, std::size_t limit) noexcept;

}  // namespace util
