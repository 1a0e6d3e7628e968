// Where requests to a published service come in: from the runtime's threads to the dispatcher's.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <variant>
#include <vector>

#include "hmx/client/dispatcher.h"
#include "kelo/resource_handler.h"

namespace hmxrelay {

// A request that has been let in. It is over when its responder is destroyed. Thread: the dispatcher's.
struct Visitor {
    kelo::Request request;
    std::unique_ptr<kelo::IResponder> responder;
    std::string tag;
};

// A resource. Thread: the dispatcher's, but for what IResourceHandler declares.
class Entrance final : public kelo::IResourceHandler {
public:
    // Answers a visitor, at once or later. Returns the handler that has the request, with its handle there, or nothing to cancel.
    struct Place {
        kelo::IResourceHandler* handler = nullptr;
        void* handle = nullptr;
    };
    using Admit = std::function<Place(Visitor visitor)>;

    Entrance(hmx::client::Dispatcher& dispatcher, Admit admit);
    ~Entrance() override;
    Entrance(const Entrance&) = delete;
    Entrance& operator=(const Entrance&) = delete;

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override;
    void cancelRequest(void* handle) override;

private:
    using Number = std::uintptr_t;
    using Visitors = std::unordered_map<Number, Place>;
    struct Arrival {
        Number number = 0;
        std::optional<Visitor> visitor;  // nothing: a cancellation
    };
    class Ticket;

    void takeAll();
    void put(Arrival arrival);

    Admit admit_;
    hmx::client::Signal arrived_;
    const hmx::client::Signal::Raiser raiser_;
    std::atomic<Number> last_ = 0;
    std::mutex mutex_;
    std::vector<Arrival> arrivals_;
    std::shared_ptr<Visitors> visitors_;  // who is in; tickets may outlive the entrance
};

}  // namespace hmxrelay
