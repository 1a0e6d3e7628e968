// $JOURNAL_STREAM names the device and inode of the stream that the journal has been given as a process's output. The variable is
// inherited, but standard error may have been redirected since, so both are compared.
#include "tracing/journal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace tracing::journal {

bool isStandardError() noexcept {
    const char* const variable = std::getenv("JOURNAL_STREAM");
    if (variable == nullptr) return false;
    const std::string_view text = variable;
    const char* const end = text.data() + text.size();
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    const auto first = std::from_chars(text.data(), end, device);
    if (first.ec != std::errc{} || first.ptr == end || *first.ptr != ':') return false;
    const auto second = std::from_chars(first.ptr + 1, end, inode);
    struct stat status {};
    return second.ec == std::errc{} && second.ptr == end && ::fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device &&
           status.st_ino == inode;
}

void appendPriority(util::LineBuffer& line, int level) noexcept {
    static constexpr std::array<std::string_view, 5> byLevel{"<7>", "<7>", "<6>", "<4>", "<3>"};
    line.append(byLevel[static_cast<std::size_t>(std::clamp(level, 0, 4))]);
}

}  // namespace tracing::journal
