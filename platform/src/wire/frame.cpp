#include "wire/frame.h"

#include <cbor.h>

#include <bit>
#include <cstring>
#include <limits>

#include "serializer/utf8.h"

// A frame, in bytes (all numbers little-endian):
//
//     0  4  length of what follows the 16 bytes
//     4  1  type       1 hello, 2 request, 3 next, 4 error, 5 completed, 6 cancel
//     5  1  flags      1 one-shot (request), 2 end (next); others are zero
//     6  2  reserved, zero
//     8  8  request id, chosen by the consumer; 0 in a hello
//    16     one CBOR map from text to text or unsigned integer, then the payload up to the end
//
// The map is read with libcbor's streaming decoder, so definite and indefinite lengths and every width of an integer are
// accepted, as libraries of other languages write them. Values of other types, text that is not UTF-8 and more than
// `maximumFields` fields make the frame malformed, which ends its connection: after one garbled frame, the next one cannot be
// found reliably. Strings are returned as views into the frame and assigned to strings that keep their memory from one request
// to the next.

namespace kelo::wire {
namespace {

constexpr std::size_t maximumFields = 64;
constexpr std::uint8_t shortText = 0x60;  // plus the length, if that is below 24, begins a text
constexpr std::uint8_t shortMap = 0xa0;   // plus the number of fields begins a map
constexpr std::string_view version = "$version";
constexpr std::string_view application = "$application";
constexpr std::string_view mimeTypes = "$mime-types";

template <class T>
void putLittleEndian(std::uint8_t* out, T value) noexcept {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(out, &value, sizeof value);
    } else {
        for (std::size_t i = 0; i < sizeof value; ++i) out[i] = static_cast<std::uint8_t>(value >> (8U * i));
    }
}

template <class T>
T getLittleEndian(const std::uint8_t* in) noexcept {
    T value = 0;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, in, sizeof value);
    } else {
        for (std::size_t i = 0; i < sizeof value; ++i)
            value = static_cast<T>(value | static_cast<T>(static_cast<T>(in[i]) << (8U * i)));
    }
    return value;
}

// Writes one frame to the end of a buffer. If memory runs short, the unfinished frame is removed again: a partial frame would
// garble everything after it.
class FrameWriter {
public:
    FrameWriter(util::ByteBufferWriter& out, FrameType type, std::uint8_t flags, std::uint64_t id, std::size_t fields)
        : FrameWriter{out} {
        char* const to = out_.claim(headerSize + longestHead);
        auto* const header = reinterpret_cast<std::uint8_t*>(to);
        putLittleEndian(header, std::uint32_t{0});  // the length, which finish() fills in
        header[4] = static_cast<std::uint8_t>(type);
        header[5] = flags;
        putLittleEndian(header + 6, std::uint16_t{0});
        putLittleEndian(header + 8, id);
        out_.commitTo(putHead(to + headerSize, mapMajor, fields));
    }
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;
    ~FrameWriter() {
        if (!isFinished_) out_.truncate(start_);
    }

    void field(std::string_view key, std::string_view value) {
        char* const to = out_.claim(key.size() + value.size() + 2 * longestHead);
        out_.commitTo(putText(putText(to, key), value));
    }
    void field(std::string_view key, std::uint64_t value) {
        char* const to = out_.claim(key.size() + 2 * longestHead);
        out_.commitTo(putHead(putText(to, key), unsignedMajor, value));
    }
    void payload(std::span<const std::uint8_t> bytes) { out_.write(bytes.data(), bytes.size()); }
    void finish() noexcept {
        std::uint8_t length[4];
        putLittleEndian(length, static_cast<std::uint32_t>(out_.size() - start_ - headerSize));
        out_.overwrite(start_, length, sizeof length);
        isFinished_ = true;
    }

private:
    explicit FrameWriter(util::ByteBufferWriter& out) : out_{out}, start_{out.size()} {}

    static constexpr std::size_t longestHead = 9;
    static constexpr unsigned unsignedMajor = 0;
    static constexpr unsigned textMajor = 3;
    static constexpr unsigned mapMajor = 5;

    // Writes the type and number that begin an item. Returns the position after it, as putText() does. Nearly all numbers here
    // are below 24 and fit into the first byte.
    static char* putHead(char* to, unsigned major, std::uint64_t value) {
        if (value < 24) [[likely]] {
            *to = static_cast<char>(major << 5U | static_cast<unsigned>(value));
            return to + 1;
        }
        auto* const bytes = reinterpret_cast<unsigned char*>(to);
        const std::size_t size = cbor_encode_uint(value, bytes, longestHead);
        bytes[0] = static_cast<unsigned char>(bytes[0] | major << 5U);
        return to + size;
    }
    static char* putText(char* to, std::string_view value) {
        to = putHead(to, textMajor, value.size());
        std::memcpy(to, value.data(), value.size());
        return to + value.size();
    }

