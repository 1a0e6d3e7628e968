#include "hmx/client/client.h"

#include <algorithm>
#include <array>

#include "hmx/displaymanager/service_path.h"
#include "hmx/inputregions/service_path.h"

namespace hmx::client {

Client::Client(ClientOptions options) : options_{std::move(options)}, domain_{makeDomain(dispatcher_, options_.domain)} {}

Client::Client(ClientOptions options, const DomainMaker& maker) : options_{std::move(options)}, domain_{maker(dispatcher_)} {}

Client::~Client() = default;

std::string Client::placeOf(std::string path) const {
    if (path == hmxService) return options_.service;
    constexpr std::array upstream{kelo::hmx::displaymanager::servicePath, kelo::hmx::inputregions::servicePath};
    const std::size_t origin = options_.service.find('@');
    if (origin == std::string::npos || std::find(upstream.begin(), upstream.end(), path) == upstream.end()) return path;
    return path + options_.service.substr(origin);
}

Task<Service> Client::service(std::string path, Deadline deadline, RequestStyle style) {
    path = placeOf(std::move(path));
    const Deadline until = options_.appearance ? deadline.atMost(*options_.appearance) : deadline;
    kelo::IKeloApi* const api = co_await domain_->attach(path, until);
    co_return Service{dispatcher_, *api, std::move(path), std::move(style)};
}

}  // namespace hmx::client
