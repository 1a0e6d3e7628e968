#include "runtime/status.h"

#include <unistd.h>

#include <cstdint>
#include <string_view>
#include <utility>

#include "kelo/gauge.h"
#include "runtime/document_answer.h"

namespace kelo::runtime {
namespace {

using util::serializer::IStructuredSerializer;

// Writes an object member by member. Remembers the first failure and writes nothing more after it.
class ObjectWriter {
public:
    explicit ObjectWriter(IStructuredSerializer& writer) : writer_{writer}, failed_{writer.beginObject()} {}

    void text(std::string_view key, std::string_view value) {
        member(key, [&] { return writer_.writeString(value); });
    }
    void number(std::string_view key, std::uint64_t value) {
        member(key, [&] { return writer_.writeInt(static_cast<std::int64_t>(value)); });
    }
    void flag(std::string_view key, bool value) {
        member(key, [&] { return writer_.writeBool(value); });
    }
    template <class Fill>
    void object(std::string_view key, Fill fill) {
        member(key, [&] { return writeObject(writer_, fill); });
    }
    template <class Items, class Fill>
    void array(std::string_view key, const Items& items, Fill fill) {
        member(key, [&] {
            if (writer_.beginArray()) return true;
            bool first = true;
            for (const auto& item : items) {
                if (writer_.beginElement(std::exchange(first, false))) return true;
                if (writeObject(writer_, [&](ObjectWriter& object) { fill(object, item); })) return true;
                if (writer_.endElement()) return true;
            }
            return writer_.endArray();
        });
    }

    template <class Fill>
    static bool writeObject(IStructuredSerializer& writer, Fill fill) {
        ObjectWriter object{writer};
        fill(object);
        return object.failed_ || writer.endObject();
    }

private:
    template <class WriteValue>
    void member(std::string_view key, WriteValue writeValue) {
        failed_ = failed_ || writer_.memberKey(key, std::exchange(first_, false), -1) || writeValue() || writer_.endMember();
    }