    util::ByteBufferWriter& out_;
    std::size_t start_;
    bool isFinished_ = false;
};

// One item of the map, as the streaming decoder reports it.
struct Item {
    enum class Kind : std::uint8_t { none, map, indefiniteMap, text, number, end, other } kind = Kind::none;
    std::string_view text;
    std::uint64_t number = 0;
};

void setOther(void* item) {
    static_cast<Item*>(item)->kind = Item::Kind::other;
}
template <class T>
void setNumber(void* context, T value) {
    auto& item = *static_cast<Item*>(context);
    item.kind = Item::Kind::number;
    item.number = value;
}

const cbor_callbacks& callbacks() noexcept {
    static const cbor_callbacks table = [] {
        cbor_callbacks all{};
        all.uint8 = setNumber<std::uint8_t>;
        all.uint16 = setNumber<std::uint16_t>;
        all.uint32 = setNumber<std::uint32_t>;
        all.uint64 = setNumber<std::uint64_t>;
        all.negint8 = [](void* item, std::uint8_t) { setOther(item); };
        all.negint16 = [](void* item, std::uint16_t) { setOther(item); };
        all.negint32 = [](void* item, std::uint32_t) { setOther(item); };
        all.negint64 = [](void* item, std::uint64_t) { setOther(item); };
        all.byte_string = [](void* item, cbor_data, std::size_t) { setOther(item); };
        all.byte_string_start = setOther;
        all.string = [](void* context, cbor_data data, std::size_t size) {
            auto& item = *static_cast<Item*>(context);
            item.kind = Item::Kind::text;
            item.text = {reinterpret_cast<const char*>(data), size};
        };
        all.string_start = setOther;
        all.array_start = [](void* item, std::size_t) { setOther(item); };
        all.indef_array_start = setOther;
        all.map_start = [](void* context, std::size_t size) {
            auto& item = *static_cast<Item*>(context);
            item.kind = Item::Kind::map;
            item.number = size;
        };
        all.indef_map_start = [](void* context) { static_cast<Item*>(context)->kind = Item::Kind::indefiniteMap; };
        all.tag = [](void* item, std::uint64_t) { setOther(item); };
        all.float2 = [](void* item, float) { setOther(item); };
        all.float4 = [](void* item, float) { setOther(item); };
        all.float8 = [](void* item, double) { setOther(item); };
        all.undefined = setOther;
        all.null = setOther;
        all.boolean = [](void* item, bool) { setOther(item); };
        all.indef_break = [](void* context) { static_cast<Item*>(context)->kind = Item::Kind::end; };
        return all;
    }();
    return table;
}

// Walks the header map. onField(key, item) is called for each field and returns null or what is wrong with it. `rest` is what
// follows the map.
template <class OnField>
const char* readFields(std::span<const std::uint8_t> body, std::span<const std::uint8_t>& rest, OnField onField) {
    std::size_t at = 0;
    const auto next = [&](Item& item) {
        // The usual items do not go through the decoder: short text, and a map with few fields.
        const std::uint8_t first = at < body.size() ? body[at] : 0xffU;
        if (const std::size_t size = first - shortText; first >= shortText && size < 24 && size < body.size() - at) {
            item.kind = Item::Kind::text;
            item.text = {reinterpret_cast<const char*>(body.data()) + at + 1, size};
            at += size + 1;
            return true;
        }
        if (first >= shortMap && first - shortMap < 24) {
            item.kind = Item::Kind::map;
            item.number = first - shortMap;
            ++at;
            return true;
        }
        item.kind = Item::Kind::none;
        const auto decoded = cbor_stream_decode(body.data() + at, body.size() - at, &callbacks(), &item);
        if (decoded.status != CBOR_DECODER_FINISHED || item.kind == Item::Kind::none) return false;
        at += decoded.read;
        return true;
    };
    Item head;
    if (!next(head)) return "header map cut short or not CBOR";
    const bool indefinite = head.kind == Item::Kind::indefiniteMap;
    if (!indefinite && head.kind != Item::Kind::map) return "header map is not a map";
    if (!indefinite && head.number > maximumFields) return "too many header fields";
    for (std::size_t count = 0; indefinite || count < head.number; ++count) {
        if (count > maximumFields) return "too many header fields";
        Item key;
        if (!next(key)) return "header map cut short or not CBOR";
        if (indefinite && key.kind == Item::Kind::end) break;
        if (key.kind != Item::Kind::text) return "a header key is not text";
        Item value;
        if (!next(value)) return "header map cut short or not CBOR";
        if (value.kind != Item::Kind::text && value.kind != Item::Kind::number)
            return "a header value is neither text nor unsigned integer";
        if (!serializer::isValidUtf8(key.text)) return "a header key is not valid UTF-8";
        if (value.kind == Item::Kind::text && !serializer::isValidUtf8(value.text)) return "a header value is not valid UTF-8";
        if (const char* wrong = onField(key.text, value)) return wrong;
    }
    rest = body.subspan(at);
    return nullptr;
}

