// Every change ends exactly once, where its place in the table is given up: by the reply, by the deadline, by the loss of the
// origin, or silently when its client cancels it. What comes later finds no place. A change is sent once: if it may have left
// this machine, its end says that nobody knows what became of it.
#include "change_sender.h"

#include <algorithm>
#include <chrono>

#include "hmx/replica/replica.h"

namespace hmxrelay {
namespace {

using kelo::Response;
using std::chrono::milliseconds;

// What the bridge is given for its answer, and what this side allows for the way.
constexpr milliseconds limit{10'000};
constexpr milliseconds way{500};

Response refusal(std::uint16_t status, const std::string& reason) {
    return Response::createErrorResponse(status, reason);
}

}  // namespace

ChangeSender::ChangeSender(hmx::client::Dispatcher& dispatcher, bool isReadOnly)
    : dispatcher_{dispatcher}, isReadOnly_{isReadOnly}, requester_{randomId()}, arrived_{dispatcher} {
    arrived_.onRaised([this] { takeReplies(); });
}

ChangeSender::~ChangeSender() = default;

void ChangeSender::connect(const Participant& participant, const Entity& publisher, const Entity& subscriber,
                           const Author& author) {
    connection_.emplace(Connection{{participant, publisher}, {participant, subscriber, arrived_.raiser()}, author});
}

void ChangeSender::disconnect(const std::string& why) {
    if (connection_) takeReplies();  // what has arrived counts
    connection_.reset();
    why_ = why;
    while (!open_.empty()) {
        const auto responder = take(open_.begin()->first);
        responder->error(refusal(503, why_ + ", outcome unknown"));
    }
}

void* ChangeSender::actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) {
    const auto refuse = [&](std::uint16_t status, const std::string& reason) -> void* {
        responder->error(refusal(status, reason + ", request not sent"));
        return nullptr;
    };
    if (isReadOnly_) return refuse(403, "this copy is only for reading");
    if (!connection_) return refuse(503, why_);
    if (!connection_->requests.hasReaders()) return refuse(503, "the origin does not listen for changes yet");
    if (open_.size() >= mostChanges) return refuse(503, "too many changes are under way");
    const std::uint64_t number = ++last_;
    if (!send(number, Ask::change, request)) return refuse(503, "the network is behind");
    void* const handle = hmx::replica::newHandle();
    Open& open = open_[handle];
    open.number = number;
    open.responder = std::move(responder);
    handles_[number] = handle;
    open.deadline = dispatcher_.start(waitForAnswer(), [this, handle](const hmx::client::Outcome<void>&) { expire(handle); });
    return handle;
}

// The one who cancels is not told of anything.
void ChangeSender::cancelRequest(void* handle) {
    const auto found = open_.find(handle);
    if (found == open_.end()) return;
    if (connection_) (void)send(found->second.number, Ask::cancel, {});
    handles_.erase(found->second.number);
    open_.erase(found);
}

bool ChangeSender::send(std::uint64_t number, Ask kind, const kelo::Request& request) {
    hmxrelay_Request sample{};
    std::copy(requester_.begin(), requester_.end(), std::begin(sample.requester));
    const std::string encoding{request.contentType()};
    const std::string accept{request.getMimeTypeHeader()};
    sample.number = number;
    sample.kind = static_cast<std::uint8_t>(kind);
    sample.command = lent(request.command());
    sample.path = lent(request.path());
    sample.encoding = lent(encoding);
    sample.accept = lent(accept);
    sample.limit = static_cast<std::uint32_t>(limit.count());
    lend(sample.body, request.payload().text());
    return connection_->requests.write(sample);
}

hmx::client::Task<> ChangeSender::waitForAnswer() {
    co_await dispatcher_.pause(limit + way);
}

void ChangeSender::expire(void* handle) {
    const auto found = open_.find(handle);
    if (found == open_.end()) return;
    if (connection_) (void)send(found->second.number, Ask::cancel, {});
    take(handle)->error(refusal(504, "no answer from the origin in time, outcome unknown"));
}

std::unique_ptr<kelo::IResponder> ChangeSender::take(void* handle) {
    const auto found = open_.find(handle);
    std::unique_ptr<kelo::IResponder> responder = std::move(found->second.responder);
    handles_.erase(found->second.number);
    open_.erase(found);
    return responder;
}

void ChangeSender::takeReplies() {
    if (!connection_) return;
    connection_->replies.takeAll([this](const hmxrelay_Reply& reply, const dds_sample_info_t& info) {
        if (!info.valid_data || !std::equal(requester_.begin(), requester_.end(), std::begin(reply.requester))) return;
        if (connection_->replies.author(info.publication_handle) != connection_->author) return;
        const auto found = handles_.find(reply.number);
        if (found == handles_.end()) return;
        const auto responder = take(found->second);
        const Response response{reply.status,
                                kelo::Payload::copyOf(octetsOf(reply.body), kelo::MimeType{textOf(reply.encoding)})};
        if (static_cast<Answer>(reply.kind) == Answer::value) {
            if (!responder->next(response)) responder->completed();
        } else if (static_cast<Answer>(reply.kind) == Answer::error) {
            responder->error(response);
        } else {
            responder->completed();
        }
    });
}

}  // namespace hmxrelay
