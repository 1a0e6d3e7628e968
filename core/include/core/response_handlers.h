// Response handlers that wrap another one: they map, filter, and see to it that a request that has ended hears nothing more.
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

// The life of one request as a wrapping handler sees it: live, then terminated, never back. Every late event is traced here.
// Thread: one at a time.
class Termination {
public:
    // For onNext. False on a live request; else the error store has "Request already terminated" (code 7).
    [[nodiscard]] bool refusesNext() const { return terminated_ && refuse(); }
    // For onError and onCompleted: true for the first, which is to be passed on. `event`: "onError" or "onCompleted".
    [[nodiscard]] bool begins(const char* event);

private:
    static bool refuse();

    bool terminated_ = false;
};

// Consumes the stored error and makes it a response: the status of a framework error, 500 for any other. Thread: any.
[[nodiscard]] Response takeErrorResponse();

// What both wrappers share: the wrapped handler, and terminal events that are passed on once.
// Thread: one at a time, as the wrapped handler's.
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

// Hands the wrapped handler what `Mapping`, a callable from const From& to kelo::optional<To>, makes of a value. Where it makes
// nothing, the request ends: with the stored error if there is one, else completed. Owns the wrapped handler, which is not null.
// Thread: one at a time, as the wrapped handler's.
template <class From, class To, class Mapping = std::function<kelo::optional<To>(const From&)>>
class MappingResponseHandler final : public WrappingResponseHandler<From, To> {
public:
    MappingResponseHandler(std::unique_ptr<IResponseHandler<To>> handler, Mapping mapping)
        : WrappingResponseHandler<From, To>{std::move(handler)}, mapping_{std::move(mapping)} {}

    bool onNext(const From& value) override;

private:
    Mapping mapping_;
};

// The same with the callable held in place, for one that is known where the handler is made.
template <class From, class To, class Mapping>
[[nodiscard]] std::unique_ptr<IResponseHandler<From>> mapped(std::unique_ptr<IResponseHandler<To>> handler, Mapping mapping) {
    return std::make_unique<MappingResponseHandler<From, To, Mapping>>(std::move(handler), std::move(mapping));
}

// Hands the wrapped handler the values for which `Predicate`, a callable from const T& to bool, is true.
// Thread: one at a time, as the wrapped handler's.
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

// True for a value that differs from the last one for which it was true, so first of all for the first. Keeps a copy of that.
// Thread: one at a time.
template <class T>
class ComparingPredicate {
public:
    // True when the two are equal. A reference: there is always one.
    using Comparison = bool (&)(const T&, const T&);

    ComparingPredicate() requires std::equality_comparable<T> : ComparingPredicate{isEqual} {}
    // A type without an equality of its own needs one.
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
