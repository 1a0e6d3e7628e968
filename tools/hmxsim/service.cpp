// Requests arrive on the runtime's threads and get a number there. Everything else happens on the worker, in the order of
// arrival, so a cancellation finds its request already begun. The number is the request's handle. Everything that comes later
// (a change, a delayed answer, a cancellation) names the request by its number; if the request is over by then, it is not
// found.
//
// An open retrieve is kept as the question that it asked. Whenever the world may have changed, the manager is asked again, once
// for all watchers with the same question, and the answer is sent if it is different. When an element has gone, its watchers
// end with the error.
//
// A fault affects an answer on its way out. Silence keeps the request open, because destroying its responder would be an
// answer, too.
#include "service.h"

#include <algorithm>

#include "kelo/func_call_event.h"

namespace hmxsim {

using kelo::Response;

namespace {

bool same(const Response& a, const Response& b) {
    const auto left = a.payload().bytes();
    const auto right = b.payload().bytes();
    return a.status() == b.status() && std::equal(left.begin(), left.end(), right.begin(), right.end());
}

// Whether two retrieves always have the same answer.
std::string questionOf(const kelo::Request& request) {
    std::string question = request.path();
    ((question += '\n') += request.getMimeTypeHeader()) += '\n';
    ((question += request.contentType()) += '\n') += request.payload().text();
    return question;
}

}  // namespace

Service::Service(std::string_view name, Manager& manager, Surroundings& surroundings, Watching watching)
    : name_{name}, manager_{manager}, surroundings_{surroundings}, watching_{watching} {}

void* Service::actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) {
    const Number number = ++numbers_;
    kelo::post(surroundings_.worker,
               [this, number, copy = request, owned = std::move(responder)]() mutable { begin(number, copy, std::move(owned)); });
    return reinterpret_cast<void*>(number);
}

void Service::cancelRequest(void* handle) {
    kelo::post(surroundings_.worker, [this, number = reinterpret_cast<Number>(handle)] { finish(number); });
}

void Service::begin(Number number, const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder) {
    surroundings_.log.add(name_, request, surroundings_.timers.now());
    open_[number].responder = std::move(responder);
    const Response answer = manager_.answer(request);
    if (kelo::commands::toId(request.command()) != kelo::commands::retrieve) {
        ++changes_;
        send(number, answer, Ending::ends);
        if (!isError(answer)) refresh();
    } else if (watching_ == Watching::none || request.isOneShot() || isError(answer)) {
        send(number, answer, Ending::ends);
    } else {
        watch(number, request, answer);
    }
}

void Service::watch(Number number, const kelo::Request& request, const Response& answer) {
    std::string question = questionOf(request);
    View& view = views_.try_emplace(question, View{request, answer, {}}).first->second;
    view.watchers.push_back(number);
    open_.at(number).view = std::move(question);
    send(number, answer, Ending::staysOpen);
}

void Service::refresh() {
    struct Change {
        Response answer;
        std::vector<Number> watchers;
    };
    // Sending ends requests, and a view ends with its last watcher. So what is to be sent is determined first.
    std::vector<Change> changes;
    for (auto& [question, view] : views_) {
        Response answer = manager_.answer(view.request);
        if (same(answer, view.last)) continue;
        view.last = answer;
        changes.push_back({std::move(answer), view.watchers});
    }
    for (const Change& change : changes) {
        const Ending ending = isError(change.answer) ? Ending::ends : Ending::staysOpen;
        for (const Number number : change.watchers) send(number, change.answer, ending);
    }
}

void Service::send(Number number, const Response& answer, Ending ending) {
    const auto open = open_.find(number);
    if (open == open_.end()) return;
    const Fault fault = faults_.next();
    const Timers::Time now = surroundings_.timers.now();
    const Timers::Time due = std::max(now + fault.delay, open->second.notBefore);
    if (due <= now) return deliver(number, answer, ending, fault);
    open->second.notBefore = due;
    surroundings_.timers.at(due, [this, number, answer, ending, fault] { deliver(number, answer, ending, fault); });
}

void Service::deliver(Number number, Response answer, Ending ending, const Fault& fault) {
    const auto open = open_.find(number);
    if (open == open_.end()) return;
    switch (fault.kind) {
        case Fault::Kind::none:
            break;
        case Fault::Kind::silence:
            return;
        case Fault::Kind::status:
            answer = refusal(fault.status, "injected fault");
            break;
        case Fault::Kind::garble:
            if (!isError(answer)) garble(answer, fault);
            break;
        case Fault::Kind::close:
            return surroundings_.host.close(name_, fault.reopenAfter);
        case Fault::Kind::crash:
            return surroundings_.host.crash();
    }
    kelo::IResponder& responder = *open->second.responder;
    if (isError(answer)) {
        responder.error(answer);
        return finish(number);
    }
    const bool isOver = responder.next(answer);
    if (ending == Ending::ends && !isOver) responder.completed();
    if (ending == Ending::ends || isOver) finish(number);
}

void Service::finish(Number number) {
    const auto open = open_.find(number);
    if (open == open_.end()) return;
    if (const auto view = views_.find(open->second.view); view != views_.end()) {
        auto& watchers = view->second.watchers;
        watchers.erase(std::remove(watchers.begin(), watchers.end(), number), watchers.end());
        if (watchers.empty()) views_.erase(view);
    }
    open_.erase(open);
}

void Service::closed() {
    views_.clear();
    open_.clear();
}

}  // namespace hmxsim
