// Cancellations take the same way as requests, so one always finds its request already begun. The number that a request gets when
// it comes in is its handle; who has the request is known by that number until the request is over.
#include "entrance.h"

#include <utility>

namespace hmxrelay {

// Says that the request is over when nobody can answer it any more.
class Entrance::Ticket final : public kelo::IResponder {
public:
    Ticket(std::unique_ptr<kelo::IResponder> responder, std::shared_ptr<Visitors> visitors, Number number)
        : responder_{std::move(responder)}, visitors_{std::move(visitors)}, number_{number} {}
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;
    ~Ticket() override { visitors_->erase(number_); }

    bool next(const kelo::Response& response) override { return responder_->next(response); }
    void error(const kelo::Response& response) override { responder_->error(response); }
    void completed() override { responder_->completed(); }
    kelo::Account* account() const noexcept override { return responder_->account(); }

private:
    std::unique_ptr<kelo::IResponder> responder_;
    std::shared_ptr<Visitors> visitors_;
    Number number_;
};

Entrance::Entrance(hmx::client::Dispatcher& dispatcher, Admit admit)
    : admit_{std::move(admit)}, arrived_{dispatcher}, raiser_{arrived_.raiser()}, visitors_{std::make_shared<Visitors>()} {
    arrived_.onRaised([this] { takeAll(); });
}

Entrance::~Entrance() = default;

void* Entrance::actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string& tag) {
    const Number number = ++last_;
    put({number, Visitor{request, std::move(responder), tag}});
    return reinterpret_cast<void*>(number);
}

void Entrance::cancelRequest(void* handle) {
    put({reinterpret_cast<Number>(handle), std::nullopt});
}

void Entrance::put(Arrival arrival) {
    {
        const std::lock_guard lock{mutex_};
        arrivals_.push_back(std::move(arrival));
    }
    raiser_.raiseOrAnswer();
}

void Entrance::takeAll() {
    std::vector<Arrival> arrivals;
    {
        const std::lock_guard lock{mutex_};
        arrivals.swap(arrivals_);
    }
    for (auto& [number, visitor] : arrivals) {
        if (visitor) {
            visitors_->emplace(number, Place{});
            visitor->responder = std::make_unique<Ticket>(std::move(visitor->responder), visitors_, number);
            const Place place = admit_(std::move(*visitor));
            if (const auto found = visitors_->find(number); found != visitors_->end()) found->second = place;
        } else if (const auto found = visitors_->find(number); found != visitors_->end()) {
            const Place place = found->second;
            if (place.handler != nullptr && place.handle != nullptr) place.handler->cancelRequest(place.handle);
        }
    }
}

}  // namespace hmxrelay
