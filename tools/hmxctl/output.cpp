#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failure.h"

namespace hmxctl {
namespace {

constexpr std::size_t flushBytes = std::size_t{64} * 1024U;

// The NO_COLOR convention: set to anything but "" means no colours; TERM=dumb says the same of the terminal.
bool environmentAllowsColour() noexcept {
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return (noColour == nullptr || *noColour == '\0') && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

}  // namespace

Output::Output(int descriptor, bool colour)
    : descriptor_{descriptor}, terminal_{::isatty(descriptor) == 1}, colour_{colour && terminal_ && environmentAllowsColour()} {}

void Output::write(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= flushBytes) flush();
}

void Output::line(std::string_view text) {
    pending_ += text;
    write("\n");
}

void Output::flush() {
    std::size_t done = 0;
    while (done < pending_.size()) {
        const ssize_t written = ::write(descriptor_, pending_.data() + done, pending_.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
            continue;
        }
        if (errno == EINTR) continue;
        pending_.clear();
        if (errno == EPIPE || errno == ECONNRESET) throw OutputClosed{};
        throw Failure{ExitCode::unexpected, std::string{"cannot write standard output: "} + std::strerror(errno)};
    }
    pending_.clear();
}

bool Output::isForeground() const noexcept {
    return terminal_ && ::tcgetpgrp(descriptor_) == ::getpgrp();
}

TerminalSize Output::size() const noexcept {
    TerminalSize size;
    winsize window{};
    if (terminal_ && ::ioctl(descriptor_, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 && window.ws_row > 0) {
        size.columns = window.ws_col;
        size.rows = window.ws_row;
    }
    return size;
}

}  // namespace hmxctl