constexpr const char* wrongType = "a header has a value of the wrong type";

// Reads a field that must be text.
const char* readText(const Item& item, std::string& out) {
    if (item.kind != Item::Kind::text) return wrongType;
    out.assign(item.text);
    return nullptr;
}

// Keeps a field that is not one of the framework's, as text.
void keepOther(HeaderMap& headers, std::string_view key, const Item& item) {
    if (item.kind == Item::Kind::text) {
        headers.set(key, item.text);
    } else {
        headers.set(key, std::to_string(item.number));
    }
}

// A map contains its own length, so if the body begins with the bytes of the last map, that is its map.
template <class Value, class Read>
const char* readWithLast(std::span<const std::uint8_t> body, Value& value, LastFields& last, Read read) {
    if (last.areFirstIn(body)) {
        value.rebindPayload(body.subspan(last.size()));
        return nullptr;
    }
    last.forget();
    const char* const wrong = read();
    if (wrong == nullptr) last.keep(body.first(body.size() - value.payload().bytes().size()));
    return wrong;
}

}  // namespace

const char* readHeader(std::span<const std::uint8_t> bytes, FrameHeader& header) noexcept {
    header.bodyLength = getLittleEndian<std::uint32_t>(bytes.data());
    const std::uint8_t type = bytes[4];
    if (type < static_cast<std::uint8_t>(FrameType::hello) || type > static_cast<std::uint8_t>(FrameType::cancel))
        return "unknown frame type";
    header.type = static_cast<FrameType>(type);
    header.flags = bytes[5];
    const std::uint8_t known = header.type == FrameType::request ? flagOneShot : header.type == FrameType::next ? flagEnd : 0;
    if ((header.flags & ~known) != 0) return "unknown frame flags";
    if (bytes[6] != 0 || bytes[7] != 0) return "reserved bytes are not zero";
    header.requestId = getLittleEndian<std::uint64_t>(bytes.data() + 8);
    if ((header.type == FrameType::hello) != (header.requestId == 0)) return "request id 0 belongs to hello alone";
    return nullptr;
}

void appendHello(util::ByteBufferWriter& out, const Hello& hello) {
    FrameWriter frame{out, FrameType::hello, 0, 0,
                      2U + (hello.servicePath.empty() ? 0U : 1U) + (hello.mimeTypes.empty() ? 0U : 1U)};
    frame.field(version, std::uint64_t{hello.version});
    frame.field(application, hello.application);
    if (!hello.servicePath.empty()) frame.field(headers::servicePath, hello.servicePath);
    if (!hello.mimeTypes.empty()) frame.field(mimeTypes, hello.mimeTypes);
    frame.finish();
}

void appendRequest(util::ByteBufferWriter& out, std::uint64_t id, const Request& request, bool oneShot) {
    const std::string_view contentType = request.contentType();
    const auto given = [](std::string_view text) { return text.empty() ? 0U : 1U; };
    const std::size_t fields = 2 + given(request.servicePath()) + given(request.clientId()) + given(request.accept()) +
                               given(request.authToken()) + given(contentType) + request.headers().entries().size();
    FrameWriter frame{out, FrameType::request, oneShot ? flagOneShot : std::uint8_t{0}, id, fields};
    frame.field(headers::requestCommand, request.command());
    frame.field(headers::requestPath, request.path());
    if (!request.servicePath().empty()) frame.field(headers::servicePath, request.servicePath());
    if (!request.clientId().empty()) frame.field(headers::clientId, request.clientId());
    if (!request.accept().empty()) frame.field(headers::accept, request.accept());
    if (!request.authToken().empty()) frame.field(headers::authToken, request.authToken());
    if (!contentType.empty()) frame.field(headers::mimeType, contentType);
    for (const auto& [key, value] : request.headers().entries()) frame.field(key, value);
    frame.payload(request.payload().bytes());
    frame.finish();
}

void appendResponse(util::ByteBufferWriter& out, FrameType type, std::uint8_t flags, std::uint64_t id, const Response& response) {
    const std::string_view contentType = response.getMimeTypeText();
    const std::size_t fields =
        1U + (contentType.empty() ? 0U : 1U) + (response.clientId().empty() ? 0U : 1U) + response.headers().entries().size();
    FrameWriter frame{out, type, flags, id, fields};
    frame.field(headers::status, std::uint64_t{response.status()});
    if (!contentType.empty()) frame.field(headers::mimeType, contentType);
    if (!response.clientId().empty()) frame.field(headers::clientId, response.clientId());
    for (const auto& [key, value] : response.headers().entries()) frame.field(key, value);
    frame.payload(response.payload().bytes());
    frame.finish();
}

