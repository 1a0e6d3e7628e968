// A change is passed on as it came, once, and has its answer, or the error that stands for it, passed back, once. Its requester
// is gone when its last writer is: then nobody waits for the answers any more, and what is still open is cancelled, as it is for
// any client that goes away. Numbers of a requester ascend, so nothing is done twice.
#include "change_desk.h"

#include <algorithm>

#include "hmx/client/resources.h"
#include "kelo/commands.h"
#include "kelo/headers.h"
#include "kelo/tracing.h"

namespace hmxrelay {
namespace {

using hmx::client::Event;
using kelo::Response;

constexpr std::size_t mostRequesters = 64;
constexpr std::chrono::milliseconds longestLimit{60'000};

}  // namespace

ChangeDesk::ChangeDesk(hmx::client::Client& client, const Participant& participant, const Entity& publisher,
                       const Entity& subscriber, std::string service, bool isReadOnly)
    : client_{client},
      path_{std::move(service)},
      isReadOnly_{isReadOnly},
      arrived_{client.dispatcher()},
      replies_{participant, publisher},
      requests_{participant, subscriber, arrived_.raiser()},
      inbox_{client.dispatcher()} {
    arrived_.onRaised([this] { takeRequests(); });
    inbox_.onArrival([this] { takeAnswers(); });
    search_ = client_.start(findService(), [](const hmx::client::Outcome<void>&) {});
}

ChangeDesk::~ChangeDesk() = default;

hmx::client::Task<> ChangeDesk::findService() {
    using hmx::client::Deadline;
    while (api_ == nullptr) {
        try {
            api_ = co_await client_.domain().attach(path_, Deadline{std::chrono::seconds{2}});
        } catch (const hmx::client::Error&) {  // who wants a change meanwhile is told
        }
        if (api_ == nullptr) co_await client_.dispatcher().pause(std::chrono::milliseconds{400});
    }
}

void ChangeDesk::takeRequests() {
    requests_.takeAll([this](const hmxrelay_Request& request, const dds_sample_info_t& info) {
        Name name;
        std::copy(std::begin(request.requester), std::end(request.requester), name.requester.begin());
        if (info.valid_data) {
            name.number = request.number;
            if (static_cast<Ask>(request.kind) == Ask::change) {
                ask(name, request);
            } else if (const auto found = numbers_.find(name);
                       static_cast<Ask>(request.kind) == Ask::cancel && found != numbers_.end()) {
                open_.erase(found->second);
                numbers_.erase(found);
            }
        }
        if (info.instance_state != DDS_ALIVE_INSTANCE_STATE) drop(name.requester);
    });
}

void ChangeDesk::ask(const Name& name, const hmxrelay_Request& request) {
    if (requesters_.size() >= mostRequesters && !requesters_.contains(name.requester)) {
        return refuse(name, 503, "too many machines want changes here, request not sent");
    }
    Requester& requester = requesters_[name.requester];
    if (name.number <= requester.last) return;
    requester.last = name.number;
    const std::string_view command = textOf(request.command);
    const int id = kelo::commands::toId(command);
    if (isReadOnly_) return refuse(name, 403, "the origin does not take changes, request not sent");
    if (id == kelo::commands::retrieve || id == kelo::commands::unknown) {
        return refuse(name, 400, "no change: '" + std::string{command} + "', request not sent");
    }
    if (open_.size() >= mostChanges) return refuse(name, 503, "too many changes are under way, request not sent");
    if (api_ == nullptr) return refuse(name, 503, path_ + " is not there, request not sent");

    kelo::Request sent{command, textOf(request.path)};
    const std::string_view encoding = textOf(request.encoding);
    if (!encoding.empty()) sent.setPayload(kelo::Payload::copyOf(octetsOf(request.body), kelo::MimeType{encoding}));
    sent.setAccept(textOf(request.accept));
    sent.setOneShot(true);
    kelo::headers::appendTracingInfo(sent, path_, kelo::tracing::getTraceClientId());
    kelo::headers::appendAuthInfo(sent);
    const std::size_t number = ++last_;
    numbers_[name] = number;
    Open& open = open_[number];
    open.name = name;
    const auto limit = std::clamp(std::chrono::milliseconds{request.limit}, std::chrono::milliseconds{1}, longestLimit);
    open.stream = hmx::client::Stream{*api_, api_->request(sent, inbox_.makeHandler(number, true), {.deadline = limit})};
}

void ChangeDesk::drop(const Bytes16& requester) {
    requesters_.erase(requester);
    auto number = numbers_.lower_bound({requester, 0});
    while (number != numbers_.end() && number->first.requester == requester) {
        open_.erase(number->second);
        number = numbers_.erase(number);
    }
}

void ChangeDesk::takeAnswers() {
    while (const std::optional<Event> event = inbox_.tryTake()) {
        const auto found = open_.find(event->source);
        if (found == open_.end()) continue;
        const Name name = found->second.name;
        found->second.stream.release();
        open_.erase(found);
        numbers_.erase(name);
        const Answer kind = event->kind == Event::Kind::next    ? Answer::value
                            : event->kind == Event::Kind::error ? Answer::error
                                                                : Answer::end;
        reply(name, kind, event->response);
    }
}

void ChangeDesk::refuse(const Name& name, std::uint16_t status, const std::string& reason) {
    reply(name, Answer::error, Response::createErrorResponse(status, reason));
}

void ChangeDesk::reply(const Name& name, Answer kind, const Response& response) {
    hmxrelay_Reply sample{};
    std::copy(name.requester.begin(), name.requester.end(), std::begin(sample.requester));
    sample.number = name.number;
    sample.kind = static_cast<std::uint8_t>(kind);
    sample.status = response.status();
    const std::string encoding{response.getMimeTypeText()};
    sample.encoding = lent(encoding);
    lend(sample.body, response.payload().text());
    if (!replies_.write(sample)) tracing::logC(channel, 3, "an answer to a change could not be sent: the network is behind");
}

}  // namespace hmxrelay
