#include "runtime/domain.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kelo/uuid.h"
#include "net/unix_socket.h"
#include "util/safe_file.h"
#include "util/text.h"

// The directory is the registry: there is no daemon. A user who can write to it determines what a service path leads to. So it is
// created for its owner alone, and refused in any state in which somebody else could have put a socket into it. The checks are
// made on the open directory, not on its name, so nothing can be exchanged in between.
//
// With a policy, several users share a domain, and what they have in common is a group: of the directory and, because of its
// set-group-ID bit, of the sockets in it. Who can write to such a directory can still remove a socket, or put another one in its
// place, but is not believed to be somebody who may publish that path. If the policy cannot be used, its directory can still be:
// then nobody but our own user and root is believed to be anything.

namespace kelo::runtime {
namespace {

constexpr std::string_view socketSuffix = ".sock";

std::string environment(const char* name) {
    const char* const value = std::getenv(name);  // nobody sets the environment
    return value == nullptr ? std::string{} : std::string{value};
}

std::string baseDirectory(const std::string& domain) {
    if (auto directory = environment("KELO_RUNTIME_DIR"); !directory.empty()) return directory;
    if (auto directory = environment("XDG_RUNTIME_DIR"); !directory.empty()) return directory + "/kelo";
    std::string common = "/run/kelo";
    if (::access(common.c_str(), W_OK | X_OK) == 0 || ::access((common + "/" + domain).c_str(), R_OK | X_OK) == 0) return common;
    auto temporary = environment("TMPDIR");
    if (temporary.empty()) temporary = "/tmp";
    return temporary + "/kelo-" + std::to_string(::geteuid());
}

bool makeWithParents(const std::string& directory) {
    for (std::size_t at = directory.find('/', 1);; at = directory.find('/', at + 1)) {
        const std::string part = directory.substr(0, at);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
            // A parent may exist although we cannot create it.
            if (at == std::string::npos || ::access(part.c_str(), F_OK) != 0) return false;
        }
        if (at == std::string::npos) return true;
    }
}

std::string describe(const char* what) {
    return std::string{what} + ": " + std::strerror(errno);
}

// Why somebody could add or remove files in the directory who must not; empty if nobody can.
std::string unsafeReason(int directory, const std::string& name, const policy::PolicySource& policy) {
    struct stat status {};
    if (::fstat(directory, &status) != 0) return describe(("cannot look at " + name).c_str());
    const bool isShared = policy.current()->isInForce || policy.isBroken();
    if (isShared && (status.st_mode & S_ISGID) != 0) status.st_mode &= ~static_cast<mode_t>(S_IWGRP);
    const bool isForeign = status.st_uid != ::geteuid() && status.st_uid != 0;
    if (isForeign && policy.current()->letsPublish(policy::identityOf(status.st_uid))) status.st_uid = 0;
    const std::string why = util::unsafeReason(status, util::Sticky::isEnough);
    return why.empty() ? why : name + " " + why;
}

bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

}  // namespace

std::string domainDirectory(const RuntimeOptions& options) {
    if (!options.directory.empty()) return options.directory;
    return baseDirectory(options.domain) + "/" + options.domain;
}

policy::PolicySource policyFor(const RuntimeOptions& options) {
    policy::PolicySource policy{policy::policyDirectory(options.policyDirectory)};
    (void)policy.reload();
    return policy;
}

