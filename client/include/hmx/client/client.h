// A program's way to /hmx and the services beside it: everything else in this library starts from here.
//
//     hmx::client::Client hmx;
//     for (const auto& display : hmx.run(hmx::client::list<kelo::hmx::DisplayObject>(hmx))) std::cout << display.name << '\n';
//
// docs/client.md tells how to use it from a loop of one's own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "hmx/client/dispatcher.h"
#include "hmx/client/domain.h"
#include "hmx/client/resources.h"
#include "hmx/client/service.h"

namespace hmx::client {

// Thread: any (a value).
struct ClientOptions {
    DomainOptions domain{};
    RequestStyle style{};
    // The path under which /hmx is asked for. With "/hmx@cluster", the upstream services are those of that origin, too:
    // "/hmxinputmanager@cluster".
    std::string service{hmxService};
    std::chrono::milliseconds timeout{5000};  // of what is asked without a deadline
    // How long a service that is away is waited for; nothing: as long as the deadline allows.
    std::optional<std::chrono::milliseconds> appearance{};
};

// A resource; destroy what stands on it first. Thread: one, its owner's; callbacks come on it, too. The runtime has threads of
// its own, on which no code of the program runs.
class Client {
public:
    explicit Client(ClientOptions options = {});
    // With services found elsewhere: for tests.
    using DomainMaker = std::function<std::unique_ptr<Domain>(Dispatcher&)>;
    Client(ClientOptions options, const DomainMaker& maker);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client();

    Dispatcher& dispatcher() noexcept { return dispatcher_; }
    Domain& domain() noexcept { return *domain_; }
    const ClientOptions& options() const noexcept { return options_; }

    // The service, waited for until the deadline if it is away; see ClientOptions::service. Errors: see Domain::attach.
    Task<Service> service(std::string path, Deadline deadline) { return service(std::move(path), deadline, options_.style); }
    Task<Service> service(std::string path, Deadline deadline, RequestStyle style);

    // Where the options look for the service of this path.
    std::string placeOf(std::string path) const;

    // `timeout` from now.
    Deadline deadline() const { return Deadline{options_.timeout}; }

    // See Dispatcher.
    int descriptor() const noexcept { return dispatcher_.descriptor(); }
    std::optional<Dispatcher::Clock::time_point> nextTimer() const noexcept { return dispatcher_.nextTimer(); }
    void dispatch() { dispatcher_.dispatch(); }
    template <class T>
    T run(Task<T> task) {
        return dispatcher_.run(std::move(task));
    }
    template <class T, class F>
    Operation start(Task<T> task, F done) {
        return dispatcher_.start(std::move(task), std::move(done));
    }

private:
    ClientOptions options_;
    Dispatcher dispatcher_;
    std::unique_ptr<Domain> domain_;
};

}  // namespace hmx::client
