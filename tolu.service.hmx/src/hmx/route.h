// The routes of a resource: which operation of its interface is called for a command and a path.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "core/list_page.h"
#include "hmx/resource_request.h"
#include "kelo/commands.h"
#include "kelo/kelo_api.h"
#include "kelo/record.h"
#include "kelo/response_handler.h"
#include "kelo/url.h"

namespace kelo::hmx {

// std::string_view::find is not a constant expression with UndefinedBehaviorSanitizer.
constexpr bool hasStar(std::string_view path) noexcept {
    for (const char c : path) {
        if (c == '*') return true;
    }
    return false;
}

// Refers to objects with static storage. Thread: any (a value).
struct Route {
    commands::Id command;
    std::string_view path;                         // if it contains a "*", a pattern; the "*" stands for the element's id
    const char* operation;                         // "retrieveDisplayObject"
    const record::Description& (*body)();          // null: the operation has no body
    const record::Description& (*result)();        // null: the result is not a record
    std::string_view resultType;                   // "DisplayObject", "url" or "none"
    const record::Description& (*element)();       // of the result or, if it is a page, of its elements; null: not a record
    void* (*start)(void* impl, ResourceRequest&);  // reads the arguments and calls the operation; returns the request's handle
    bool isForElement = hasStar(path);

    bool matches(int requestCommand, std::string_view requestPath) const noexcept;
};

// A route of one interface. Thread: any (a value).
template <class Interface>
struct RouteOf {
    Route route;
};

// Routes of one interface. Thread: any (a value).
template <class Interface, std::size_t N>
struct RouteTable {
    std::array<Route, N> routes;
};

namespace detail {

template <class T>
constexpr std::string_view resultTypeText() {
    if constexpr (std::is_null_pointer_v<T>) {
        return "none";
    } else if constexpr (std::is_same_v<T, kelo::url>) {
        return "url";
    } else {
        return record::nameOf<T>;
    }
}

// Null for a type that is not a record.
template <class T>
constexpr auto descriptionOf() -> const record::Description& (*)() {
    if constexpr (record::Record<T>) {
        return &record::describe<T>;
    } else {
        return nullptr;
    }
}

template <class T>
struct ElementOf {
    using Type = T;
};
template <class T>
struct ElementOf<tolu::ListPage<T>> : ElementOf<T> {};

// What the signature of an operation says about it.
template <auto Method>
struct Operation;

template <class I, class T, class... Arguments, void* (I::*Method)(std::unique_ptr<IResponseHandler<T>>&&, Arguments...)>
struct Operation<Method> {
    using Interface = I;
    using Result = T;

    // Records among the arguments are bodies; there is at most one.
    static constexpr auto body() -> const record::Description& (*)() {
        const record::Description& (*found)() = nullptr;
        ((found = record::Record<std::decay_t<Arguments>> ? descriptionOf<std::decay_t<Arguments>>() : found), ...);
        return found;
    }

    template <class Handler>
    static void* start(void* impl, ResourceRequest& request) {
        std::tuple<std::decay_t<Arguments>...> arguments;
        return std::apply(
            [&](auto&... argument) -> void* {
                if ((request.read(argument) || ...)) return IKeloApi::UNDEFINED_REQUEST_HANDLE;
                return (static_cast<Interface*>(impl)->*Method)(request.makeHandler<Handler>(), argument...);
            },
            arguments);
    }
};

}  // namespace detail

// The route to an operation whose answers are sent by a `Handler`.
template <class Handler, auto Method>
constexpr auto route(commands::Id command, std::string_view path) {
    using Operation = detail::Operation<Method>;
    using Result = typename Operation::Result;
    static_assert(std::is_same_v<typename Handler::Result, Result>);
    return RouteOf<typename Operation::Interface>{{.command = command,
                                                   .path = path,
                                                   .operation = Handler::operation,
                                                   .body = Operation::body(),
                                                   .result = detail::descriptionOf<Result>(),
                                                   .resultType = detail::resultTypeText<Result>(),
                                                   .element = detail::descriptionOf<typename detail::ElementOf<Result>::Type>(),
                                                   .start = &Operation::template start<Handler>}};
}

template <class Interface, std::same_as<RouteOf<Interface>>... More>
constexpr auto routeTable(const RouteOf<Interface>& first, const More&... more) {
    return RouteTable<Interface, 1 + sizeof...(More)>{{first.route, more.route...}};
}

}  // namespace kelo::hmx
