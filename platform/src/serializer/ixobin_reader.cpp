#include "serializer/ixobin_reader.h"

#include <cbor.h>

#include <cmath>
#include <limits>

#include "kelo/std/error_storage.h"
#include "serializer/reader_support.h"
#include "serializer/utf8.h"
#include "serializer/writer_nesting.h"

// RFC 8949, item by item, through libcbor's streaming decoder: both kinds of lengths, every width of a number, half floats, tags.
// What the decoder does not know, unassigned simple values, is decoded here. A length is believed only as far as there are bytes.
//
// Tags say what a value means, and mean little to us: they are passed over, but for a UUID (tag 37 on 16 bytes), which is also
// text to whoever asks for a string, so that tools that know no records can show it.
//
// A container of known length keeps the entries that it still owes; one of indefinite length ends at its break. Either way a map
// may not end between a key and its value.

namespace kelo::serializer {
namespace {

using util::serializer::ValueType;

constexpr std::uint64_t noTag = ~std::uint64_t{0};
constexpr std::uint64_t uuidTag = 37;

}  // namespace

// What the streaming decoder calls with the one item that it found.
struct IxobinReader::Decoding {
    static Item& item(void* context) { return *static_cast<Item*>(context); }
    template <class T>
    static void positive(void* context, T value) {
        const std::uint64_t wide = value;
        item(context).kind = wide > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) ? Item::Kind::tooLarge
                                                                                                         : Item::Kind::integer;
        item(context).integer = static_cast<std::int64_t>(wide);
        item(context).count = wide;
    }
    template <class T>
    static void negative(void* context, T value) {
        const std::uint64_t wide = value;
        item(context).kind = wide > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) ? Item::Kind::tooLarge
                                                                                                         : Item::Kind::integer;
        item(context).integer = ~static_cast<std::int64_t>(wide);
        item(context).count = noTag;  // too large, and no double either
    }
    template <Item::Kind kind>
    static void plain(void* context) {
        item(context).kind = kind;
    }
    template <Item::Kind kind>
    static void sized(void* context, std::size_t count) {
        item(context).kind = kind;
        item(context).count = count;
    }
    template <Item::Kind kind>
    static void content(void* context, cbor_data data, std::size_t size) {
        item(context).kind = kind;
        item(context).text = {reinterpret_cast<const char*>(data), size};
    }
    template <class T>
    static void floating(void* context, T value) {
        item(context).kind = Item::Kind::floating;
        item(context).floating = value;
    }

    static const cbor_callbacks& callbacks() noexcept {
        static const cbor_callbacks table = [] {
            using Kind = Item::Kind;
            cbor_callbacks all{};
            all.uint8 = positive<std::uint8_t>;
            all.uint16 = positive<std::uint16_t>;
            all.uint32 = positive<std::uint32_t>;
            all.uint64 = positive<std::uint64_t>;
            all.negint8 = negative<std::uint8_t>;
            all.negint16 = negative<std::uint16_t>;
            all.negint32 = negative<std::uint32_t>;
            all.negint64 = negative<std::uint64_t>;
            all.byte_string = content<Kind::bytes>;
            all.byte_string_start = plain<Kind::bytesStart>;
            all.string = content<Kind::text>;
            all.string_start = plain<Kind::textStart>;
            all.array_start = sized<Kind::array>;
            all.indef_array_start = plain<Kind::arrayStart>;
            all.map_start = sized<Kind::map>;
            all.indef_map_start = plain<Kind::mapStart>;
            all.tag = [](void* context, std::uint64_t tag) {
                item(context).kind = Kind::tag;
                item(context).count = tag;
            };
            all.float2 = floating<float>;
            all.float4 = floating<float>;
            all.float8 = floating<double>;
            all.undefined = plain<Kind::simple>;
            all.null = plain<Kind::null>;
            all.boolean = [](void* context, bool value) {
                item(context).kind = Kind::boolean;
                item(context).integer = value ? 1 : 0;
            };
            all.indef_break = plain<Kind::stop>;
            return all;
        }();
        return table;
    }
};

bool IxobinReader::failed(const char* what) const {
    return readFailed(what, at_);
}

bool IxobinReader::start(const util::ByteBufferReader& reader) {
    bytes_ = reader.bytes();
    at_ = 0;
    depth_ = 0;
    return false;
}

bool IxobinReader::finish() {
    if (depth_ != 0) return failed("the document ends inside a container");
    if (at_ != bytes_.size()) return failed("expected the end of the document");
    return false;
}

