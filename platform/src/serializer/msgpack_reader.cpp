#include "serializer/msgpack_reader.h"

#include <bit>
#include <cmath>
#include <limits>

#include "kelo/std/error_storage.h"
#include "serializer/reader_support.h"
#include "serializer/utf8.h"
#include "serializer/writer_nesting.h"

// Every form of the format is read, canonical or not. A length is believed only as far as there are bytes, and nothing is
// allocated: text is a view into the input. Binary and extension values have no place in our documents; they are skipped, and
// refused where a value is wanted.
//
// A container keeps the number of entries that it still owes. An entry is accounted for when its key, or its element's end, is
// read.

namespace kelo::serializer {

using util::serializer::ValueType;

bool MsgpackReader::failed(const char* what) const {
    return readFailed(what, at_);
}

bool MsgpackReader::start(const util::ByteBufferReader& reader) {
    bytes_ = reader.bytes();
    at_ = 0;
    depth_ = 0;
    return false;
}

bool MsgpackReader::finish() {
    if (depth_ != 0) return failed("the document ends inside a container");
    if (at_ != bytes_.size()) return failed("expected the end of the document");
    return false;
}

std::uint64_t MsgpackReader::number(std::size_t at, std::size_t size) const noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8U | bytes_[at + i];
    return value;
}

bool MsgpackReader::decode(Item& item) const {
    const std::size_t left = bytes_.size() - at_;
    if (left == 0) return failed("the document is cut short");
    const std::uint8_t type = bytes_[at_];
    const auto isCut = [&](std::size_t size) { return left < size; };
    // A value whose header of `1 + width` bytes gives the length of `extra` more bytes and its content.
    const auto content = [&](Item::Kind kind, std::size_t width, std::size_t extra = 0) {
        if (isCut(1 + width)) return failed("the document is cut short");
        const std::uint64_t size = number(at_ + 1, width);
        if (size > left - 1 - width || left - 1 - width - size < extra) return failed("the document is cut short");
        item.kind = kind;
        item.text = {reinterpret_cast<const char*>(bytes_.data()) + at_ + 1 + width + extra, size};
        item.size = 1 + width + extra + size;
        return false;
    };
    const auto shortText = [&](Item::Kind kind, std::size_t header, std::size_t size) {
        if (isCut(header + size)) return failed("the document is cut short");
        item.kind = kind;
        item.text = {reinterpret_cast<const char*>(bytes_.data()) + at_ + header, size};
        item.size = header + size;
        return false;
    };
    const auto container = [&](Item::Kind kind, std::size_t width) {
        if (isCut(1 + width)) return failed("the document is cut short");
        item.kind = kind;
        item.integer = static_cast<std::int64_t>(number(at_ + 1, width));
        item.size = 1 + width;
        return false;
    };
    const auto unsignedNumber = [&](std::size_t width) {
        if (isCut(1 + width)) return failed("the document is cut short");
        const std::uint64_t value = number(at_ + 1, width);
        item.kind = value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) ? Item::Kind::tooLarge
                                                                                                 : Item::Kind::integer;
        item.integer = static_cast<std::int64_t>(value);
        item.floating = static_cast<double>(value);
        item.size = 1 + width;
        return false;
    };
    const auto signedNumber = [&](std::size_t width) {
        if (isCut(1 + width)) return failed("the document is cut short");
        const auto shift = static_cast<unsigned>(64 - 8 * width);
        item.kind = Item::Kind::integer;
        item.integer = static_cast<std::int64_t>(number(at_ + 1, width) << shift) >> shift;
        item.size = 1 + width;
        return false;
    };
    const auto floating = [&](std::size_t width) {
        if (isCut(1 + width)) return failed("the document is cut short");
        const std::uint64_t bits = number(at_ + 1, width);
        item.kind = Item::Kind::floating;
        item.floating = width == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits)) : std::bit_cast<double>(bits);
        item.size = 1 + width;
        return false;
    };
    item.size = 1;
    if (type <= 0x7f || type >= 0xe0) {
        item.kind = Item::Kind::integer;
        item.integer = static_cast<std::int8_t>(type);
        return false;
    }
    if (type <= 0x8f || type <= 0x9f) {
        item.kind = type <= 0x8f ? Item::Kind::map : Item::Kind::array;
        item.integer = type & 0x0fU;
        return false;
    }
    if (type <= 0xbf) return shortText(Item::Kind::text, 1, type & 0x1fU);
    switch (type) {
        case 0xc0:
            item.kind = Item::Kind::null;
            return false;
        case 0xc2:
        case 0xc3:
            item.kind = Item::Kind::boolean;
            item.integer = type & 1U;
            return false;
        case 0xc4:
        case 0xc5:
        case 0xc6:
            return content(Item::Kind::binary, std::size_t{1} << (type - 0xc4U));
        case 0xc7:
        case 0xc8:
        case 0xc9:
            return content(Item::Kind::binary, std::size_t{1} << (type - 0xc7U), 1);
        case 0xca:
            return floating(4);
        case 0xcb:
            return floating(8);
        case 0xcc:
        case 0xcd:
        case 0xce:
        case 0xcf:
            return unsignedNumber(std::size_t{1} << (type - 0xccU));
        case 0xd0:
        case 0xd1:
        case 0xd2:
        case 0xd3:
            return signedNumber(std::size_t{1} << (type - 0xd0U));
        case 0xd4:
        case 0xd5:
        case 0xd6:
        case 0xd7:
        case 0xd8:
            return shortText(Item::Kind::binary, 2, std::size_t{1} << (type - 0xd4U));
        case 0xd9:
        case 0xda:
        case 0xdb:
            return content(Item::Kind::text, std::size_t{1} << (type - 0xd9U));
        case 0xdc:
        case 0xdd:
            return container(Item::Kind::array, type == 0xdc ? 2 : 4);
        case 0xde:
        case 0xdf:
            return container(Item::Kind::map, type == 0xde ? 2 : 4);
        default:
            return failed("a byte that begins no value");
    }
}

