// Whether others could change a file or a directory.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace util {

// Whether a directory that others may add to is safe with a sticky bit, because they cannot replace what is there.
enum class Sticky : std::uint8_t { isNotEnough, isEnough };

// Says of something that has been looked at why somebody other than us and root could change it: "belongs to uid 1001, …"; empty
// if nobody can. Thread: any.
[[nodiscard]] inline std::string unsafeReason(const struct stat& status, Sticky sticky = Sticky::isNotEnough) {
    if (status.st_uid != ::geteuid() && status.st_uid != 0) {
        return "belongs to uid " + std::to_string(status.st_uid) + ", not to uid " + std::to_string(::geteuid()) + " or root";
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return {};
    if (sticky == Sticky::isNotEnough) return "may be written to by others";
    return (status.st_mode & S_ISVTX) != 0 ? "" : "may be written to by others and has no sticky bit";
}

}  // namespace util
