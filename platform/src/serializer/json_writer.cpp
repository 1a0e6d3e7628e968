#include "kelo/serializer/json_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "serializer/json_text.h"
#include "serializer/utf8.h"

// Writes RFC 8259. Only quotes, backslashes and control characters are escaped; everything else is copied in runs as long as
// possible. Hardly any text here needs escapes or is not ASCII. So text is checked while it is copied, and only unusual text is
// processed again. Numbers are written as the shortest text that reads back as the same value. A floating-point number always has
// a point or an exponent, if only ".0": otherwise it would read back as an integer, and integers have neither -0 nor more than 64
// bits.
//
// UTF-8 is checked after a string is written: non-ASCII text is rare, and a document that fails is dropped anyway.

namespace kelo::serializer {
namespace {

// Readers read a double and round it to a float. This is the only float whose shortest text then becomes another float, because
// its double lies exactly between the two.
constexpr float roundedTwice = 0x1.5c87fap-84F;

}  // namespace

bool JsonWriter::start(util::ByteBufferWriter& writer) {
    out_ = &writer;
    at_ = writer.claim(0);
    end_ = at_ + (writer.capacity() - writer.size());
    nesting_.start();
    return false;
}

bool JsonWriter::finish() {
    if (nesting_.finish()) return true;
    out_->commitTo(at_);
    return false;
}

void JsonWriter::grow(std::size_t most) {
    out_->commitTo(at_);
    at_ = out_->claim(most);
    end_ = at_ + (out_->capacity() - out_->size());
}

void JsonWriter::append(std::string_view text) {
    claim(text.size());
    at_ = std::copy(text.begin(), text.end(), at_);
}

bool JsonWriter::memberKey(std::string_view key, bool first, int /*index*/) {
    if (nesting_.open(true, first)) return true;
    if (!first) putByte(',');
    if (appendText(key)) return true;
    putByte(':');
    return false;
}

bool JsonWriter::writeNull() {
    if (nesting_.value()) return true;
    append("null");
    return false;
}

bool JsonWriter::writeBool(bool value) {
    if (nesting_.value()) return true;
    append(value ? "true" : "false");
    return false;
}

template <class Number>
bool JsonWriter::writeNumber(Number value) {
    constexpr std::size_t longest = 32;
    if (nesting_.value()) return true;
    char* const text = claim(longest);
    char* end = std::to_chars(text, text + longest, value).ptr;
    if constexpr (std::is_floating_point_v<Number>) {
        const auto isFraction = [](char c) { return c == '.' || c == 'e'; };
        if (std::none_of(text, end, isFraction)) {
            *end++ = '.';
            *end++ = '0';
        }
    }
    at_ = end;
    return false;
}

bool JsonWriter::writeInt(std::int64_t value) {
    return writeNumber(value);
}

bool JsonWriter::writeDouble(double value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    return writeNumber(value);
}

bool JsonWriter::writeFloat(float value) {
    if (!std::isfinite(value)) return nesting_.fail(fault::notFinite);
    if (std::abs(value) == roundedTwice) return writeNumber(static_cast<double>(value));
    return writeNumber(value);
}

bool JsonWriter::writeString(std::string_view value) {
    return nesting_.value() || appendText(value);
}

bool JsonWriter::writeUuid(const std::UUID& value) {
    if (nesting_.value()) return true;
    at_ = putUuid(value, claim(std::UUID::textLength + 2));
    return false;
}

bool JsonWriter::writeUrl(const kelo::url& value) {
    return writeString(value.toString());
}

bool JsonWriter::appendText(std::string_view text) {
    char* const end = putPlainText(text, claim(text.size() + 2));
    if (end == nullptr) [[unlikely]]
        return writeUnusual(text);
    at_ = end;
    return false;
}

char* JsonWriter::putPlainText(std::string_view text, char* to) noexcept {
    if (!copyJsonPlain(text, to + 1)) [[unlikely]]
        return nullptr;
    to[0] = '"';
    to[text.size() + 1] = '"';
    return to + text.size() + 2;
}

char* JsonWriter::putUnusual(std::string_view text, char* to, std::size_t room) {
    at_ = to;
    return writeUnusual(text) ? nullptr : claim(room);
}

char* JsonWriter::putUuid(const std::UUID& value, char* to) noexcept {
    to[0] = '"';
    value.toChars(to + 1);
    to[std::UUID::textLength + 1] = '"';
    return to + std::UUID::textLength + 2;
}

bool JsonWriter::writeUnusual(std::string_view text) {
    bool ascii = true;
    const char* at = text.data();
    const char* const end = at + text.size();
    putByte('"');
    for (;;) {
        const char* const special = findJsonSpecial(at, end, ascii);
        append({at, static_cast<std::size_t>(special - at)});
        if (special == end) break;
        writeEscaped(static_cast<unsigned char>(*special));
        at = special + 1;
    }
    putByte('"');
    return !ascii && !isValidUtf8(text) && nesting_.fail(fault::notUtf8);
}

void JsonWriter::writeEscaped(unsigned char c) {
    constexpr std::string_view named = "\"\\\b\f\n\r\t";
    constexpr std::string_view names = "\"\\bfnrt";
    constexpr std::string_view digits = "0123456789abcdef";
    if (const auto index = named.find(static_cast<char>(c)); index != std::string_view::npos) {
        const char text[] = {'\\', names[index]};
        append({text, sizeof text});
    } else {
        const char text[] = {'\\', 'u', '0', '0', digits[c >> 4U], digits[c & 15U]};
        append({text, sizeof text});
    }
}

}  // namespace kelo::serializer
