// The runtime: finds, tracks and publishes services.
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

// One incarnation of a service, as a tracker sees it. Thread: any (a value).
struct KeloServiceTrackerInfo {
    std::string servicePath;
    std::string applicationName;         // the provider's, from its hello
    pid_t pid = 0;                       // the provider's, from the kernel
    uid_t uid = 0;                       // likewise
    std::vector<std::string> mimeTypes;  // in the provider's order of preference
    std::uint64_t incarnation = 0;       // counts this tracker's sightings of the service, from 1
};

// The provider's first mime type that has a structured serialiser, else "application/json". Thread: any.
[[nodiscard]] std::string_view getMimeType(const KeloServiceTrackerInfo& info) noexcept;
// The same for an accept header: names separated by commas, in order of preference; parameters are ignored.
[[nodiscard]] std::string_view getMimeType(std::string_view acceptHeader) noexcept;

// Thread: any. Callbacks run on the runtime's threads, one at a time for each handle. Once the call that ends a handle has
// returned, no callback of that handle is running or will run (unless the call was made from the callback itself). Such a call
// also waits until a reader that is no longer wanted has let go of the connection. On a worker's thread it does not wait, because
// the reader might be waiting for that worker: there, handlers may still be called on the reader for a moment.
class IKeloRuntime {
public:
    static constexpr std::uint64_t UNDEFINED_TRACKER_HANDLE = 0;
    static constexpr std::uint64_t UNDEFINED_RESOLVER_HANDLE = 0;

    // Is told of a service's incarnations. `added` and `removed` strictly alternate.
    class IKeloServiceTracker {
    public:
        virtual ~IKeloServiceTracker() = default;
        virtual void added(const KeloServiceTrackerInfo& info) = 0;
        virtual void modified(const KeloServiceTrackerInfo& info) = 0;
        virtual void removed() = 0;
    };

    // Is given a service's API. `resolved` and `gone` strictly alternate, for every incarnation while the handle exists. The API
    // is valid as long as the handle; between `gone` and `resolved` it answers requests with 503.
    class IKeloServiceResolver {
    public:
        virtual ~IKeloServiceResolver() = default;
        virtual void resolved(std::uint64_t handle, IKeloApi* api) = 0;
        virtual void gone() = 0;
    };

    virtual ~IKeloRuntime() = default;

    // Starts serving; trackers and registrations made earlier take effect now. `flags`: 0. True on success; the reason for a
    // failure is in the error store and in the log.
    virtual bool start(int flags) = 0;

    // Starts to track a service, whether or not it exists. `flags`: 0. The tracker must outlive its handle.
    virtual std::uint64_t trackService(std::string_view path, IKeloServiceTracker& tracker, int flags) = 0;
    virtual void untrackService(std::uint64_t trackerHandle) = 0;
    // Drops what is held of the incarnation that is gone; tracking continues.
    virtual void releaseService(std::uint64_t trackerHandle) = 0;

    // Opens a resolver for a tracked service; UNDEFINED_RESOLVER_HANDLE if the service is not tracked. `reader`: the worker that
    // reads the service's connection between its events and calls the API's handlers, so that an answer meant for that worker
    // needs no hand-over; null for the runtime's own thread. The worker must outlive the handle.
    virtual std::uint64_t openResolver(const KeloServiceTrackerInfo& info, IKeloServiceResolver& resolver,
                                       comm::ActiveObject* reader = nullptr) = 0;
    virtual void closeResolver(std::uint64_t resolverHandle) = 0;

    // Ends everything that is tracked, resolved and published, without callbacks. May be called repeatedly; the destructor calls
    // it too. It waits for the readers, which must still be running, unless it is called on the runtime's own thread.
    virtual void stop() = 0;

    // Publishes `service` under `path`. `tracker` may be null; it gets `added` when clients can reach the service, and `removed`
    // when they no longer can. If another process holds the path, the service takes over when that process ends.
    virtual std::uint64_t registerService(std::string_view path, SimpleComposedKeloService& service,
                                          IKeloServiceTracker* tracker) = 0;
    virtual void unregisterService(std::uint64_t trackerHandle) = 0;

    // Reads the policy again. This also happens by itself when its files change, in a process that publishes anything.
    virtual void reloadPolicy() {}
};

struct RuntimeOptions {
    std::string directory;  // of the domain; empty: chosen from the environment and `domain`
    std::string domain = "local";
    std::string policyDirectory;  // empty: $KELO_POLICY_DIR, else /etc/kelo/policy.d
    std::string applicationName;
    std::vector<std::string> mimeTypes{"application/json", "application/vnd.msgpack", "application/vnd.ixobin"};
    Limits limits;
};

// Creates a runtime; a process may have several. Its destructor ends what is tracked, resolved and published.
[[nodiscard]] std::unique_ptr<IKeloRuntime> createRuntime(RuntimeOptions options);

// The names of the services that have a socket in the domain, whether or not anybody listens, sorted; for tools. `failed` is true
// if the directory cannot be read; the reason is in the error store.
[[nodiscard]] std::vector<std::string> listServices(const RuntimeOptions& options, bool& failed);

// The one runtime of a process, as the framework's programs use it.
class KeloRuntime {
public:
    // Once, before getInstance.
    static void setup(std::string_view domain, std::string_view applicationName);
    static IKeloRuntime* getInstance();
};

}  // namespace kelo::runtime
