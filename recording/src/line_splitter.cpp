#include "line_splitter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hmx/client/error.h"

namespace hmx::recording {
namespace {

constexpr std::size_t pieceBytes = std::size_t{256} * 1024U;

client::Error unusable(const std::string& what, const std::string& name) {
    return client::Error{client::Error::Kind::system, what + " " + name + ": " + std::strerror(errno)};
}

}  // namespace

LineSplitter::LineSplitter(const std::string& file)
    : name_{file == "-" ? "standard input" : file},
      descriptor_{file == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : ::open(file.c_str(), O_RDONLY | O_CLOEXEC)} {
    if (descriptor_ < 0) throw unusable("cannot open", name_);
}

LineSplitter::~LineSplitter() {
    ::close(descriptor_);
}

// False at the end of the file.
bool LineSplitter::fill() {
    buffer_.erase(0, begin_);
    begin_ = 0;
    const std::size_t held = buffer_.size();
    buffer_.resize(held + pieceBytes);
    for (;;) {
        const ssize_t got = ::read(descriptor_, buffer_.data() + held, pieceBytes);
        if (got < 0 && errno == EINTR) continue;
        const int reason = errno;
        buffer_.resize(held + static_cast<std::size_t>(got > 0 ? got : 0));
        errno = reason;
        if (got < 0) throw unusable("cannot read", name_);
        return got > 0;
    }
}

bool LineSplitter::next(std::string_view& line) {
    std::size_t searched = 0;
    isTooLong_ = false;
    isComplete_ = true;
    for (;;) {
        const std::size_t end = buffer_.find('\n', begin_ + searched);
        if (end != std::string::npos) {
            line = std::string_view{buffer_}.substr(begin_, isTooLong_ ? 0 : end - begin_);
            begin_ = end + 1;
            break;
        }
        searched = buffer_.size() - begin_;
        if (searched > longest) isTooLong_ = true;
        if (isTooLong_) begin_ = buffer_.size(), searched = 0;
        if (fill()) continue;
        if (buffer_.empty() && !isTooLong_) return false;
        line = isTooLong_ ? std::string_view{} : std::string_view{buffer_};
        begin_ = buffer_.size();
        isComplete_ = false;
        break;
    }
    ++number_;
    return true;
}

}  // namespace hmx::recording
