// One line of at most 4096 bytes, put together without allocating and written with one system call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace util {

// Whatever does not fit is cut, at a whole character, and the line then ends in "…". Thread: one at a time.
class LineBuffer {
public:
    static constexpr std::size_t capacity = 4096;  // what a pipe takes in one piece

    // As it is; for texts of our own.
    void append(std::string_view text) noexcept;
    // With whatever a terminal would obey written as "\n", "\x1b" and so on, so that the line stays one line whatever it quotes.
    void appendEscaped(std::string_view text) noexcept;
    void appendNumber(std::int64_t number) noexcept;

    // Ends the line and writes it, newline and all. False when the descriptor could not take the whole of it at once: nobody
    // waits for a reader that is stuck.
    [[nodiscard]] bool writeTo(int descriptor) noexcept;

private:
    std::array<char, capacity> bytes_;  // deliberately not zeroed
    std::size_t size_ = 0;
    bool cut_ = false;
};

// The longest prefix of at most `limit` bytes that does not end within a UTF-8 character.
[[nodiscard]] std::string_view cutUtf8(std::string_view text, std::size_t limit) noexcept;

}  // namespace util
