// One service that this process publishes: its lock on the path, its listening socket, its connections.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kelo/runtime/kelo_runtime.h"
#include "net/server_connection.h"
#include "runtime/context.h"

namespace kelo::runtime {

// A resource. Thread: the runtime's loop.
class Publication final : public std::enable_shared_from_this<Publication> {
public:
    // `platform`: answers requests below "/$platform".
    Publication(Context& context, std::string servicePath, SimpleComposedKeloService& handlers,
                IKeloRuntime::IKeloServiceTracker* tracker, std::function<void(const Request&, IResponder&)> platform);
    ~Publication();
    Publication(const Publication&) = delete;
    Publication& operator=(const Publication&) = delete;

    const std::string& servicePath() const noexcept { return service_->path; }
    const std::string& fileName() const noexcept { return fileName_; }
    bool isPublished() const noexcept { return listener_ != nullptr; }
    // Of each client, in the order of connecting.
    std::vector<net::ServerConnection::Usage> usage() const;

    // Claims the path and publishes; retries as long as that fails.
    void begin();
    // The directory has changed: publishes again if the socket's name no longer leads to it.
    void checkDirectory();
    // The policy has changed.
    void applyPolicy();
    // Removes the socket, gives up the path and ends the connections, without telling the tracker.
    void end();

private:
    class Listener;

    bool mayPublish();
    bool claim();
    bool removeForeignLock();
    bool mayConnect(const net::Peer& peer);
    bool bindAndRename();
    bool isInPlace() const;
    void withdraw();
    void accept();
    bool makeRoom();
    bool closeOldest(bool (*isMeant)(const net::ServerConnection&), const char* why);
    void admitReserved();
    void serve(net::Descriptor socket, net::Peer peer);
    bool hasShare(const net::Peer& peer);
    void setPolicy(net::ServerConnection& connection);
    void retryLater(std::chrono::milliseconds pause) { retry_.arm(net::Clock::now() + pause); }
    void logOnce(const std::string& text);

    Context& context_;
    const std::string fileName_;
    IKeloRuntime::IKeloServiceTracker* const tracker_;
    std::shared_ptr<net::ServerConnection::Service> service_;
    net::Descriptor lock_;
    std::shared_ptr<Listener> listener_;
    std::uint64_t socketInode_ = 0;
    std::vector<net::ServerConnection*> connections_;  // oldest first
    KeloServiceTrackerInfo info_;
    std::string lastLogged_;
    net::Timer retry_;
    net::Timer acceptAgain_;
};

}  // namespace kelo::runtime
