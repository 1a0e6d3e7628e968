#include "hmx/client/client.h"

namespace hmx::client {
Client::Client(ClientOptions options) : options_{std::move(options)}, domain_{makeDomain(dispatcher_, options_.domain)} {}

Client::Client(ClientOptions options, const DomainMaker& maker) : options_{std::move(options)}, domain_{maker(dispatcher_)} {}

Client::~Client() = default;

Task<Service> Client::service(std::string path, Deadline deadline, RequestStyle style) {
    const Deadline until = options_.appearance ? deadline.atMost(*options_.appearance) : deadline;
    kelo::IKeloApi* const api = co_await domain_->attach(path, until);
    co_return Service{dispatcher_, *api, std::move(path), std::move(style)};
}

}  // namespace hmx::client