bool IxobinReader::decode(std::size_t at, Item& item) const {
    const std::size_t left = bytes_.size() - at;
    if (left == 0) return failed("the document is cut short");
    item = Item{};
    const std::uint8_t head = bytes_[at];
    const bool shortSimple = head >= 0xe0 && head <= 0xf3;
    const bool longSimple = head == 0xf8;
    if (shortSimple || longSimple) {
        if (longSimple && (left < 2 || bytes_[at + 1] < 32)) return failed("a malformed simple value");
        item.kind = Item::Kind::simple;
        item.size = longSimple ? 2 : 1;
        return false;
    }
    const auto decoded = cbor_stream_decode(bytes_.data() + at, left, &Decoding::callbacks(), &item);
    if (decoded.status == CBOR_DECODER_NEDATA) return failed("the document is cut short");
    if (decoded.status != CBOR_DECODER_FINISHED || item.kind == Item::Kind::none) return failed("a byte that begins no item");
    item.size = decoded.read;
    return false;
}

bool IxobinReader::decodeValue(Item& item, std::size_t& at, std::uint64_t& tag) const {
    at = at_;
    tag = noTag;
    for (;;) {
        if (decode(at, item)) return true;
        if (item.kind != Item::Kind::tag) return false;
        tag = item.count;
        at += item.size;
    }
}

bool IxobinReader::expect(Item& item, Item::Kind kind, const char* what) {
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    if (item.kind != kind) return failed(what);
    at_ = at + item.size;
    return false;
}

bool IxobinReader::begin(bool object) {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (depth_ == maximumDepth) return failed("containers nested more than 64 deep");
    if (decodeValue(item, at, tag)) return true;
    const bool indefinite = item.kind == (object ? Item::Kind::mapStart : Item::Kind::arrayStart);
    if (!indefinite && item.kind != (object ? Item::Kind::map : Item::Kind::array)) {
        return failed(object ? "expected an object" : "expected an array");
    }
    at_ = at + item.size;
    containers_[depth_++] = {item.count, object, indefinite};
    return false;
}

bool IxobinReader::atEnd(bool object, bool& end) const {
    if (depth_ == 0 || containers_[depth_ - 1].object != object) return failed("no such container is open");
    const Container& container = containers_[depth_ - 1];
    if (!container.indefinite) {
        end = container.left == 0;
        return false;
    }
    if (at_ == bytes_.size()) return failed("the document is cut short");
    end = bytes_[at_] == 0xff;
    return false;
}

bool IxobinReader::end(bool object) {
    bool atClose = false;
    if (atEnd(object, atClose)) return true;
    if (!atClose) return failed("a container has more entries");
    if (containers_[depth_ - 1].indefinite) ++at_;
    --depth_;
    return false;
}

bool IxobinReader::beginObject() {
    return begin(true);
}
bool IxobinReader::atObjectEnd(bool& end) {
    return atEnd(true, end);
}
bool IxobinReader::endObject() {
    return end(true);
}
bool IxobinReader::beginArray() {
    return begin(false);
}
bool IxobinReader::atArrayEnd(bool& end) {
    return atEnd(false, end);
}
bool IxobinReader::endArray() {
    return end(false);
}

bool IxobinReader::memberKey(std::string_view& key) {
    bool atClose = false;
    if (atEnd(true, atClose)) return true;
    if (atClose) return failed("the object has no further member");
    return readString(key);
}

bool IxobinReader::endMember() {
    if (!containers_[depth_ - 1].indefinite) --containers_[depth_ - 1].left;
    return false;
}

bool IxobinReader::endElement() {
    bool atClose = false;
    if (containers_[depth_ - 1].indefinite) return false;
    if (atEnd(false, atClose)) return true;
    if (atClose) return failed("the array has no further element");
    --containers_[depth_ - 1].left;
    return false;
}

ValueType IxobinReader::peek() {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (at_ == bytes_.size()) return ValueType::invalid;
    if (decodeValue(item, at, tag)) {
        std::ErrorStorage::ack();
        return ValueType::invalid;
    }
    switch (item.kind) {
        case Item::Kind::integer:
        case Item::Kind::tooLarge:
            return ValueType::integer;
        case Item::Kind::text:
        case Item::Kind::textStart:
            return ValueType::string;
        case Item::Kind::bytes:
            return tag == uuidTag && item.text.size() == std::UUID::byteCount ? ValueType::string : ValueType::invalid;
        case Item::Kind::array:
        case Item::Kind::arrayStart:
            return ValueType::array;
        case Item::Kind::map:
        case Item::Kind::mapStart:
            return ValueType::object;
        case Item::Kind::floating:
            return ValueType::floating;
        case Item::Kind::null:
            return ValueType::null;
        case Item::Kind::boolean:
            return ValueType::boolean;
        default:
            return ValueType::invalid;
    }
}

