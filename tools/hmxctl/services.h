// The services of a domain, as this tool reaches them.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "deadline.h"
#include "kelo/kelo_api.h"

namespace hmxctl {

struct Arguments;

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
    std::string application;  // this and what follows only while alive
    pid_t pid = 0;
    std::vector<std::string> mimeTypes;
};

// Thread: main.
class Services {
public:
    virtual ~Services() = default;

    // The API of a service, good for the life of this object; it refuses requests with 503 while the service is away. Waits for
    // the service until `deadline`; the first call for a path gives up early on one that seems not to be there, unless the
    // command line says how long to wait. Errors: Failure, serviceAbsent when it is not there, notPermitted when it is another
    // user's.
    virtual kelo::IKeloApi& attach(std::string_view path, const Deadline& deadline) = 0;

    // All services that have a place in the domain, sorted by path. Errors: Failure when the domain cannot be read.
    virtual std::vector<ServiceState> list(const Deadline& deadline) = 0;

    // The domain, as a message would name it.
    virtual std::string where() const = 0;
};

// Those that the arguments choose. Nothing is opened before it is needed.
[[nodiscard]] std::unique_ptr<Services> createServices(const Arguments& arguments);

}  // namespace hmxctl
