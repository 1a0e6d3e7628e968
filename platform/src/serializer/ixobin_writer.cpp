#include "serializer/ixobin_writer.h"

#include <cbor.h>

#include <cmath>

#include "serializer/utf8.h"

// Writes RFC 8949 with libcbor's encoders. Containers are of indefinite length, so that nothing has to be counted beforehand or
// filled in later.

namespace kelo::serializer {
namespace {

constexpr std::uint64_t uriTag = 32;
constexpr std::uint64_t uuidTag = 37;

}  // namespace

template <class Encode>
void IxobinWriter::put(Encode encode) {
    unsigned char bytes[9];
    out_->write(bytes, encode(bytes, sizeof bytes));
}

bool IxobinWriter::start(util::ByteBufferWriter& writer) {
    out_ = &writer;
    nesting_.start();
    return false;
}

bool IxobinWriter::finish() {
    return nesting_.finish();
}

bool IxobinWriter::beginObject() {
    if (nesting_.begin(true)) return true;
    put(cbor_encode_indef_map_start);
    return false;
}

bool IxobinWriter::memberKey(std::string_view key, bool first, int /*index*/) {
    return nesting_.open(true, first) || writeText(key);
}

bool IxobinWriter::plainMemberKey(const util::serializer::PlainKey& key, bool first) {
    if (nesting_.open(true, first)) return true;
    put([size = key.size()](unsigned char* to, std::size_t room) { return cbor_encode_string_start(size, to, room); });
    out_->write(key.text());
    return false;
}

bool IxobinWriter::endMember() {
    return nesting_.close(true);
}

bool IxobinWriter::endObject() {
    if (nesting_.end(true)) return true;
    put(cbor_encode_break);
    return false;
}

bool IxobinWriter::beginArray() {
    if (nesting_.begin(false)) return true;
    put(cbor_encode_indef_array_start);
    return false;
}

bool IxobinWriter::beginElement(bool first) {
    return nesting_.open(false, first);
}

bool IxobinWriter::endElement() {
    return nesting_.close(false);
}

bool IxobinWriter::endArray() {
    if (nesting_.end(false)) return true;
    put(cbor_encode_break);
    return false;
}

bool IxobinWriter::writeNull() {
    if (nesting_.value()) return true;
    put(cbor_encode_null);
    return false;
}

bool IxobinWriter::writeBool(bool value) {
    if (nesting_.value()) return true;
    put([value](unsigned char* to, std::size_t room) { return cbor_encode_bool(value, to, room); });
    return false;
}

bool IxobinWriter::writeInt(std::int64_t value) {
    if (nesting_.value()) return true;
    put([value](unsigned char* to, std::size_t room) {
        return value < 0 ? cbor_encode_negint(~static_cast<std::uint64_t>(value), to, room)
                         : cbor_encode_uint(static_cast<std::uint64_t>(value), to, room);
    });
    return false;
}

bool IxobinWriter::writeDouble(double value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    if (nesting_.value()) return true;
    put([value](unsigned char* to, std::size_t room) { return cbor_encode_double(value, to, room); });
    return false;
}

bool IxobinWriter::writeFloat(float value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    if (nesting_.value()) return true;
    put([value](unsigned char* to, std::size_t room) { return cbor_encode_single(value, to, room); });
    return false;
}

bool IxobinWriter::writeString(std::string_view value) {
    return nesting_.value() || writeText(value);
}

bool IxobinWriter::writeUuid(const std::UUID& value) {
    if (nesting_.value()) return true;
    put([](unsigned char* to, std::size_t room) { return cbor_encode_tag(uuidTag, to, room); });
    put([](unsigned char* to, std::size_t room) { return cbor_encode_bytestring_start(std::UUID::byteCount, to, room); });
    out_->write(value.bytes().data(), value.bytes().size());
    return false;
}

bool IxobinWriter::writeUrl(const kelo::url& value) {
    if (nesting_.value()) return true;
    put([](unsigned char* to, std::size_t room) { return cbor_encode_tag(uriTag, to, room); });
    return writeText(value.toString());
}

bool IxobinWriter::writeText(std::string_view text) {
    if (!isValidUtf8(text)) return nesting_.fail(fault::notUtf8);
    put([size = text.size()](unsigned char* to, std::size_t room) { return cbor_encode_string_start(size, to, room); });
    out_->write(text);
    return false;
}

}  // namespace kelo::serializer
