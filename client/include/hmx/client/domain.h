// The services of a domain: finding them, and seeing which there are.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/deadline.h"
#include "hmx/client/task.h"
#include "kelo/kelo_api.h"

namespace hmx::client {

class Dispatcher;

enum class Life : std::uint8_t {
    alive,
    stale,    // its process has ended
    hung,     // its process exists, but does not answer
    full,     // it accepts no more clients
    refused,  // another user's, so that its life cannot be told
};
[[nodiscard]] std::string_view nameOf(Life life) noexcept;

// What is known of a service that has a place in the domain. Thread: any (a value).
struct ServiceState {
    std::string path;
    Life life = Life::stale;
    uid_t uid = 0;            // while alive or refused
    std::string application;  // this and the next two only while alive
    pid_t pid = 0;
    std::vector<std::string> mimeTypes;
    std::string rule{};  // while refused: of the policy, that says no; empty without a policy
};

// A resource, which outlives the services that it finds. Thread: the dispatcher's.
class Domain {
public:
    virtual ~Domain() = default;

    // The API of a service, good for the life of this object; it refuses requests with 503 while the service is away. Waits for
    // the service until `deadline`. Errors: Error, noService, serviceDead, serviceHung, serviceFull, foreign, noDomain,
    // closedDomain, or late: the process exists, and `deadline` was too short to call it hung.
    virtual Task<kelo::IKeloApi*> attach(std::string path, Deadline deadline) = 0;

    // All services that have a place in the domain, sorted by path. Errors: Error, noDomain or closedDomain.
    virtual Task<std::vector<ServiceState>> list(Deadline deadline) = 0;

    // Whether a service that has been attached is there now. When that changes, the dispatcher has something to dispatch.
    virtual bool isAlive(std::string_view path) const = 0;

    // The domain, as a message would name it.
    virtual std::string where() const = 0;
};

// Thread: any (a value).
struct DomainOptions {
    std::string runtimeDirectory{};  // that holds the domains; "": chosen from the environment
    std::string domain{};            // its name; "": from the environment
    std::string applicationName{};   // for the services' status; "": the program's
    // Whether the first look for a service waits for it until the deadline. If not, it gives up early on one that seems not to be
    // there: after 0.15 s if it has no socket, 1.5 s if it has.
    bool patient = true;
    // How long to wait, without dispatching anything, for a service that is silent to close the connection, to tell one that is
    // full from one that hangs. Zero: both count as hanging.
    std::chrono::milliseconds probe{0};
};

// The directory of the domain that the options choose, whether or not there is one.
[[nodiscard]] std::string domainDirectory(const DomainOptions& options);

// The domain that the options choose. Nothing is opened before it is needed. `dispatcher` outlives it.
[[nodiscard]] std::unique_ptr<Domain> makeDomain(Dispatcher& dispatcher, const DomainOptions& options);

}  // namespace hmx::client
