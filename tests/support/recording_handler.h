// A response handler that records its events.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kelo/response_handler.h"

namespace support {

// The events of one or several handlers; outlives them.
template <class T>
struct Heard {
    std::vector<T> values;
    std::vector<kelo::Response> errors;
    int completed = 0;
    int destroyed = 0;           // handlers that have been destroyed
    bool finishOnNext = false;   // what onNext returns, after `then`
    bool oneShot = false;        // what isOneShot returns
    std::function<void()> then;  // called at the end of every onNext, if set

    // "404 reason" for each error, "completed" for each completion.
    std::vector<std::string> ends() const {
        std::vector<std::string> result;
        for (const auto& error : errors) result.push_back(std::to_string(error.status()) + " " + std::string{error.reason()});
        result.insert(result.end(), static_cast<std::size_t>(completed), "completed");
        return result;
    }
};

template <class T>
class RecordingHandler final : public kelo::IResponseHandler<T> {
public:
    explicit RecordingHandler(Heard<T>& heard) : heard_{heard} {}
    ~RecordingHandler() override { ++heard_.destroyed; }
    bool onNext(const T& value) override {
        heard_.values.push_back(value);
        if (const auto then = heard_.then) then();
        return heard_.finishOnNext;
    }
    void onError(const kelo::Response& response) override { heard_.errors.push_back(response); }
    void onCompleted() override { ++heard_.completed; }
    bool isOneShot() const override { return heard_.oneShot; }

private:
    Heard<T>& heard_;
};

template <class T>
std::unique_ptr<kelo::IResponseHandler<T>> record(Heard<T>& heard) {
    return std::make_unique<RecordingHandler<T>>(heard);
}

}  // namespace support
