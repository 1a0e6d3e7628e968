#include "upstream_answers.h"

#include <utility>
#include <vector>

#include "kelo/commands.h"

namespace hmxrelay {

using kelo::Response;

void UpstreamAnswers::set(const std::string& path, kelo::Payload answer) {
    known_[path] = {std::move(answer), {}};
    const Response response{200, *known_[path].answer};
    for (auto open = open_.begin(); open != open_.end();) {
        const bool isOver = open->second.path == path && open->second.responder->next(response);
        open = isOver ? open_.erase(open) : std::next(open);
    }
}

void UpstreamAnswers::lose(const std::string& path, Response why) {
    fail(path, why);
    known_[path] = {std::nullopt, std::move(why)};
}

void UpstreamAnswers::remove(const std::string& path) {
    known_.erase(path);
    fail(path, Response::createErrorResponse(404, "nothing is known of " + path));
}

void UpstreamAnswers::fail(const std::string& path, const Response& why) {
    for (auto open = open_.begin(); open != open_.end();) {
        if (open->second.path != path) {
            ++open;
            continue;
        }
        open->second.responder->error(why);
        open = open_.erase(open);
    }
}

void* UpstreamAnswers::actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                                     const std::string&) {
    if (kelo::commands::toId(request.command()) != kelo::commands::retrieve) {
        responder->error(Response::createErrorResponse(403, "this copy is only for reading, request not sent"));
        return nullptr;
    }
    const auto known = known_.find(request.path());
    if (known == known_.end()) {
        responder->error(Response::createErrorResponse(404, "nothing is known of " + request.path()));
        return nullptr;
    }
    if (!known->second.answer) {
        responder->error(known->second.loss);
        return nullptr;
    }
    if (responder->next(Response{200, *known->second.answer})) return nullptr;
    open_.emplace(++last_, Open{request.path(), std::move(responder)});
    return reinterpret_cast<void*>(last_);
}

void UpstreamAnswers::cancelRequest(void* handle) {
    open_.erase(reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace hmxrelay