bool IxobinReader::readNull() {
    Item item;
    return expect(item, Item::Kind::null, "expected null");
}

bool IxobinReader::readBool(bool& value) {
    Item item;
    if (expect(item, Item::Kind::boolean, "expected true or false")) return true;
    value = item.integer != 0;
    return false;
}

bool IxobinReader::readInt(std::int64_t& value) {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    if (item.kind == Item::Kind::tooLarge) return failed("an integer beyond 64 bits");
    if (item.kind != Item::Kind::integer) return failed("expected an integer");
    at_ = at + item.size;
    value = item.integer;
    return false;
}

bool IxobinReader::readDouble(double& value) {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    if (item.kind == Item::Kind::integer) {
        if (!isExact(item.integer)) return failed("an integer that no double is equal to");
        item.floating = static_cast<double>(item.integer);
    } else if (item.kind == Item::Kind::tooLarge) {
        if (item.count == noTag || !isExact(item.count)) return failed("an integer that no double is equal to");
        item.floating = static_cast<double>(item.count);
    } else if (item.kind != Item::Kind::floating) {
        return failed("expected a number");
    }
    if (!std::isfinite(item.floating)) return failed("an infinity or NaN");
    at_ = at + item.size;
    value = item.floating;
    return false;
}

bool IxobinReader::readPieces(Item::Kind piece) {
    scratch_.clear();
    for (;;) {
        Item item;
        if (decode(at_, item)) return true;
        if (item.kind == Item::Kind::stop) {
            at_ += item.size;
            return false;
        }
        if (item.kind != piece) return failed("a string has a piece of another type");
        // Each piece is text by itself: a character may not be cut in two.
        if (piece == Item::Kind::text && !isValidUtf8(item.text)) return failed("a string is not valid UTF-8");
        scratch_.append(item.text);
        at_ += item.size;
    }
}

bool IxobinReader::readString(std::string_view& value) {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    if (item.kind == Item::Kind::textStart) {
        at_ = at + item.size;
        if (readPieces(Item::Kind::text)) return true;
        value = scratch_;
        return false;
    }
    if (item.kind == Item::Kind::bytes && tag == uuidTag && item.text.size() == std::UUID::byteCount) {
        std::UUID uuid;
        if (readUuid(uuid)) return true;
        scratch_ = uuid.toString();
        value = scratch_;
        return false;
    }
    if (item.kind != Item::Kind::text) return failed("expected a string");
    if (!isValidUtf8(item.text)) return failed("a string is not valid UTF-8");
    at_ = at + item.size;
    value = item.text;
    return false;
}

bool IxobinReader::readUuid(std::UUID& value) {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    if (item.kind == Item::Kind::bytes) {
        if (tag != uuidTag || item.text.size() != std::UUID::byteCount) return failed("a byte string that is no UUID");
        std::array<std::uint8_t, std::UUID::byteCount> bytes{};
        std::memcpy(bytes.data(), item.text.data(), bytes.size());
        value = std::UUID{bytes};
        at_ = at + item.size;
        return false;
    }
    std::string_view text;
    if (readString(text)) return true;
    return std::UUID::parse(text, value) ? false : failed("a string that is no UUID");
}

bool IxobinReader::readUrl(kelo::url& value) {
    std::string_view text;
    if (readString(text)) return true;
    value = kelo::url{std::string{text}};
    return false;
}

bool IxobinReader::skipValue() {
    Item item;
    std::size_t at = 0;
    std::uint64_t tag = noTag;
    if (decodeValue(item, at, tag)) return true;
    switch (item.kind) {
        case Item::Kind::text:
        case Item::Kind::bytes:
            if (item.kind == Item::Kind::text && !isValidUtf8(item.text)) return failed("a string is not valid UTF-8");
            break;
        case Item::Kind::textStart:
        case Item::Kind::bytesStart:
            at_ = at + item.size;
            return readPieces(item.kind == Item::Kind::textStart ? Item::Kind::text : Item::Kind::bytes);
        case Item::Kind::stop:
            return failed("a break where no container may end");
        case Item::Kind::array:
        case Item::Kind::arrayStart:
        case Item::Kind::map:
        case Item::Kind::mapStart: {
            const bool object = item.kind == Item::Kind::map || item.kind == Item::Kind::mapStart;
            if (begin(object)) return true;
            for (;;) {
                bool atClose = false;
                if (atEnd(object, atClose)) return true;
                if (atClose) return end(object);
                // Keys of what is skipped may be of any type.
                if (object && skipValue()) return true;
                if (skipValue() || (object ? endMember() : endElement())) return true;
            }
        }
        default:
            break;
    }
    at_ = at + item.size;
    return false;
}

}  // namespace kelo::serializer
