#include "runtime/trace_control.h"

#include <algorithm>
#include <string>
#include <vector>

#include "kelo/account.h"
#include "kelo/errors.h"
#include "kelo/record.h"
#include "kelo/serializer/factory.h"
#include "runtime/document_answer.h"
#include "tracing/channel.h"
#include "tracing/levels.h"
#include "util/text.h"

namespace kelo::runtime {

// An element of the document: an array of these. Thread: any (a value).
struct TraceLevel {
    std::string channel;
    int level = 0;
    std::experimental::optional<std::string> id{};
};
constexpr auto recordTable(const TraceLevel*) {
    using record::Row;
    return record::Table<TraceLevel, Row<"channel", &TraceLevel::channel>, Row<"level", &TraceLevel::level>,
                         Row<"id", &TraceLevel::id>>{"TraceLevel"};
}
static_assert(record::covers<TraceLevel>);
bool serialize(serializer::IStructuredSerializer& writer, const TraceLevel& value) {
    return record::write(writer, value);
}
bool deserialize(serializer::IStructuredPullDeserializer& reader, TraceLevel& value) {
    return record::read(reader, value);
}

namespace {

const tracing::Channel ownChannel{"KELO_RUNTIME"};

constexpr int lowest = 0;
constexpr int highest = 5;  // shows nothing

// The changes that a body asks for. True on failure, with the reason in the error store.
bool readChanges(const Payload& body, std::vector<TraceLevel>& changes) {
    const auto reader = serializer::Factory::createDeserializer(body.mimeType().id());
    if (!reader) {
        std::ErrorOutput{errors::Error, errors::unknownMimeType, "a body is needed, in an encoding of documents"};
        return true;
    }
    return reader->start(util::ByteBufferReader{body.bytes()}) || record::readValue(*reader, changes) || reader->finish();
}

// Why a change is refused; status 0 if it is not.
Response refusalOf(const TraceLevel& change, const std::vector<tracing::ChannelLevel>& all) {
    if (change.level < lowest || change.level > highest) {
        return Response::createErrorResponse(400, "a level is a number from 0 to 5");
    }
    const bool isKnown = change.channel == "*" || std::any_of(all.begin(), all.end(), [&](const tracing::ChannelLevel& each) {
                             return each.channel == change.channel;
                         });
    if (!isKnown)
        return Response::createErrorResponse(404, "no channel is called '" + util::printable(change.channel, 100) + "'");
    return Response{};
}

}  // namespace

void answerTraceLevels(const Request& request, IResponder& responder) {
    std::vector<TraceLevel> levels;
    for (const auto& [channel, threshold, id] : tracing::channelLevels()) levels.push_back({channel, threshold, id});
    answerDocument(request, responder,
                   [&](serializer::IStructuredSerializer& writer) { return record::writeValue(writer, levels); });
}

void changeTraceLevels(const Request& request, IResponder& responder) {
    std::vector<TraceLevel> changes;
    if (readChanges(request.payload(), changes)) {
        responder.error(Response::createErrorResponse(400, std::ErrorStorage::takeReason()));
        return;
    }
    const auto all = tracing::channelLevels();
    for (const TraceLevel& change : changes) {
        if (const Response refusal = refusalOf(change, all); refusal.status() != 0) {
            responder.error(refusal);
            return;
        }
    }
    for (const TraceLevel& change : changes) (void)tracing::setThreshold(change.channel, change.level);
    const Account* const account = responder.account();
    for (const TraceLevel& change : changes) {
        tracing::logCV(ownChannel, 2, "trace level of %s set to %d by pid %d (uid %u)", change.channel.c_str(), change.level,
                       account == nullptr ? 0 : account->pid(), account == nullptr ? 0U : account->uid());
    }
    answerTraceLevels(request, responder);
}

}  // namespace kelo::runtime