net::Descriptor openDomain(const std::string& directory, bool create, const policy::PolicySource& policy, std::string& error) {
    if (create && !makeWithParents(directory)) {
        error = describe(("cannot make the runtime directory " + directory).c_str());
        return {};
    }
    net::Descriptor opened{::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!opened) {
        struct stat link {};
        if (::lstat(directory.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
            error = "runtime directory " + directory + " is a symbolic link";
        } else {
            error = describe(("cannot open the runtime directory " + directory).c_str());
        }
        return {};
    }
    // A user who can rename the directory can replace it, so its parent must satisfy the same rules.
    const net::Descriptor parent{::openat(opened.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    error = unsafeReason(opened.get(), "runtime directory " + directory, policy);
    if (error.empty() && parent) error = unsafeReason(parent.get(), "the directory above runtime directory " + directory, policy);
    if (!error.empty()) return {};
    return opened;
}

mode_t socketMode(int directory, const policy::Policy& policy) noexcept {
    struct stat status {};
    const bool hasGroup = policy.isInForce && ::fstat(directory, &status) == 0 && (status.st_mode & S_ISGID) != 0;
    return hasGroup ? 0660 : 0600;
}

std::string socketName(const std::string& directory, std::string_view servicePath) {
    std::string name;
    util::appendPercentEncoded(name, servicePath, isPlain);
    name += socketSuffix;
    // A client that connects by the full path needs room for it in a socket address. The 24 bytes in reserve are part of the
    // protocol.
    constexpr std::size_t room = sizeof(sockaddr_un::sun_path) - 1 - 24;
    if (directory.size() + 1 + name.size() <= room) return name;
    return "#" + kelo::uuid::createFromName(servicePath).toString().substr(0, 18) + std::string{socketSuffix};
}

std::string servicePathOf(std::string_view fileName) {
    if (!fileName.ends_with(socketSuffix)) return {};
    fileName.remove_suffix(socketSuffix.size());
    std::string path;
    std::string name;
    if (!util::percentDecode(fileName, path)) return {};
    util::appendPercentEncoded(name, path, isPlain);
    return name == fileName ? path : std::string{};
}

std::string domainName(std::string_view usual) {
    std::string name = environment("KELO_DOMAIN");
    return name.empty() ? std::string{usual} : name;
}

bool isDomainName(std::string_view name) noexcept {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos;
}

SocketState probeSocket(const RuntimeOptions& options, std::string_view servicePath, std::chrono::milliseconds wait) {
    const std::string directory = domainDirectory(options);
    std::string error;
    const net::Descriptor opened = openDomain(directory, false, policyFor(options), error);
    if (!opened) return SocketState::dead;
    const net::Descriptor socket = net::connectTo(opened.get(), socketName(directory, servicePath));
    // A full queue of connections also shows that somebody listens.
    if (!socket) return errno == EAGAIN ? SocketState::silent : SocketState::dead;
    pollfd reading{socket.get(), POLLIN, 0};
    return ::poll(&reading, 1, static_cast<int>(wait.count())) > 0 ? SocketState::closed : SocketState::silent;
}

std::optional<uid_t> socketOwner(const RuntimeOptions& options, std::string_view servicePath) {
    const std::string directory = domainDirectory(options);
    struct stat status {};
    if (::lstat((directory + "/" + socketName(directory, servicePath)).c_str(), &status) != 0) return {};
    return status.st_uid;
}

std::vector<std::optional<Stranger>> findStrangers(const RuntimeOptions& options, std::span<const std::string> servicePaths) {
    std::vector<std::optional<Stranger>> found(servicePaths.size());
    std::optional<policy::PolicySource> source;
    for (std::size_t i = 0; i < servicePaths.size(); ++i) {
        const std::optional<uid_t> owner = socketOwner(options, servicePaths[i]);
        if (!owner || *owner == ::geteuid()) continue;
        if (!source) source.emplace(policyFor(options));
        const policy::Policy& policy = *source->current();
        const policy::Decision trust = policy.mayPublish(policy::identityOf(*owner), servicePaths[i], *owner == 0);
        const bool isServed = ::geteuid() == 0 || policy.isAbout(policy::ownIdentity(), servicePaths[i]);
        if ((trust.allowed && isServed) || policy.audits) continue;
        const std::string why = trust.allowed ? "no rule of the policy is about you" : policy.reasonOf(trust);
        found[i] = Stranger{*owner, policy.isInForce ? why : ""};
    }
    return found;
}

}  // namespace kelo::runtime
