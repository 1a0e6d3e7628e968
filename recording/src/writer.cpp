#include "hmx/recording/writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace hmx::recording {

Writer::Writer(int descriptor, std::string name, const Head& head) : descriptor_{descriptor}, name_{std::move(name)} {
    writeLines(lineOf(head));
}

void Writer::writeLines(std::string_view lines) {
    std::string_view left = lines;
    while (!left.empty()) {
        const ssize_t written = ::write(descriptor_, left.data(), left.size());
        if (written >= 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        if (errno == EINTR) continue;
        const std::string reason = std::strerror(errno);
        // What stands after the last complete line goes, where the file is one that can be cut.
        const std::string_view stored = lines.substr(0, lines.size() - left.size());
        const std::size_t spoiled = stored.size() - (stored.rfind('\n') + 1);  // npos + 1 is 0
        const off_t end = ::lseek(descriptor_, 0, SEEK_CUR);
        if (spoiled > 0 && end >= 0) (void)!::ftruncate(descriptor_, end - static_cast<off_t>(spoiled));
        throw client::Error{client::Error::Kind::system, "cannot write " + name_ + ": " + reason,
                            "what was recorded until then is complete and can be read"};
    }
    bytes_ += lines.size();
    lines_ += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
}

}  // namespace hmx::recording
