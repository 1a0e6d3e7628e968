#include "serializer/msgpack_writer.h"

#include <bit>
#include <cmath>
#include <limits>

#include "serializer/utf8.h"

// A container's header contains its number of entries, which is known only at the end. So a 16-bit header is written first and
// filled in later. If a container has more than 65,535 entries, which is rare, its content is moved to make room for a wider
// header. Numbers and strings take the shortest form.

namespace kelo::serializer {
namespace {

constexpr std::size_t shortHeader = 3;

}  // namespace

bool MsgpackWriter::start(util::ByteBufferWriter& writer) {
    out_ = &writer;
    nesting_.start();
    return false;
}

bool MsgpackWriter::finish() {
    return nesting_.finish();
}

template <class T>
void MsgpackWriter::bigEndian(std::uint8_t type, T value) {
    std::uint8_t bytes[1 + sizeof value] = {type};
    for (std::size_t i = 0; i < sizeof value; ++i) bytes[sizeof value - i] = static_cast<std::uint8_t>(value >> (8U * i));
    out_->write(bytes, sizeof bytes);
}

bool MsgpackWriter::beginContainer(bool object) {
    if (nesting_.begin(object)) return true;
    containers_[nesting_.depth() - 1] = {out_->size(), 0};
    bigEndian<std::uint16_t>(object ? 0xde : 0xdc, 0);
    return false;
}

bool MsgpackWriter::endContainer(bool object) {
    const unsigned depth = nesting_.depth();
    if (nesting_.end(object)) return true;
    const Container container = containers_[depth - 1];
    const std::uint32_t count = container.count;
    if (count <= std::numeric_limits<std::uint16_t>::max()) {
        const std::uint8_t bytes[] = {static_cast<std::uint8_t>(count >> 8U), static_cast<std::uint8_t>(count)};
        out_->overwrite(container.at + 1, bytes, sizeof bytes);
        return false;
    }
    const std::uint8_t bytes[] = {object ? std::uint8_t{0xdf} : std::uint8_t{0xdd}, static_cast<std::uint8_t>(count >> 24U),
                                  static_cast<std::uint8_t>(count >> 16U), static_cast<std::uint8_t>(count >> 8U),
                                  static_cast<std::uint8_t>(count)};
    out_->insert(container.at + shortHeader, bytes, sizeof bytes - shortHeader);
    out_->overwrite(container.at, bytes, sizeof bytes);
    return false;
}

bool MsgpackWriter::beginObject() {
    return beginContainer(true);
}
bool MsgpackWriter::endObject() {
    return endContainer(true);
}
bool MsgpackWriter::beginArray() {
    return beginContainer(false);
}
bool MsgpackWriter::endArray() {
    return endContainer(false);
}
bool MsgpackWriter::endMember() {
    return nesting_.close(true);
}
bool MsgpackWriter::endElement() {
    return nesting_.close(false);
}

bool MsgpackWriter::memberKey(std::string_view key, bool first, int /*index*/) {
    if (nesting_.open(true, first)) return true;
    ++containers_[nesting_.depth() - 1].count;
    return writeText(key);
}

bool MsgpackWriter::plainMemberKey(const util::serializer::PlainKey& key, bool first) {
    if (nesting_.open(true, first)) return true;
    ++containers_[nesting_.depth() - 1].count;
    out_->writeByte(static_cast<std::uint8_t>(0xa0U | key.size()));
    out_->write(key.text());
    return false;
}

bool MsgpackWriter::beginElement(bool first) {
    if (nesting_.open(false, first)) return true;
    ++containers_[nesting_.depth() - 1].count;
    return false;
}

bool MsgpackWriter::writeNull() {
    if (nesting_.value()) return true;
    out_->writeByte(0xc0);
    return false;
}

bool MsgpackWriter::writeBool(bool value) {
    if (nesting_.value()) return true;
    out_->writeByte(value ? 0xc3 : 0xc2);
    return false;
}

bool MsgpackWriter::writeInt(std::int64_t value) {
    if (nesting_.value()) return true;
    const auto bits = static_cast<std::uint64_t>(value);
    if (value >= -32 && value <= 127) {
        out_->writeByte(static_cast<std::uint8_t>(bits));
    } else if (value >= 0) {
        if (value <= 0xff) {
            bigEndian<std::uint8_t>(0xcc, static_cast<std::uint8_t>(bits));
        } else if (value <= 0xffff) {
            bigEndian<std::uint16_t>(0xcd, static_cast<std::uint16_t>(bits));
        } else if (value <= 0xffffffff) {
            bigEndian<std::uint32_t>(0xce, static_cast<std::uint32_t>(bits));
        } else {
            bigEndian<std::uint64_t>(0xcf, bits);
        }
    } else if (value >= std::numeric_limits<std::int8_t>::min()) {
        bigEndian<std::uint8_t>(0xd0, static_cast<std::uint8_t>(bits));
    } else if (value >= std::numeric_limits<std::int16_t>::min()) {
        bigEndian<std::uint16_t>(0xd1, static_cast<std::uint16_t>(bits));
    } else if (value >= std::numeric_limits<std::int32_t>::min()) {
        bigEndian<std::uint32_t>(0xd2, static_cast<std::uint32_t>(bits));
    } else {
        bigEndian<std::uint64_t>(0xd3, bits);
    }
    return false;
}

bool MsgpackWriter::writeDouble(double value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    if (nesting_.value()) return true;
    bigEndian(0xcb, std::bit_cast<std::uint64_t>(value));
    return false;
}

bool MsgpackWriter::writeFloat(float value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    if (nesting_.value()) return true;
    bigEndian(0xca, std::bit_cast<std::uint32_t>(value));
    return false;
}

bool MsgpackWriter::writeString(std::string_view value) {
    return nesting_.value() || writeText(value);
}

bool MsgpackWriter::writeUuid(const std::UUID& value) {
    char text[std::UUID::textLength];
    value.toChars(text);
    return writeString({text, sizeof text});
}

bool MsgpackWriter::writeUrl(const kelo::url& value) {
    return writeString(value.toString());
}

bool MsgpackWriter::writeText(std::string_view text) {
    if (!isValidUtf8(text)) return nesting_.fail(fault::notUtf8);
    const std::size_t size = text.size();
    if (size < 32) {
        out_->writeByte(static_cast<std::uint8_t>(0xa0U | size));
    } else if (size <= 0xff) {
        bigEndian<std::uint8_t>(0xd9, static_cast<std::uint8_t>(size));
    } else if (size <= 0xffff) {
        bigEndian<std::uint16_t>(0xda, static_cast<std::uint16_t>(size));
    } else if (size <= 0xffffffff) {
        bigEndian<std::uint32_t>(0xdb, static_cast<std::uint32_t>(size));
    } else {
        return nesting_.fail("a string longer than 4 GiB");
    }
    out_->write(text);
    return false;
}

}  // namespace kelo::serializer
