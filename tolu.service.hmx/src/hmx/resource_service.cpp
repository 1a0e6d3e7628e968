// A request is dispatched on the thread that delivers it, and nothing of it is kept here. Its answers go from the implementation
// of the interface through the response handler, which owns the responder, directly to the client. An error in a request is found
// before the implementation is called.
//
// The services differ only in their tables. A table is built from the interface's methods: their signatures determine what is
// read from the request, in which order, and the type of the answers. The table is checked against the interface at compile time
// and type-erased after that, so there is only one dispatcher.
#include "hmx/resource_service.h"

#include <algorithm>
#include <stdexcept>

#include "kelo/path.h"
#include "util/text.h"

namespace kelo::hmx {

namespace {

constexpr std::size_t longestReason = 1024;  // bytes; the most that the error store holds

std::string quoted(std::string_view command, std::string_view path) {
    return "command '" + util::printable(command) + "' and path '" + util::printable(path) + "'";
}

}  // namespace

bool Route::matches(int requestCommand, std::string_view requestPath) const noexcept {
    return requestCommand == command && (isForElement ? Path::matches(requestPath, path) : requestPath == path);
}

ResourceService::ResourceService(std::string_view name, void* impl, void (*cancel)(void* impl, void* handle),
                                 std::span<const Route> routes, const tracing::Channel& channel)
    : name_{name}, impl_{impl}, cancel_{cancel}, routes_{routes}, channel_{channel} {
    for (auto route = routes.begin(); route != routes.end(); ++route) {
        const auto isTaken = [&](const Route& other) { return other.command == route->command && other.path == route->path; };
        if (std::any_of(routes.begin(), route, isTaken)) {
            throw std::invalid_argument{std::string{name} + ": two routes for " +
                                        quoted(commands::toName(route->command), route->path)};
        }
    }
}

void* ResourceService::actionRequest(const Request& request, std::unique_ptr<IResponder> responder, const std::string& tag) {
    const int command = commands::toId(request.command());
    const auto isMeant = [&](const Route& route) { return route.matches(command, request.path()); };
    const auto route = std::find_if(routes_.begin(), routes_.end(), isMeant);

    ResourceRequest resourceRequest{request, std::move(responder), tag, name_};
    void* handle = IKeloApi::UNDEFINED_REQUEST_HANDLE;
    if (route == routes_.end()) {
        resourceRequest.refuse(errors::noSuchResource,
                               std::string{name_} + ": no operation for " + quoted(request.command(), request.path()));
    } else if (!resourceRequest.enter(*route)) {
        handle = route->start(impl_, resourceRequest);
    }
    if (resourceRequest.wasRefused()) {
        tracing::logCV(channel_, 4, "[actionRequest] failed: cmd='%s' path='%s' reason='%s'",
                       util::printable(request.command()).c_str(), util::printable(request.path()).c_str(),
                       util::printable(std::ErrorStorage::reason(), longestReason).c_str());
        std::ErrorStorage::ack();
    }
    return handle;
}

}  // namespace kelo::hmx
