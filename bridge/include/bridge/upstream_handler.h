// The handler of a bridge's upstream requests: carries each event to the bridge's worker.
#pragma once

#include <cstddef>
#include <utility>

#include "kelo/func_call_event.h"
#include "kelo/response_handler.h"
#include "util/block_pool.h"

namespace hmx {

// `Receiver` is a small value that knows the bridge and the request. It names what it receives, `Value`, and has the functions
// onNext(const Value&), onError(const kelo::Response&) and onCompleted(), const all of them, which run on the worker. Copies of
// it outlive the handler in the events that are queued; the bridge outlives those.
//
// An API that is read by the worker itself calls the handler there, between events; nothing needs to be handed over then, and
// neither copied nor queued. It makes no difference to the request: its events still come one after the other, as an API keeps to
// one thread, and the requests of a bridge cope with an event from inside the very call that makes them. Thread: any, one call at
// a time.
template <class Receiver>
class UpstreamHandler final : public kelo::IResponseHandler<typename Receiver::Value>, public util::Pooled {
public:
    using ReceiverType = Receiver;
    using Value = typename Receiver::Value;

    // `oneShot`: one value is all that is wanted. `account`: of whoever wants it. Neither worker nor receiver's bridge is owned.
    UpstreamHandler(comm::ActiveObject& worker, bool oneShot, kelo::Account* account, Receiver receiver)
        : worker_{worker}, receiver_{std::move(receiver)}, account_{account}, oneShot_{oneShot} {}

    bool onNext(const Value& value) override {
        handOver(value, [](const Receiver& receiver, const Value& copy) { receiver.onNext(copy); });
        return oneShot_;
    }
    void onError(const kelo::Response& response) override {
        handOver(response, [](const Receiver& receiver, const kelo::Response& copy) { receiver.onError(copy); });
    }
    void onCompleted() override {
        handOver(nullptr, [](const Receiver& receiver, std::nullptr_t) { receiver.onCompleted(); });
    }
    bool isOneShot() const override { return oneShot_; }
    kelo::Account* account() const override { return account_; }

private:
    template <class Argument, class Event>
    void handOver(const Argument& argument, Event event) {
        if (worker_.isCurrentThread()) {
            event(receiver_, argument);
        } else {
            kelo::post(worker_, [receiver = receiver_, argument, event] { event(receiver, argument); });
        }
    }

    comm::ActiveObject& worker_;
    Receiver receiver_;
    kelo::Account* account_;
    bool oneShot_;
};

}  // namespace hmx
