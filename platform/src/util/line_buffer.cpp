#include "util/line_buffer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <mutex>

#include "util/text.h"

namespace util {

namespace {

constexpr std::string_view kEllipsis = "\u2026";
constexpr std::size_t kRoom =
    LineBuffer::capacity - kEllipsis.size() - 1;  // for text; the rest is for the ellipsis and the newline

// For kernels without RWF_NOWAIT. If poll says writable, there is room for PIPE_BUF bytes, which is our capacity. Another process
// that writes to the same pipe may have used it in between; the lock excludes other threads of this one.
ssize_t writeIfReady(int descriptor, const char* bytes, std::size_t size) noexcept {
    static std::mutex mutex;
    const std::lock_guard lock{mutex};
    pollfd ready{descriptor, POLLOUT, 0};
    if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) return 0;
    return ::write(descriptor, bytes, size);
}

// Writes what there is room for now. Whether a descriptor blocks is a property shared with other processes, so we must not change
// it. Each kind of descriptor has its own way to ask for one call that does not block.
ssize_t writeAtOnce(int descriptor, const char* bytes, std::size_t size) noexcept {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return -1;
    if (S_ISREG(status.st_mode)) return ::write(descriptor, bytes, size);
    if (S_ISSOCK(status.st_mode)) return ::send(descriptor, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (S_ISFIFO(status.st_mode)) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): an iovec serves reading, too; pwritev2 changes nothing
        const iovec line{const_cast<char*>(bytes), size};
        const ssize_t written = ::pwritev2(descriptor, &line, 1, -1, RWF_NOWAIT);
        if (written >= 0 || (errno != EOPNOTSUPP && errno != ENOSYS)) return written;
    }
    return writeIfReady(descriptor, bytes, size);
}

}  // namespace

std::string_view cutUtf8(std::string_view text, std::size_t limit) noexcept {
    if (text.size() <= limit) return text;
    std::size_t end = limit;
    // A character has at most three continuation bytes. A longer sequence is not UTF-8 and is cut at the limit.
    for (int back = 0; back < 3 && end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; ++back) --end;
    if ((static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) end = limit;
    return text.substr(0, end);
}

void LineBuffer::append(std::string_view text) noexcept {
    if (cut_) return;
    const std::string_view fits = cutUtf8(text, kRoom - size_);
    std::copy(fits.begin(), fits.end(), bytes_.begin() + size_);
    size_ += fits.size();
    cut_ = fits.size() < text.size();
}

void LineBuffer::appendEscaped(std::string_view text) noexcept {
    visitShown(text, [this](std::string_view piece) {
        append(piece);
        return !cut_;
    });
}

void LineBuffer::appendNumber(std::int64_t number) noexcept {
    char digits[20];
    const auto result = std::to_chars(digits, digits + sizeof digits, number);
    append({digits, static_cast<std::size_t>(result.ptr - digits)});
}

void LineBuffer::end(char last) noexcept {
    if (cut_) {
        std::copy(kEllipsis.begin(), kEllipsis.end(), bytes_.begin() + size_);
        size_ += kEllipsis.size();
    }
    bytes_[size_++] = last;
}

const char* LineBuffer::text() noexcept {
    end('\0');
    return bytes_.data();
}

bool LineBuffer::writeTo(int descriptor) noexcept {
    end('\n');
    ssize_t written = 0;
    do {
        written = writeAtOnce(descriptor, bytes_.data(), size_);
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(size_);
}

}  // namespace util