void appendBare(util::ByteBufferWriter& out, FrameType type, std::uint64_t id) {
    FrameWriter frame{out, type, 0, id, 0};
    frame.finish();
}

const char* readHello(std::span<const std::uint8_t> body, Hello& hello) {
    hello = {};
    std::span<const std::uint8_t> rest;
    const char* wrong = readFields(body, rest, [&](std::string_view key, const Item& item) -> const char* {
        if (key == version) {
            if (item.kind != Item::Kind::number || item.number > std::numeric_limits<std::uint32_t>::max()) return wrongType;
            hello.version = static_cast<std::uint32_t>(item.number);
            return nullptr;
        }
        if (key == application) return readText(item, hello.application);
        if (key == headers::servicePath) return readText(item, hello.servicePath);
        if (key == mimeTypes) return readText(item, hello.mimeTypes);
        return nullptr;
    });
    if (wrong == nullptr && !rest.empty()) wrong = "a hello has no payload";
    return wrong;
}

const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request) {
    request.headers().clear();
    request.setCommand({});
    request.setPath({});
    request.setServicePath({});
    request.setClientId(defaultClientId);
    request.setAccept({});
    request.setAuthToken({});
    std::string_view contentType;
    std::span<const std::uint8_t> rest;
    const char* wrong = readFields(body, rest, [&](std::string_view key, const Item& item) -> const char* {
        const bool ours = !key.empty() && key.front() == '$';
        if (ours && item.kind != Item::Kind::text) return wrongType;
        if (key == headers::requestCommand) {
            request.setCommand(item.text);
        } else if (key == headers::requestPath) {
            request.setPath(item.text);
        } else if (key == headers::servicePath) {
            request.setServicePath(item.text);
        } else if (key == headers::clientId) {
            request.setClientId(item.text);
        } else if (key == headers::accept) {
            request.setAccept(item.text);
        } else if (key == headers::authToken) {
            request.setAuthToken(item.text);
        } else if (key == headers::mimeType) {
            contentType = item.text;
        } else {
            keepOther(request.headers(), key, item);
        }
        return nullptr;
    });
    if (wrong != nullptr) return wrong;
    request.setPayload(Payload::borrow(rest, MimeType{contentType}));
    return nullptr;
}

const char* readResponse(std::span<const std::uint8_t> body, Response& response) {
    response.headers().clear();
    response.setClientId({});
    response.setStatus(0);
    std::string_view contentType;
    std::span<const std::uint8_t> rest;
    const char* wrong = readFields(body, rest, [&](std::string_view key, const Item& item) -> const char* {
        if (key == headers::status) {
            if (item.kind != Item::Kind::number || item.number < 100 || item.number > 999)
                return "a status is not a number from 100 to 999";
            response.setStatus(static_cast<std::uint16_t>(item.number));
            return nullptr;
        }
        const bool ours = !key.empty() && key.front() == '$';
        if (ours && item.kind != Item::Kind::text) return wrongType;
        if (key == headers::mimeType) {
            contentType = item.text;
        } else if (key == headers::clientId) {
            response.setClientId(item.text);
        } else {
            keepOther(response.headers(), key, item);
        }
        return nullptr;
    });
    if (wrong != nullptr) return wrong;
    if (response.status() == 0) return "a response has no status";
    response.setPayload(Payload::borrow(rest, MimeType{contentType}));
    return nullptr;
}

bool LastFields::areFirstIn(std::span<const std::uint8_t> body) const noexcept {
    return !bytes_.empty() && body.size() >= bytes_.size() && std::memcmp(body.data(), bytes_.data(), bytes_.size()) == 0;
}

void LastFields::keep(std::span<const std::uint8_t> fields) {
    if (fields.size() <= most) bytes_.assign(fields.begin(), fields.end());
}

const char* readRequest(std::span<const std::uint8_t> body, std::string_view defaultClientId, Request& request,
                        LastFields& last) {
    return readWithLast(body, request, last, [&] { return readRequest(body, defaultClientId, request); });
}

const char* readResponse(std::span<const std::uint8_t> body, Response& response, LastFields& last) {
    return readWithLast(body, response, last, [&] { return readResponse(body, response); });
}

const char* readBare(std::span<const std::uint8_t> body) noexcept {
    constexpr const char* wrong = "a frame without headers has a body";
    if (body.empty()) return nullptr;
    std::span<const std::uint8_t> rest;
    const char* const notEmpty = readFields(body, rest, [](std::string_view, const Item&) { return wrong; });
    return notEmpty == nullptr && !rest.empty() ? wrong : notEmpty;
}

}  // namespace kelo::wire
