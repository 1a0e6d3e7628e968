// A value, or the error that came instead of it.
#pragma once

#include <utility>
#include <variant>

#include "hmx/client/error.h"

namespace hmx::client {

// Thread: any (a value). `T` may be void.
template <class T>
class Outcome {
public:
    Outcome(T value) : content_{std::in_place_index<0>, std::move(value)} {}  // NOLINT(google-explicit-constructor): is one or
    Outcome(Error error)
        : content_{std::in_place_index<1>, std::move(error)} {}  // NOLINT(google-explicit-constructor): the other

    explicit operator bool() const noexcept { return content_.index() == 0; }
    // Throws the error when there is no value.
    const T& value() const& {
        if (content_.index() == 1) throw error();
        return std::get<0>(content_);
    }
    T value() && {
        if (content_.index() == 1) throw error();
        return std::get<0>(std::move(content_));
    }
    // Only when there is no value.
    const Error& error() const { return std::get<1>(content_); }

private:
    std::variant<T, Error> content_;
};

template <>
class Outcome<void> : public Outcome<std::monostate> {
public:
    using Outcome<std::monostate>::Outcome;
    Outcome() : Outcome<std::monostate>{std::monostate{}} {}
    void value() const { (void)Outcome<std::monostate>::value(); }
};

}  // namespace hmx::client
