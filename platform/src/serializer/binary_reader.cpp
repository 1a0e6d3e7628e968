#include "serializer/binary_reader.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "serializer/utf8.h"

// A value is decoded once, although callers may look at it several times: they peek for null or for a type, and then read.
//
// A length is believed only as far as there are bytes, and nothing is allocated because of it. A container of known length keeps
// the number of entries still to come; the end of each entry reduces it. A container of unknown length, which only CBOR has, ends
// at its break. A break anywhere else does not begin a value, so a map cannot end between a key and its value.
//
// Skipped values are checked like values that are read, with one exception: in a skipped map, a key may be any value.

namespace kelo::serializer {
namespace {

using util::serializer::ValueType;
using Type = BinaryItem::Type;

constexpr std::uint8_t breakByte = 0xff;
constexpr auto largestInteger = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

// Whether a double equals the integer: the bits from its highest to its lowest set bit must fit into the fraction.
bool isExact(std::uint64_t value) noexcept {
    return value == 0 || (value >> static_cast<unsigned>(std::countr_zero(value))) >> std::numeric_limits<double>::digits == 0;
}

ValueType typeOf(const BinaryItem& item) noexcept {
    switch (item.type) {
        case Type::null:
            return ValueType::null;
        case Type::boolean:
            return ValueType::boolean;
        case Type::integer:
        case Type::large:
            return ValueType::integer;
        case Type::floating:
            return ValueType::floating;
        case Type::text:
        case Type::uuid:
            return ValueType::string;
        case Type::array:
            return ValueType::array;
        case Type::map:
            return ValueType::object;
        case Type::opaque:
            break;
    }
    return ValueType::invalid;
}

}  // namespace

void BinaryItem::setUnsigned(std::uint64_t value) noexcept {
    integer = static_cast<std::int64_t>(value);
    type = Type::integer;
    if (value > largestInteger) [[unlikely]] {
        type = Type::large;
        floating = isExact(value) ? static_cast<double>(value) : std::numeric_limits<double>::quiet_NaN();
    }
}

void BinaryItem::setNegative(std::uint64_t value) noexcept {
    integer = -1 - static_cast<std::int64_t>(value);
    type = Type::integer;
    if (value > largestInteger) [[unlikely]] {
        const std::uint64_t magnitude = value + 1;  // 0 stands for 2 to the power of 64
        type = Type::large;
        floating = magnitude == 0       ? -0x1p64
                   : isExact(magnitude) ? -static_cast<double>(magnitude)
                                        : std::numeric_limits<double>::quiet_NaN();
    }
}

bool BinaryReader::start(const util::ByteBufferReader& reader) {
    bytes_ = reader.bytes();
    at_ = 0;
    itemAt_ = nowhere;
    depth_ = 0;
    elements_ = 0;
    memory_ = 0;
    return false;
}

bool BinaryReader::finish() {
    if (depth_ != 0) return failed(fault::openAtEnd);
    if (at_ != bytes_.size()) return failed("expected the end of the document");
    return false;
}

const char* BinaryReader::look() {
    if (itemAt_ == at_) return nullptr;
    itemAt_ = nowhere;
    if (at_ == bytes_.size()) return cutShort;
    const char* const what = decode(item_);
    if (what == nullptr) itemAt_ = at_;
    return what;
}

bool BinaryReader::failedToFind(const char* expected) {
    if (const char* what = look()) return failed(what);
    const std::string_view found = nameOf(typeOf(item_));
    return readMismatch(expected, found.empty() ? "a value of another kind" : found, at_);
}

bool BinaryReader::take(Type type, const char* expected) {
    if (look() != nullptr || item_.type != type) [[unlikely]]
        return failedToFind(expected);
    at_ = item_.end;
    return false;
}

bool BinaryReader::begin(bool object) {
    if (depth_ == maximumDepth) return failed(fault::tooDeep);
    if (take(object ? Type::map : Type::array, object ? "an object" : "an array")) return true;
    containers_[depth_++] = {item_.count, object};
    return false;
}

bool BinaryReader::atEnd(bool object, bool& end) const {
    if (!isOpen(object)) return failed("no such container is open");
    const std::uint64_t left = containers_[depth_ - 1].left;
    if (left != BinaryItem::untilBreak) {
        end = left == 0;
        return false;
    }
    if (at_ == bytes_.size()) return failed(cutShort);
    end = bytes_[at_] == breakByte;
    return false;
}

bool BinaryReader::endEntry(bool object) {
    if (!isOpen(object)) return failed("no such container is open");
    std::uint64_t& left = containers_[depth_ - 1].left;
    if (left == 0) return failed("the container has no further entry");
    if (!object && ++elements_ > maximumElements) return failed(fault::tooManyElements);
    if (left != BinaryItem::untilBreak) --left;
    return false;
}

bool BinaryReader::chargeMemory(std::size_t bytes) {
    memory_ += bytes;
    return memory_ > maximumElementMemory && failed(fault::tooMuchMemory);
}

bool BinaryReader::end(bool object) {
    bool atClose = false;
    if (atEnd(object, atClose)) return true;
    if (!atClose) return failed("the container has further entries");
    if (containers_[depth_ - 1].left == BinaryItem::untilBreak) ++at_;
    --depth_;
    return false;
}

bool BinaryReader::memberKey(std::string_view& key) {
    bool atClose = false;
    if (atEnd(true, atClose)) return true;
    if (atClose) return failed("the container has no further entry");
    return readString(key);
}

bool BinaryReader::takeMemberKey(const util::serializer::PlainKey& key, bool behindMember) {
    const std::size_t size = key.size();
    if (bytes_.size() - at_ <= size || size >= shortText_.limit || bytes_[at_] != shortText_.head + size || !isOpen(true) ||
        std::memcmp(bytes_.data() + at_ + 1, key.text().data(), size) != 0) {
        return false;
    }
    std::uint64_t& left = containers_[depth_ - 1].left;
    const std::uint64_t ended = behindMember ? 1 : 0;
    if (left <= ended) return false;
    if (left != BinaryItem::untilBreak) left -= ended;
    at_ += size + 1;
    return true;
}

ValueType BinaryReader::peek() {
    return look() == nullptr ? typeOf(item_) : ValueType::invalid;
}

bool BinaryReader::readNull() {
    return take(Type::null, "null");
}

bool BinaryReader::takeNull() {
    if (look() != nullptr || item_.type != Type::null) return false;
    at_ = item_.end;
    return true;
}

bool BinaryReader::readBool(bool& value) {
    if (take(Type::boolean, "true or false")) return true;
    value = item_.integer != 0;
    return false;
}

bool BinaryReader::readInt(std::int64_t& value) {
    if (look() == nullptr && item_.type == Type::large) return failed(fault::integerTooLarge);
    if (take(Type::integer, "an integer")) return true;
    value = item_.integer;
    return false;
}

bool BinaryReader::readDouble(double& value) {
    if (look() != nullptr) return failedToFind("a number");
    double read = item_.floating;
    switch (item_.type) {
        case Type::integer: {
            const auto bits = static_cast<std::uint64_t>(item_.integer);
            if (!isExact(item_.integer < 0 ? 0 - bits : bits)) return failed(fault::integerNotExact);
            read = static_cast<double>(item_.integer);
            break;
        }
        case Type::large:
            if (std::isnan(read)) return failed(fault::integerNotExact);
            break;
        case Type::floating:
            if (!std::isfinite(read)) return failed(fault::notFinite);
            break;
        default:
            return failedToFind("a number");
    }
    value = read;
    at_ = item_.end;
    return false;
}

bool BinaryReader::readString(std::string_view& value) {
    if (look() == nullptr && item_.type == Type::uuid) {
        // Tools that do not know the record show a UUID as text.
        std::UUID uuid;
        if (readUuid(uuid)) return true;
        scratch_.resize(std::UUID::textLength);
        uuid.toChars(scratch_.data());
        value = scratch_;
        return false;
    }
    if (look() != nullptr || item_.type != Type::text) return failedToFind("a string");
    if (!isValidUtf8(item_.text)) return failed(fault::notUtf8);
    value = item_.text;
    at_ = item_.end;
    return false;
}

bool BinaryReader::readUuid(std::UUID& value) {
    if (look() == nullptr && item_.type == Type::uuid) {
        std::array<std::uint8_t, std::UUID::byteCount> bytes{};
        std::memcpy(bytes.data(), item_.text.data(), bytes.size());
        value = std::UUID{bytes};
        at_ = item_.end;
        return false;
    }
    const std::size_t begin = at_;
    std::string_view text;
    if (readString(text)) return true;
    return !std::UUID::parse(text, value) && readFailed(fault::noUuid, begin);
}

bool BinaryReader::readUrl(kelo::url& value) {
    std::string_view text;
    if (readString(text)) return true;
    value = kelo::url{std::string{text}};
    return false;
}

bool BinaryReader::skipValue() {
    if (const char* what = look()) return failed(what);
    if (item_.type == Type::text && !isValidUtf8(item_.text)) return failed(fault::notUtf8);
    if (item_.type != Type::array && item_.type != Type::map) {
        at_ = item_.end;
        return false;
    }
    const bool object = item_.type == Type::map;
    if (begin(object)) return true;
    for (;;) {
        bool atClose = false;
        if (atEnd(object, atClose)) return true;
        if (atClose) return end(object);
        if ((object && skipValue()) || skipValue() || endEntry(object)) return true;
    }
}

}  // namespace kelo::serializer
