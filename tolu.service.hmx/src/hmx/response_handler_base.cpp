// An answer is written on the thread that has it, with that thread's writer, into that thread's buffer. The responder sends it
// before it returns, so an answer needs no new memory. Sending may call another handler on the same thread. That one finds no
// buffer and makes its own; of the two, the one that is returned last is kept.
//
// A value that cannot be written is a bug in the code that made it. The client does not get the value, but is not left waiting:
// the handler reports the request as finished, its owner drops it, and the responder ends the request as unanswered.
#include "hmx/response_handler_base.h"

#include <cstddef>
#include <string>
#include <utility>

#include "kelo/errors.h"

namespace kelo::hmx {

namespace {

constexpr std::size_t initialCapacity = 1024;
constexpr std::size_t keptCapacity = std::size_t{256} * 1024;  // larger ones are rare, and a thread does not keep them

thread_local util::ByteBufferWriter spareBuffer;

// A buffer for one answer. Thread: the one that created it.
class AnswerBuffer {
public:
    AnswerBuffer() : writer_{std::move(spareBuffer)} {
        writer_.clear();
        writer_.claim(initialCapacity);
    }
    ~AnswerBuffer() {
        if (writer_.capacity() <= keptCapacity) spareBuffer = std::move(writer_);
    }
    AnswerBuffer(const AnswerBuffer&) = delete;
    AnswerBuffer& operator=(const AnswerBuffer&) = delete;

    util::ByteBufferWriter& writer() noexcept { return writer_; }

private:
    util::ByteBufferWriter writer_;
};

}  // namespace

bool ResponseHandlerBase::sendValue(const char* operation, BodyView value) {
    AnswerBuffer buffer;
    if (writeDocument(buffer.writer(), mimeType_, value)) {
        std::ErrorStorage::ack();  // replaces the detailed reason by one that names the operation
        std::ErrorOutput{errors::Error, errors::cannotSerialize, std::string{operation} + ": serialization error"};
        return true;
    }
    Response response{200, buffer.writer().empty() ? Payload::getEmpty() : Payload::borrow(buffer.writer().bytes(), mimeType_)};
    headers::appendRequestInfo(requestInfo_, response);
    return responder_->next(response);
}

bool ResponseHandlerBase::sendNothing() {
    Response response{204};
    headers::appendRequestInfo(requestInfo_, response);
    return responder_->next(response);
}

void ResponseHandlerBase::sendError(const Response& response) {
    Response error{response};
    headers::appendRequestInfo(requestInfo_, error);
    responder_->error(error);
}

void ResponseHandlerBase::sendCompleted() {
    responder_->completed();
}

}  // namespace kelo::hmx
