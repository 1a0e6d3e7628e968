// The runtime: finding, watching and publishing services.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "comm/active_object.h"
#include "kelo/composed_service.h"
#include "kelo/kelo_api.h"
#include "kelo/limits.h"

namespace kelo::runtime {

// One incarnation of a service, as a tracker learns of it. Thread: any (a value).
struct KeloServiceTrackerInfo {
    std::string servicePath;
    std::string applicationName;         // the provider's, as it says
    pid_t pid = 0;                       // the provider's, as the kernel says
    uid_t uid = 0;                       // likewise
    std::vector<std::string> mimeTypes;  // in the provider's order of preference
    std::uint64_t incarnation = 0;       // counts this tracker's sightings of the service, from 1
};

// The first of the provider's mime types that has a structured serialiser, else "application/json". Thread: any.
[[nodiscard]] std::string_view getMimeType(const KeloServiceTrackerInfo& info) noexcept;
// Likewise for an accept header: names divided by commas, in order of preference, parameters ignored.
[[nodiscard]] std::string_view getMimeType(std::string_view acceptHeader) noexcept;

// Thread: any. Callbacks come on the runtime's threads, one at a time for each handle; none comes, and none is still running,
// once the call that ends its handle has returned (unless that call is made from the callback itself). Such a call also waits
// until the connection has left a reader that is no longer wanted; but not on a worker's thread, which the reader might be
// waiting for: there, handlers may be called on the reader for a moment longer.
class IKeloRuntime {
public:
    static constexpr std::uint64_t UNDEFINED_TRACKER_HANDLE = 0;
    static constexpr std::uint64_t UNDEFINED_RESOLVER_HANDLE = 0;

    // Hears of a service's incarnations: added and removed strictly in turn.
    class IKeloServiceTracker {
    public:
        virtual ~IKeloServiceTracker() = default;
        virtual void added(const KeloServiceTrackerInfo& info) = 0;
        virtual void modified(const KeloServiceTrackerInfo& info) = 0;
        virtual void removed() = 0;
    };

    // Hears of a service's API: resolved and gone strictly in turn, for every incarnation while the handle lives. The API stays
    // valid for the life of the handle; between gone and resolved it refuses requests with 503.
    class IKeloServiceResolver {
    public:
        virtual ~IKeloServiceResolver() = default;
        virtual void resolved(std::uint64_t handle, IKeloApi* api) = 0;
        virtual void gone() = 0;
    };

    virtual ~IKeloRuntime() = default;

    // Begins to serve; trackers and registrations made before wait for it. `flags`: 0. True on success; the reason of a failure
    // is in the error store and the log.
    virtual bool start(int flags) = 0;

    // Begins to track a service, there or not. `flags`: 0. The tracker outlives its handle.
    virtual std::uint64_t trackService(std::string_view path, IKeloServiceTracker& tracker, int flags) = 0;
    virtual void untrackService(std::uint64_t trackerHandle) = 0;
    // Drops what is held of the incarnation that went away; tracking goes on.
    virtual void releaseService(std::uint64_t trackerHandle) = 0;

    // Opens a resolver on a service that is tracked; UNDEFINED_RESOLVER_HANDLE when it is not. `reader`: the worker that reads
    // the service's connection between its events, and on which the API's handlers are then called, so that an answer meant for
    // that worker needs no hand-over; null for the runtime's own thread. The worker outlives the handle.
    virtual std::uint64_t openResolver(const KeloServiceTrackerInfo& info, IKeloServiceResolver& resolver,
                                       comm::ActiveObject* reader = nullptr) = 0;
    virtual void closeResolver(std::uint64_t resolverHandle) = 0;

    // Ends everything that is tracked, resolved and published, silently. Safe to repeat; the destructor does it too. Readers
    // still run, and are waited for, unless the runtime's own thread calls this.
    virtual void stop() = 0;

    // Publishes `service` under `path`; `tracker`, which may be null, hears `added` when clients can reach it and `removed` when
    // they no longer can. A path that another process has is taken over when that ends.
    virtual std::uint64_t registerService(std::string_view path, SimpleComposedKeloService& service,
                                          IKeloServiceTracker* tracker) = 0;
    virtual void unregisterService(std::uint64_t trackerHandle) = 0;
};

struct RuntimeOptions {
    std::string directory;  // the domain's; empty: chosen from the environment and `domain`
    std::string domain = "local";
    std::string applicationName;
    std::vector<std::string> mimeTypes{"application/json", "application/vnd.msgpack", "application/vnd.ixobin"};
    Limits limits;
};

// A runtime of one's own: as many as wanted in a process. Destroying it ends what is tracked, resolved and published.
[[nodiscard]] std::unique_ptr<IKeloRuntime> createRuntime(RuntimeOptions options);

// The names of the services that have a socket in the domain now, alive or not, sorted; for tools. True in `failed` with the
// reason in the error store when the directory cannot be read.
[[nodiscard]] std::vector<std::string> listServices(const RuntimeOptions& options, bool& failed);

// The process's one runtime, as the framework's programs know it.
class KeloRuntime {
public:
    // Once, before getInstance.
    static void setup(std::string_view domain, std::string_view applicationName);
    static IKeloRuntime* getInstance();
};

}  // namespace kelo::runtime
