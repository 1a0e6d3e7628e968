// Response handlers that wrap another one: they map or filter values, and drop events after the end of a request.
#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <utility>

#include "kelo/optional.h"
#include "kelo/response.h"
#include "kelo/response_handler.h"
#include "kelo/std/error_storage.h"
#include "util/block_pool.h"

namespace kelo::responsehandlers {

// The state of one request as a wrapping handler sees it: live, then terminated. Late events are traced here. Thread: one at a
// time.
class Termination {
public:
    // For onNext. False for a live request. Otherwise true, and the error store has "Request already terminated" (code 7).
    [[nodiscard]] bool refusesNext() const { return terminated_ && refuse(); }
    // For onError and onCompleted: true for the first, which is passed on. `event`: "onError" or "onCompleted".
    [[nodiscard]] bool begins(const char* event);

private:
    static bool refuse();

    bool terminated_ = false;
};

// Consumes the stored error and turns it into a response: with the status of a framework error, 500 for any other error. Thread:
// any.
[[nodiscard]] Response takeErrorResponse();

// The common part of both wrappers: owns the wrapped handler and passes on only one terminal event. Thread: one at a time, as for
// the wrapped handler.
template <class From, class To>
class WrappingResponseHandler : public IResponseHandler<From>, public util::Pooled {
public:
    void onError(const Response& response) final {
        if (termination_.begins("onError")) handler_->onError(response);
    }
    void onCompleted() final {
        if (termination_.begins("onCompleted")) handler_->onCompleted();
    }
    bool isOneShot() const final { return handler_->isOneShot(); }
    Account* account() const final { return handler_->account(); }

protected:
    explicit WrappingResponseHandler(std::unique_ptr<IResponseHandler<To>> handler) : handler_{std::move(handler)} {}

    std::unique_ptr<IResponseHandler<To>> handler_;
    Termination termination_;
};

// Passes the result of `Mapping`, a callable from const From& to kelo::optional<To>, to the wrapped handler. An empty result ends
// the request: with the stored error if there is one, otherwise as completed. Owns the wrapped handler, which must not be null.
// Thread: one at a time, as for the wrapped handler.
template <class From, class To, class Mapping = std::function<kelo::optional<To>(const From&)>>
class MappingResponseHandler final : public WrappingResponseHandler<From, To> {
public:
    MappingResponseHandler(std::unique_ptr<IResponseHandler<To>> handler, Mapping mapping)
        : WrappingResponseHandler<From, To>{std::move(handler)}, mapping_{std::move(mapping)} {}

    bool onNext(const From& value) override;

private:
    Mapping mapping_;
};

// The same with the callable stored by its own type instead of in a std::function.
template <class From, class To, class Mapping>
[[nodiscard]] std::unique_ptr<IResponseHandler<From>> mapped(std::unique_ptr<IResponseHandler<To>> handler, Mapping mapping) {
    return std::make_unique<MappingResponseHandler<From, To, Mapping>>(std::move(handler), std::move(mapping));
}

// Passes on those values for which `Predicate`, a callable from const T& to bool, is true. Thread: one at a time, as for the
// wrapped handler.
template <class T, class Predicate = std::function<bool(const T&)>>
class FilteringResponseHandler final : public WrappingResponseHandler<T, T> {
public:
    FilteringResponseHandler(std::unique_ptr<IResponseHandler<T>> handler, Predicate predicate)
        : WrappingResponseHandler<T, T>{std::move(handler)}, predicate_{std::move(predicate)} {}

    bool onNext(const T& value) override {
        if (this->termination_.refusesNext()) return true;
        return predicate_(value) && this->handler_->onNext(value);
    }

private:
    Predicate predicate_;
};

// True for the first value and for every value that differs from the last one for which it was true. Keeps a copy of that one.
// Thread: one at a time.
template <class T>
class ComparingPredicate {
public:
    // True if the two are equal. A reference, so that it cannot be null.
    using Comparison = bool (&)(const T&, const T&);

    ComparingPredicate() requires std::equality_comparable<T> : ComparingPredicate{isEqual} {}
    // Required for a type without operator==.
    explicit ComparingPredicate(Comparison equal) : equal_{&equal} {}

    bool operator()(const T& value) {
        if (last_ && equal_(value, *last_)) return false;
        last_ = value;
        return true;
    }

private:
    static bool isEqual(const T& a, const T& b) requires std::equality_comparable<T> { return a == b; }

    kelo::optional<T> last_;
    bool (*equal_)(const T&, const T&);
};

template <class From, class To, class Mapping>
bool MappingResponseHandler<From, To, Mapping>::onNext(const From& value) {
    if (this->termination_.refusesNext()) return true;
    const kelo::optional<To> mapped = mapping_(value);
    if (mapped) return this->handler_->onNext(*mapped);
    if (std::ErrorStorage::hasError()) {
        this->onError(takeErrorResponse());
    } else {
        this->onCompleted();
    }
    return true;
}

}  // namespace kelo::responsehandlers