bool MsgpackReader::expect(Item& item, Item::Kind kind, const char* what) {
    if (decode(item)) return true;
    if (item.kind != kind) return failed(what);
    return consume(item);
}

// Text is checked where it is taken, not where it is only looked at.
bool MsgpackReader::consume(const Item& item) {
    if (item.kind == Item::Kind::text && !isValidUtf8(item.text)) return failed("a string is not valid UTF-8");
    at_ += item.size;
    return false;
}

bool MsgpackReader::begin(bool object) {
    Item item;
    if (depth_ == maximumDepth) return failed("containers nested more than 64 deep");
    if (expect(item, object ? Item::Kind::map : Item::Kind::array, object ? "expected an object" : "expected an array"))
        return true;
    containers_[depth_++] = {static_cast<std::uint32_t>(item.integer), object};
    return false;
}

bool MsgpackReader::atEnd(bool object, bool& end) const {
    if (depth_ == 0 || containers_[depth_ - 1].object != object) return failed("no such container is open");
    end = containers_[depth_ - 1].left == 0;
    return false;
}

bool MsgpackReader::end(bool object) {
    bool atClose = false;
    if (atEnd(object, atClose)) return true;
    if (!atClose) return failed("a container has more entries");
    --depth_;
    return false;
}

bool MsgpackReader::beginObject() {
    return begin(true);
}
bool MsgpackReader::atObjectEnd(bool& end) {
    return atEnd(true, end);
}
bool MsgpackReader::endObject() {
    return end(true);
}
bool MsgpackReader::beginArray() {
    return begin(false);
}
bool MsgpackReader::atArrayEnd(bool& end) {
    return atEnd(false, end);
}
bool MsgpackReader::endArray() {
    return end(false);
}

