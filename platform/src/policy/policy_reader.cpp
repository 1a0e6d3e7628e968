#include "policy/policy_reader.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kelo/limits.h"
#include "net/descriptor.h"
#include "policy/policy_file.h"
#include "util/safe_file.h"

// Whoever can write to a file of the policy, or can put another one in its place, makes the policy. So the files, their directory
// and the one above it have to belong to root or to the user who reads them, and nobody else may write to them. As with the
// domain, what is checked is what has been opened.
//
// All files are one policy. If anything is wrong with one of them, there is none: half a policy might lack the rule that
// mattered.

namespace kelo::policy {
namespace {

constexpr std::size_t mostFiles = Limits::policyFiles;
constexpr std::size_t mostBytes = Limits::policyFileBytes;

bool isOurs(std::string_view name) {
    return name.ends_with(".toml") && name.front() != '.';
}

// The names of the files of the policy, sorted. False if the directory cannot be read.
bool listFiles(int directory, std::vector<std::string>& names) {
    const int fd = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const entries = fd < 0 ? nullptr : ::fdopendir(fd);
    if (entries == nullptr) return false;
    while (const dirent* entry = ::readdir(entries)) {  // the stream is not shared
        if (isOurs(entry->d_name)) names.emplace_back(entry->d_name);
    }
    ::closedir(entries);
    std::sort(names.begin(), names.end());
    return true;
}

// Reads the file. If that is not possible or not safe, returns why.
std::string readFile(int directory, const std::string& name, std::string& text) {
    const net::Descriptor file{::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (!file) return errno == ELOOP ? "is a symbolic link" : std::string{"cannot be opened: "} + std::strerror(errno);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return std::string{"cannot be looked at: "} + std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "is not a regular file";
    if (std::string why = util::unsafeReason(status); !why.empty()) return why;
    if (static_cast<std::size_t>(status.st_size) > mostBytes) return "is larger than " + std::to_string(mostBytes) + " bytes";
    text.resize(mostBytes + 1);
    std::size_t size = 0;
    while (size < text.size()) {
        const auto got = ::read(file.get(), text.data() + size, text.size() - size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::string{"cannot be read: "} + std::strerror(errno);
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    if (size > mostBytes) return "is larger than " + std::to_string(mostBytes) + " bytes";
    text.resize(size);
    return {};
}

// Opens the directory and lists its files. False if it does not exist; what is wrong is in `fault`.
bool openDirectory(const std::string& name, net::Descriptor& opened, std::vector<std::string>& files, std::string& fault) {
    opened = net::Descriptor{::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!opened) {
        if (errno == ENOENT) return false;
        struct stat status {};
        const int error = errno;
        const bool isLink = ::lstat(name.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
        fault = isLink ? "is a symbolic link" : std::string{"cannot be opened: "} + std::strerror(error);
        return true;
    }
    struct stat status {};
    const net::Descriptor above{::openat(opened.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (::fstat(opened.get(), &status) != 0 || !listFiles(opened.get(), files)) {
        fault = std::string{"cannot be read: "} + std::strerror(errno);
    } else if (fault = util::unsafeReason(status); fault.empty() && above && ::fstat(above.get(), &status) == 0) {
        // A directory that anybody may add to, such as /tmp, is safe if it has a sticky bit.
        fault = util::unsafeReason(status, util::Sticky::isEnough);
        if (!fault.empty()) fault = "is not safe: the directory above it " + fault;
    }
    return true;
}

}  // namespace

std::string policyDirectory(const std::string& chosen) {
    if (!chosen.empty()) return chosen;
    const char* const directory = std::getenv("KELO_POLICY_DIR");  // nobody sets the environment
    return directory == nullptr || *directory == '\0' ? "/etc/kelo/policy.d" : directory;
}

Reading readPolicy(const std::string& directory) {
    net::Descriptor opened;
    std::vector<std::string> files;
    std::string fault;
    Draft draft;
    if (!openDirectory(directory, opened, files, fault)) return {std::make_shared<const Policy>(), {}};
    if (fault.empty() && files.size() > mostFiles) fault = "has more than " + std::to_string(mostFiles) + " files";
    if (!fault.empty()) draft.faults.push_back({{directory, 0}, std::move(fault)});
    for (const std::string& name : files) {
        const std::string file = directory + "/" + name;
        std::string text;
        std::string why = readFile(opened.get(), name, text);
        if (why.empty()) {
            readPolicyFile(file, text, draft);
        } else {
            draft.faults.push_back({{file, 0}, std::move(why)});
        }
    }
    if (!draft.faults.empty()) return {nullptr, std::move(draft.faults)};
    draft.policy.isInForce = !files.empty();
    return {std::make_shared<const Policy>(std::move(draft.policy)), {}};
}

std::string fingerprintOf(const std::string& directory) {
    net::Descriptor opened;
    std::vector<std::string> files;
    std::string text;
    if (!openDirectory(directory, opened, files, text)) return {};
    const auto add = [&](const struct stat& status) {
        text += "|" + std::to_string(status.st_ino) + "," + std::to_string(status.st_size) + "," +
                std::to_string(status.st_mode) + "," + std::to_string(status.st_uid) + "," +
                std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec);
    };
    struct stat status {};
    if (opened && ::fstat(opened.get(), &status) == 0) add(status);
    for (const std::string& name : files) {
        text += "|" + name;
        if (::fstatat(opened.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) add(status);
    }
    return text;
}

}  // namespace kelo::policy
