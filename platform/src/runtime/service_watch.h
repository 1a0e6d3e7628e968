// One service that is tracked: its connection, its trackers and resolvers, and the API that they share.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelo/runtime/kelo_runtime.h"
#include "net/client_connection.h"
#include "runtime/context.h"

namespace kelo::runtime {

// Thread: any.
class ServiceProxy final : public IKeloApi {
public:
    explicit ServiceProxy(std::string servicePath) : servicePath_{std::move(servicePath)} {}

    void* request(const Request& request, std::unique_ptr<IResponseHandler<Response>>&& handler, RequestLimits limits) override;
    void cancel(void* handle) override;

    void attach(std::shared_ptr<net::ClientConnection> connection);
    void detach();
    std::shared_ptr<net::ClientConnection> connection() const;

private:
    const std::string servicePath_;
    mutable std::mutex mutex_;
    std::shared_ptr<net::ClientConnection> connection_;
};

// A resource. Thread: the runtime's loop.
class ServiceWatch final : public std::enable_shared_from_this<ServiceWatch> {
public:
    ServiceWatch(Context& context, std::string servicePath);
    ~ServiceWatch();
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    const std::string& servicePath() const noexcept { return servicePath_; }
    const std::string& fileName() const noexcept { return fileName_; }
    bool isAlive() const noexcept { return alive_; }
    bool isUnused() const noexcept { return trackers_.empty() && resolvers_.empty(); }
    const KeloServiceTrackerInfo& info() const noexcept { return info_; }
    net::ClientConnection::Usage usage() const;

    void addTracker(std::uint64_t handle, IKeloRuntime::IKeloServiceTracker& tracker);
    bool removeTracker(std::uint64_t handle);
    // The resolver is told of the current incarnation, if there is one, after the caller has returned.
    void addResolver(std::uint64_t handle, IKeloRuntime::IKeloServiceResolver& resolver, comm::ActiveObject* reader);
    bool removeResolver(std::uint64_t handle);

    // Something may have changed in the directory: connects unless there is a connection.
    void checkDirectory();
    // The policy has changed: gives up a provider that it does not let publish the path.
    void applyPolicy();
    // The connection, if there is one; for callers that must wait until it has moved.
    const std::shared_ptr<net::ClientConnection>& connection() const noexcept { return connection_; }
    // Gives up trackers and resolvers without telling them, and ends the connection.
    void abandon(const char* why);

private:
    struct Tracker {
        std::uint64_t handle;
        IKeloRuntime::IKeloServiceTracker* tracker;
        bool isNotified;
    };
    struct Resolver {
        std::uint64_t handle;
        IKeloRuntime::IKeloServiceResolver* resolver;
        comm::ActiveObject* reader;
        bool isNotified;
    };

    void tryToConnect();
    bool isTrusted(const net::Peer& peer) const;
    void logCannotConnect(const char* why) const;
    void retryLater();
    void ready(net::ClientConnection& connection, const net::Peer& peer, const wire::Hello& hello);
    void lost(const net::ClientConnection* connection);
    void notifyLater();
    void notifyAlive();
    void notifyGone();
    void updateReader();

    Context& context_;
    const std::string servicePath_;
    const std::string fileName_;
    ServiceProxy proxy_;
    std::shared_ptr<net::ClientConnection> connection_;
    KeloServiceTrackerInfo info_;
    bool alive_ = false;
    net::Clock::time_point aliveSince_{};
    bool mayHaveSuccessor_ = false;  // the directory changed while there was a connection
    std::vector<Tracker> trackers_;
    std::vector<Resolver> resolvers_;
    net::Timer retry_;
    std::chrono::milliseconds backoff_;
};

}  // namespace kelo::runtime