    IStructuredSerializer& writer_;
    bool failed_;
    bool first_ = true;
};

void writeTracked(ObjectWriter& object, const Status::Tracked& service) {
    object.text("path", service.path);
    object.flag("alive", service.alive);
    if (service.alive) {
        object.text("application", service.info.applicationName);
        object.number("pid", static_cast<std::uint64_t>(service.info.pid));
        object.number("uid", service.info.uid);
        object.number("incarnation", service.info.incarnation);
        object.text("mimeType", getMimeType(service.info));
    }
    object.number("pendingRequests", service.usage.requests);
    object.number("heldRequests", service.usage.held);
    object.number("streams", service.usage.streams);
    object.number("queuedBytes", service.usage.queuedBytes);
}

void writeClient(ObjectWriter& object, const net::ServerConnection::Usage& client) {
    object.number("pid", static_cast<std::uint64_t>(client.peer.pid));
    object.number("uid", client.peer.who.uid);
    object.text("program", client.peer.program);
    object.text("application", client.peer.application);
    object.number("requests", client.requests);
    object.number("streams", client.streams);
    object.number("queuedBytes", client.queuedBytes);
    object.number("keptBytes", client.keptBytes);
    object.number("heldRequests", client.heldRequests);
    object.number("heldBytes", client.heldBytes);
}

void writeUser(ObjectWriter& object, const std::shared_ptr<const net::User>& user) {
    object.number("uid", user->uid);
    object.number("connections", user->connections);
    object.number("requests", user->requests);
    object.number("streams", user->streams);
    object.number("unreadBytes", user->unread);
    object.number("incompleteBytes", user->incomplete);
}

void writePublished(ObjectWriter& object, const Status::Published& service) {
    object.text("path", service.path);
    object.flag("reachable", service.reachable);
    object.number("connections", service.clients.size());
    std::size_t open = 0;
    for (const auto& client : service.clients) open += client.requests + client.streams;
    object.number("openRequests", open);
    object.array("clients", service.clients, writeClient);
}

void writeCounters(ObjectWriter& object, const Counters& counters) {
    object.number("requestsAccepted", counters.requestsAccepted);
    object.number("requestsSent", counters.requestsSent);
    object.number("requestsHeld", counters.requestsHeld);
    object.number("requestsRefused", counters.requestsRefused);
    object.number("requestsForbidden", counters.requestsForbidden);
    object.number("requestsAudited", counters.requestsAudited);
    object.number("answeredByNobody", counters.answeredByNobody);
    object.number("deadlinesMissed", counters.deadlinesMissed);
    object.number("endedByLoss", counters.endedByLoss);
    object.number("cancelled", counters.cancelled);
    object.number("lateFrames", counters.lateFrames);
    object.number("valuesConflated", counters.valuesConflated);
    object.number("answersRefused", counters.answersRefused);
    object.number("malformedPeers", counters.malformedPeers);
    object.number("slowPeersCut", counters.slowPeersCut);
    object.number("peersRefused", counters.peersRefused);
    object.number("peersAudited", counters.peersAudited);
    object.number("acceptPauses", counters.acceptPauses);
    object.number("connectionsAccepted", counters.connectionsAccepted);
    object.number("connectionsOpen", counters.connectionsOpen);
}

void writeGauges(ObjectWriter& object) {
    for (const auto& [name, value] : readGauges()) object.number(name, static_cast<std::uint64_t>(value));
}

void writePolicy(ObjectWriter& object, const Status::PolicyState& state) {
    object.text("directory", state.directory);
    object.flag("inForce", state.policy->isInForce);
    object.flag("audit", state.policy->audits);
    object.number("rules", state.policy->tables.size());
    if (!state.fault.empty()) object.text("fault", state.fault);
}

void writeLimits(ObjectWriter& object, const Limits& limits) {
    const auto milliseconds = [](std::chrono::milliseconds time) { return static_cast<std::uint64_t>(time.count()); };
    object.number("frameBytes", limits.frameBytes);
    object.number("nameBytes", limits.nameBytes);
    object.number("oneShotRequests", limits.oneShotRequests);
    object.number("openStreams", limits.openStreams);
    object.number("parameters", limits.parameters);
    object.number("parameterBytes", limits.parameterBytes);
    object.number("openRequests", limits.openRequests);
    object.number("heldRequests", limits.heldRequests);
    object.number("heldBytes", limits.heldBytes);
    object.number("awaitedBytes", limits.awaitedBytes);
    object.number("conflationBytes", limits.conflationBytes);
    object.number("queuedSoftBytes", limits.queuedSoftBytes);
    object.number("queuedHardBytes", limits.queuedHardBytes);
    object.number("unreadBytes", limits.unreadBytes);
    object.number("incompleteBytes", limits.incompleteBytes);
    object.number("connections", limits.connections);
    object.number("reservedConnections", limits.reservedConnections);
    object.number("framesPerWakeUp", limits.framesPerWakeUp);
    object.number("handshakeMilliseconds", milliseconds(limits.handshake));
    object.number("incompleteFrameMilliseconds", milliseconds(limits.incompleteFrame));
    object.number("requestDeadlineMilliseconds", milliseconds(limits.requestDeadline));
    object.number("users", Limits::users);
    object.number("userStreams", limits.userStreams);
    object.number("userContentionMilliseconds", milliseconds(limits.userContention));
    object.number("userRequestsInHand", Limits::userRequestsInHand);
    object.number("userPatienceMilliseconds", milliseconds(limits.userPatience));
    object.number("userTurns", limits.userTurns);
    object.number("userTurnsSaved", limits.userTurnsSaved);
    object.number("policyFiles", Limits::policyFiles);
    object.number("policyFileBytes", Limits::policyFileBytes);
    object.number("policyRules", Limits::policyRules);
}

}  // namespace

void answerStatus(const Status& status, const Counters& counters, const Request& request, IResponder& responder) {
    answerDocument(request, responder, [&](IStructuredSerializer& writer) {
        return ObjectWriter::writeObject(writer, [&](ObjectWriter& object) {
            object.text("application", status.application);
            object.text("version", HMX_VERSION);
            object.number("pid", static_cast<std::uint64_t>(::getpid()));
            object.text("directory", status.directory);
            object.object("policy", [&](ObjectWriter& inner) { writePolicy(inner, status.policy); });
            object.array("published", status.published, writePublished);
            if (status.policy.policy->isInForce) object.array("users", status.users, writeUser);
            object.array("tracked", status.tracked, writeTracked);
            object.object("counters", [&](ObjectWriter& inner) { writeCounters(inner, counters); });
            object.object("gauges", &writeGauges);
            object.object("limits", [&](ObjectWriter& inner) { writeLimits(inner, status.limits); });
        });
    });
}

}  // namespace kelo::runtime
