// Standard output, and nothing else that a command prints: data only.
#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

namespace hmxctl {

// The reader of our output has gone; nothing is left to do, and nothing to complain about.
// Thread: any (a value).
class OutputClosed : public std::exception {
public:
    const char* what() const noexcept override { return "standard output closed"; }
};

struct TerminalSize {
    std::size_t columns = 80;
    std::size_t rows = 24;
};

// Gathers what is written and hands it to the descriptor in large pieces; `flush` where a reader is waiting.
// Errors: OutputClosed when the reader has gone, Failure when the bytes cannot be stored.
// Thread: main.
class Output {
public:
    // `descriptor` is not owned. `colour`: whether styles may be used when the descriptor is a terminal.
    explicit Output(int descriptor, bool colour = true);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() = default;

    void write(std::string_view text);
    void line(std::string_view text);
    void flush();

    int descriptor() const noexcept { return descriptor_; }
    bool isTerminal() const noexcept { return terminal_; }
    // Whether the terminal is ours to draw on: another command may have it in the meantime.
    bool isForeground() const noexcept;
    bool colour() const noexcept { return colour_; }
    TerminalSize size() const noexcept;

private:
    std::string pending_;
    int descriptor_;
    bool terminal_;
    bool colour_;
};

}  // namespace hmxctl
