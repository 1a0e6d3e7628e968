// The common part of the services of all resources: dispatches requests by their routes.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "hmx/route.h"
#include "kelo/resource_handler.h"
#include "tracing/channel.h"

namespace kelo::hmx {

// Thread: any; nothing here changes after construction.
class ResourceService : public IResourceHandler {
public:
    ~ResourceService() override = default;
    ResourceService(const ResourceService&) = delete;
    ResourceService& operator=(const ResourceService&) = delete;

    // A request that matches no route, or whose arguments cannot be read, is answered with an error; the error is logged at level
    // 4 on the service's channel and consumed.
    void* actionRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag) final;
    void cancelRequest(void* handle) final { cancel_(impl_, handle); }

protected:
    // `name`: the service's name in error texts. `impl`, the channel and the table are not owned and must outlive the service.
    // Throws std::invalid_argument if two routes have the same command and path.
    template <class Interface, std::size_t N>
    ResourceService(std::string_view name, Interface* impl, const RouteTable<Interface, N>& table,
                    const tracing::Channel& channel)
        : ResourceService{name, impl, [](void* erased, void* handle) { static_cast<Interface*>(erased)->cancelRequest(handle); },
                          table.routes, channel} {}

private:
    ResourceService(std::string_view name, void* impl, void (*cancel)(void* impl, void* handle), std::span<const Route> routes,
                    const tracing::Channel& channel);

    const std::string_view name_;
    void* const impl_;
    void (*const cancel_)(void* impl, void* handle);
    const std::span<const Route> routes_;
    const tracing::Channel& channel_;
};

}  // namespace kelo::hmx
