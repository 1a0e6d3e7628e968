// Any bytes as one frame: what can be read is written and read again, and a header map that is cut short is refused.

#include "walk.h"
#include "wire/frame.h"

namespace {

using kelo::wire::FrameType;

constexpr std::uint64_t requestId = 7;
// The most fields that a map may have, minus those that a writer may add.
constexpr std::size_t mostOtherHeaders = 50;

util::ByteBufferWriter frame;

// The body of the frame that was just written; its header must read back as what was written.
fuzz::Bytes writtenBody(FrameType type, std::uint64_t id) {
    kelo::wire::FrameHeader header;
    fuzz::require(frame.size() >= kelo::wire::headerSize && kelo::wire::readHeader(frame.bytes(), header) == nullptr,
                  "a written header is read");
    fuzz::require(header.type == type && header.requestId == id, "a written header is what was written");
    fuzz::require(header.bodyLength == frame.size() - kelo::wire::headerSize, "the length of a frame is that of its body");
    return frame.bytes().subspan(kelo::wire::headerSize);
}

bool areSame(const kelo::Payload& one, const kelo::Payload& other) {
    return one.mimeType() == other.mimeType() && one.text() == other.text();
}

bool areSame(const kelo::Request& one, const kelo::Request& other) {
    return one.command() == other.command() && one.path() == other.path() && one.servicePath() == other.servicePath() &&
           one.clientId() == other.clientId() && one.accept() == other.accept() && one.authToken() == other.authToken() &&
           one.headers().entries() == other.headers().entries() && areSame(one.payload(), other.payload());
}

bool areSame(const kelo::Response& one, const kelo::Response& other) {
    return one.status() == other.status() && one.clientId() == other.clientId() &&
           one.headers().entries() == other.headers().entries() && areSame(one.payload(), other.payload());
}

// `mapEnd`: where the header map ends in the body. `refuses`: whether a body is refused.
template <class Refuses>
void requireWholeMap(fuzz::Bytes body, std::size_t mapEnd, Refuses refuses) {
    const std::size_t step = mapEnd / 32 + 1;
    for (std::size_t size = mapEnd - 1; size < mapEnd; size -= step) {
        fuzz::require(refuses(body.first(size)), "a header map that is cut short is refused");
    }
}

void hello(fuzz::Bytes body) {
    kelo::wire::Hello first;
    kelo::wire::Hello second;
    if (kelo::wire::readHello(body, first) != nullptr) return;
    kelo::wire::appendHello(frame, first);
    fuzz::require(kelo::wire::readHello(writtenBody(FrameType::hello, 0), second) == nullptr, "a written hello is read");
    fuzz::require(first.version == second.version && first.application == second.application &&
                      first.servicePath == second.servicePath && first.mimeTypes == second.mimeTypes,
                  "a written hello is what was read");
    requireWholeMap(body, body.size(), [&](fuzz::Bytes cut) { return kelo::wire::readHello(cut, second) != nullptr; });
}

void request(fuzz::Bytes body, bool oneShot) {
    // The first one is reused for every input, as the runtime does: nothing may be left over from the input before.
    static kelo::Request first;
    static kelo::Request second;
    static kelo::wire::LastFields last;
    const char* const wrong = kelo::wire::readRequest(body, "", first, last);
    fuzz::require(wrong == kelo::wire::readRequest(body, "", second), "a request is refused whatever came before");
    if (wrong != nullptr) return;
    fuzz::require(areSame(first, second), "a request is the same whatever came before");
    if (first.headers().entries().size() <= mostOtherHeaders) {
        kelo::wire::appendRequest(frame, requestId, first, oneShot);
        fuzz::require(kelo::wire::readRequest(writtenBody(FrameType::request, requestId), "", second) == nullptr,
                      "a written request is read");
        fuzz::require(areSame(first, second), "a written request is what was read");
    }
    requireWholeMap(body, body.size() - first.payload().bytes().size(),
                    [](fuzz::Bytes cut) { return kelo::wire::readRequest(cut, "", second) != nullptr; });
}

void response(fuzz::Bytes body, FrameType type, std::uint8_t flags) {
    static kelo::Response first;
    static kelo::Response second;
    static kelo::wire::LastFields last;
    const char* const wrong = kelo::wire::readResponse(body, first, last);
    fuzz::require(wrong == kelo::wire::readResponse(body, second), "a response is refused whatever came before");
    if (wrong != nullptr) return;
    fuzz::require(areSame(first, second), "a response is the same whatever came before");
    if (first.headers().entries().size() <= mostOtherHeaders) {
        kelo::wire::appendResponse(frame, type, flags, requestId, first);
        fuzz::require(kelo::wire::readResponse(writtenBody(type, requestId), second) == nullptr, "a written response is read");
        fuzz::require(areSame(first, second), "a written response is what was read");
    }
    requireWholeMap(body, body.size() - first.payload().bytes().size(),
                    [](fuzz::Bytes cut) { return kelo::wire::readResponse(cut, second) != nullptr; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Bytes bytes{data, size};
    kelo::wire::FrameHeader header;
    if (size < kelo::wire::headerSize || kelo::wire::readHeader(bytes, header) != nullptr) return 0;
    // The length only says where the next frame begins. There is none here, so a wrong length is ignored and no mutation is
    // wasted.
    const fuzz::Bytes body = bytes.subspan(kelo::wire::headerSize);
    frame.clear();
    switch (header.type) {
        case FrameType::hello:
            hello(body);
            break;
        case FrameType::request:
            request(body, header.flags == kelo::wire::flagOneShot);
            break;
        case FrameType::next:
        case FrameType::error:
            response(body, header.type, header.flags);
            break;
        case FrameType::completed:
        case FrameType::cancel:
            if (kelo::wire::readBare(body) != nullptr) break;
            kelo::wire::appendBare(frame, header.type, requestId);
            fuzz::require(kelo::wire::readBare(writtenBody(header.type, requestId)) == nullptr, "a written bare frame is read");
            break;
    }
    return 0;
}
