// The handler of a bridge's upstream requests: brings each event to the bridge's worker.
#pragma once

#include <cstddef>
#include <utility>

#include "kelo/func_call_event.h"
#include "kelo/response_handler.h"
#include "util/block_pool.h"

namespace hmx {

// `Receiver` is a small value that knows the bridge and the request. It names the type that it receives, `Value`, and has the
// const functions onNext(const Value&), onError(const kelo::Response&) and onCompleted(), which run on the worker. Copies of it
// outlive the handler in queued events; the bridge outlives those.
//
// If the worker itself reads the API's connection, it calls the handler between events: nothing is copied or queued then. For the
// request this makes no difference. Its events still come one after another, and a bridge's requests can handle an event that
// comes before the call that makes them has returned. Thread: any, one call at a time.
template <class Receiver>
class UpstreamHandler final : public kelo::IResponseHandler<typename Receiver::Value>, public util::Pooled {
public:
    using ReceiverType = Receiver;
    using Value = typename Receiver::Value;

    // `oneShot`: only one value is wanted. `account`: that of the client that wants it. Neither the worker nor the receiver's
    // bridge is owned.
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
