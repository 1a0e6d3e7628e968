#include "policy/identity.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "net/descriptor.h"
#include "util/text.h"

// The kernel takes a peer's uid, gid and groups when the connection is made, or when its socket begins to listen. So a process
// that changes its user afterwards is still who it was.
//
// A client's program is looked at when its connection is accepted. A process that starts another program afterwards, or that ends
// at once and leaves its number to another one, is named wrongly; its uid is right in any case.
//
// The user database may be slow. It is asked only while a policy is read, and for people.

namespace kelo::policy {
namespace {

// Calls a function of the getpwnam_r family, with as much memory as it wants.
template <class Entry, class Find>
bool findEntry(Entry& entry, std::vector<char>& memory, Find find) {
    constexpr std::size_t most = 1U << 20U;
    for (memory.resize(4096);; memory.resize(2 * memory.size())) {
        Entry* found = nullptr;
        const int error = find(&entry, memory.data(), memory.size(), &found);
        if (error == EINTR) continue;
        if (error != ERANGE || memory.size() >= most) return found != nullptr;
    }
}

bool findUserById(uid_t uid, passwd& user, std::vector<char>& memory) {
    return findEntry(user, memory, [uid](auto... rest) { return ::getpwuid_r(uid, rest...); });
}

}  // namespace

bool Identity::isMemberOf(gid_t group) const noexcept {
    return gid == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool readIdentity(int fd, pid_t& pid, Identity& who) noexcept {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
    pid = credentials.pid;
    who.uid = credentials.uid;
    who.gid = credentials.gid;
    std::array<gid_t, 64> few{};
    size = sizeof few;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, few.data(), &size) == 0) {
        who.groups.assign(few.begin(), few.begin() + size / sizeof(gid_t));
        return true;
    }
    if (errno != ERANGE) return errno == ENODATA || errno == ENOPROTOOPT;
    who.groups.resize(size / sizeof(gid_t));
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, who.groups.data(), &size) == 0;
}

std::string programOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    std::array<char, 256> text{};
    auto size = ::readlink((folder + "/exe").c_str(), text.data(), text.size());
    if (size > 0) return util::printable({text.data(), static_cast<std::size_t>(size)});
    const net::Descriptor file{::open((folder + "/comm").c_str(), O_RDONLY | O_CLOEXEC)};
    size = file ? ::read(file.get(), text.data(), text.size()) : 0;
    if (size <= 1) return {};
    return "[" + util::printable({text.data(), static_cast<std::size_t>(size) - 1}) + "]";  // it ends with a newline
}

Identity ownIdentity() {
    Identity who{::geteuid(), ::getegid(), {}};
    const int count = ::getgroups(0, nullptr);
    who.groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    const int filled = ::getgroups(count, who.groups.data());
    who.groups.resize(static_cast<std::size_t>(std::max(filled, 0)));
    return who;
}

Identity identityOf(uid_t uid) {
    Identity who{uid, static_cast<gid_t>(-1), {}};
    passwd user{};
    std::vector<char> memory;
    if (!findUserById(uid, user, memory)) return who;
    who.gid = user.pw_gid;
    int count = 64;
    do {
        who.groups.resize(static_cast<std::size_t>(count));
    } while (::getgrouplist(user.pw_name, user.pw_gid, who.groups.data(), &count) < 0 &&
             static_cast<std::size_t>(count) > who.groups.size());
    who.groups.resize(std::min(who.groups.size(), static_cast<std::size_t>(count)));
    return who;
}

std::optional<uid_t> findUser(const std::string& name) {
    passwd user{};
    std::vector<char> memory;
    if (!findEntry(user, memory, [&](auto... rest) { return ::getpwnam_r(name.c_str(), rest...); })) return {};
    return user.pw_uid;
}

std::optional<gid_t> findGroup(const std::string& name) {
    group found{};
    std::vector<char> memory;
    if (!findEntry(found, memory, [&](auto... rest) { return ::getgrnam_r(name.c_str(), rest...); })) return {};
    return found.gr_gid;
}

std::string userText(uid_t uid) {
    passwd user{};
    std::vector<char> memory;
    return findUserById(uid, user, memory) ? user.pw_name : std::to_string(uid);
}

std::string groupText(gid_t gid) {
    group found{};
    std::vector<char> memory;
    const bool isKnown = findEntry(found, memory, [gid](auto... rest) { return ::getgrgid_r(gid, rest...); });
    return isKnown ? found.gr_name : std::to_string(gid);
}

}  // namespace kelo::policy
