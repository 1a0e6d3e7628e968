// Finding the operation for a request.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "answers.h"
#include "kelo/commands.h"
#include "kelo/path.h"
#include "kelo/request.h"
#include "kelo/response.h"

namespace hmxsim {

// Answers the requests to one service, from the world as it is at that moment. A retrieve changes nothing, so asking again later
// tells whether its answer has changed.
// Thread: the simulator's worker.
class Manager {
public:
    virtual ~Manager() = default;
    virtual kelo::Response answer(const kelo::Request& request) = 0;
};

// A request, and the parts of its path that stand for the pattern's stars. Refers to the request.
struct Call {
    const kelo::Request& request;
    std::string first;
    std::string second;
};

// One operation of a manager of type T.
template <class T>
struct Route {
    kelo::commands::Id command;
    std::string_view pattern;
    kelo::Response (T::*operation)(const Call&);
};

// False when a part that stands for a star is badly encoded.
bool readStars(const kelo::Request& request, std::string_view pattern, Call& call);
kelo::Response badPath(const kelo::Request& request);
kelo::Response noSuchOperation(const kelo::Request& request);

// Calls the first operation whose command and pattern fit.
template <class T>
kelo::Response dispatch(T& manager, std::span<const Route<T>> routes, const kelo::Request& request) {
    const int command = kelo::commands::toId(request.command());
    for (const Route<T>& route : routes) {
        if (route.command != command || !kelo::Path::matches(request.path(), route.pattern)) continue;
        Call call{request, {}, {}};
        return readStars(request, route.pattern, call) ? (manager.*route.operation)(call) : badPath(request);
    }
    return noSuchOperation(request);
}

}  // namespace hmxsim