bool MsgpackReader::memberKey(std::string_view& key) {
    bool atClose = false;
    if (atEnd(true, atClose)) return true;
    if (atClose) return failed("the object has no further member");
    Item item;
    if (expect(item, Item::Kind::text, "expected a member's key")) return true;
    key = item.text;
    return false;
}

bool MsgpackReader::endMember() {
    --containers_[depth_ - 1].left;
    return false;
}

bool MsgpackReader::endElement() {
    bool atClose = false;
    if (atEnd(false, atClose)) return true;
    if (atClose) return failed("the array has no further element");
    --containers_[depth_ - 1].left;
    return false;
}

ValueType MsgpackReader::peek() {
    if (at_ == bytes_.size()) return ValueType::invalid;
    Item item;
    if (decode(item)) {
        std::ErrorStorage::ack();
        return ValueType::invalid;
    }
    switch (item.kind) {
        case Item::Kind::null:
            return ValueType::null;
        case Item::Kind::boolean:
            return ValueType::boolean;
        case Item::Kind::integer:
        case Item::Kind::tooLarge:
            return ValueType::integer;
        case Item::Kind::floating:
            return ValueType::floating;
        case Item::Kind::text:
            return ValueType::string;
        case Item::Kind::array:
            return ValueType::array;
        case Item::Kind::map:
            return ValueType::object;
        case Item::Kind::binary:
            break;
    }
    return ValueType::invalid;
}

bool MsgpackReader::readNull() {
    Item item;
    return expect(item, Item::Kind::null, "expected null");
}

bool MsgpackReader::readBool(bool& value) {
    Item item;
    if (expect(item, Item::Kind::boolean, "expected true or false")) return true;
    value = item.integer != 0;
    return false;
}

bool MsgpackReader::readInt(std::int64_t& value) {
    Item item;
    if (decode(item)) return true;
    if (item.kind == Item::Kind::tooLarge) return failed("an integer beyond 64 bits");
    if (item.kind != Item::Kind::integer) return failed("expected an integer");
    at_ += item.size;
    value = item.integer;
    return false;
}

bool MsgpackReader::readDouble(double& value) {
    Item item;
    if (decode(item)) return true;
    if (item.kind == Item::Kind::integer) {
        item.floating = static_cast<double>(item.integer);
        if (!isExact(item.integer)) return failed("an integer that no double is equal to");
    } else if (item.kind == Item::Kind::tooLarge) {
        if (!isExact(static_cast<std::uint64_t>(item.integer))) return failed("an integer that no double is equal to");
    } else if (item.kind != Item::Kind::floating) {
        return failed("expected a number");
    }
    if (!std::isfinite(item.floating)) return failed("an infinity or NaN");
    at_ += item.size;
    value = item.floating;
    return false;
}

bool MsgpackReader::readString(std::string_view& value) {
    Item item;
    if (expect(item, Item::Kind::text, "expected a string")) return true;
    value = item.text;
    return false;
}

bool MsgpackReader::readUuid(std::UUID& value) {
    std::string_view text;
    if (readString(text)) return true;
    return std::UUID::parse(text, value) ? false : failed("a string that is no UUID");
}

bool MsgpackReader::readUrl(kelo::url& value) {
    std::string_view text;
    if (readString(text)) return true;
    value = kelo::url{std::string{text}};
    return false;
}

bool MsgpackReader::skipValue() {
    Item item;
    if (decode(item)) return true;
    if (item.kind != Item::Kind::array && item.kind != Item::Kind::map) return consume(item);
    const bool object = item.kind == Item::Kind::map;
    if (begin(object)) return true;
    for (;;) {
        bool atClose = false;
        if (atEnd(object, atClose)) return true;
        if (atClose) return end(object);
        std::string_view key;
        if (object && memberKey(key)) return true;
        if (skipValue() || (object ? endMember() : endElement())) return true;
    }
}

}  // namespace kelo::serializer
