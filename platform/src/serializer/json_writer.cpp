#include "serializer/json_writer.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "serializer/utf8.h"

// RFC 8259. Only what must be escaped is: the quote, the backslash and control characters; everything else goes out as it is, in
// runs as long as possible, since nearly no text here has anything to escape. Numbers are the shortest text that reads back as
// the same value.

namespace kelo::serializer {
namespace {

bool needsEscape(unsigned char c) noexcept {
    return c < 0x20 || c == '"' || c == '\\';
}

}  // namespace

bool JsonWriter::start(util::ByteBufferWriter& writer) {
    out_ = &writer;
    nesting_.reset();
    return false;
}

bool JsonWriter::finish() {
    return nesting_.finish();
}

bool JsonWriter::beginObject() {
    if (nesting_.begin(true)) return true;
    out_->writeByte('{');
    return false;
}

bool JsonWriter::memberKey(std::string_view key, bool first, int /*index*/) {
    if (nesting_.open(true)) return true;
    if (!first) out_->writeByte(',');
    if (writeText(key)) return true;
    out_->writeByte(':');
    return false;
}

bool JsonWriter::endMember() {
    return nesting_.close(true);
}

bool JsonWriter::endObject() {
    if (nesting_.end(true)) return true;
    out_->writeByte('}');
    return false;
}

bool JsonWriter::beginArray() {
    if (nesting_.begin(false)) return true;
    out_->writeByte('[');
    return false;
}

bool JsonWriter::beginElement(bool first) {
    if (nesting_.open(false)) return true;
    if (!first) out_->writeByte(',');
    return false;
}

bool JsonWriter::endElement() {
    return nesting_.close(false);
}

bool JsonWriter::endArray() {
    if (nesting_.end(false)) return true;
    out_->writeByte(']');
    return false;
}

bool JsonWriter::writeNull() {
    if (nesting_.value()) return true;
    out_->write("null");
    return false;
}

bool JsonWriter::writeBool(bool value) {
    if (nesting_.value()) return true;
    out_->write(value ? "true" : "false");
    return false;
}

template <class T>
bool JsonWriter::writeNumber(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        if (!std::isfinite(value)) return writeFailed("an infinity or NaN has no form in a document");
    }
    if (nesting_.value()) return true;
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out_->write(text, static_cast<std::size_t>(end - text));
    return false;
}

bool JsonWriter::writeInt(std::int64_t value) {
    return writeNumber(value);
}
bool JsonWriter::writeDouble(double value) {
    return writeNumber(value);
}
bool JsonWriter::writeFloat(float value) {
    return writeNumber(value);
}

bool JsonWriter::writeString(std::string_view value) {
    return nesting_.value() || writeText(value);
}

bool JsonWriter::writeUuid(const std::UUID& value) {
    if (nesting_.value()) return true;
    char text[std::UUID::textLength + 2];
    text[0] = '"';
    value.toChars(text + 1);
    text[sizeof text - 1] = '"';
    out_->write(text, sizeof text);
    return false;
}

bool JsonWriter::writeUrl(const kelo::url& value) {
    return writeString(value.toString());
}

bool JsonWriter::writeText(std::string_view text) {
    if (!isValidUtf8(text)) return writeFailed("a string is not valid UTF-8");
    out_->writeByte('"');
    std::size_t written = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (!needsEscape(c)) continue;
        out_->write(text.substr(written, at - written));
        written = at + 1;
        constexpr char digits[] = "0123456789abcdef";
        const char unicode[] = {'\\', 'u', '0', '0', digits[c >> 4U], digits[c & 15U]};
        const char* const brief = c == '"'    ? "\\\""
                                  : c == '\\' ? "\\\\"
                                  : c == '\n' ? "\\n"
                                  : c == '\r' ? "\\r"
                                  : c == '\t' ? "\\t"
                                              : nullptr;
        if (brief != nullptr) {
            out_->write(brief, 2);
        } else {
            out_->write(unicode, sizeof unicode);
        }
    }
    out_->write(text.substr(written));
    out_->writeByte('"');
    return false;
}

}  // namespace kelo::serializer
