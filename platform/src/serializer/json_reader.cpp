#include "serializer/json_reader.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "serializer/reader_support.h"
#include "serializer/utf8.h"
#include "serializer/writer_nesting.h"

// RFC 8259 to the letter, in one pass and without building anything. A comma is consumed where the member or element before it
// ends; what follows then must be another one, which is how a trailing comma is found. Skipping reads, so that what is skipped is
// checked like the rest; it recurses, but not deeper than the 64 levels that a document may have.
//
// A string without escapes is a view into the input. Only one with escapes is put together, in a buffer that the reader keeps.

namespace kelo::serializer {
namespace {

using util::serializer::ValueType;

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// Whether one of eight characters ends or interrupts a plain run: a quote, a backslash or a control character. Bytes beyond ASCII
// do not.
bool hasSpecial(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101U;
    constexpr std::uint64_t highs = 0x8080808080808080U;
    const auto hasZero = [](std::uint64_t w) { return (w - ones) & ~w & highs; };
    const std::uint64_t quotes = hasZero(word ^ (ones * '"'));
    const std::uint64_t backslashes = hasZero(word ^ (ones * '\\'));
    const std::uint64_t controls = (word - ones * 0x20) & ~word & highs;
    return (quotes | backslashes | controls) != 0;
}

const char* endOfRun(const char* at, const char* end) noexcept {
    while (end - at >= 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof word);
        if (hasSpecial(word)) break;
        at += 8;
    }
    while (at < end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20) ++at;
    return at;
}

void appendUtf8(std::string& out, unsigned code) {
    const auto put = [&out](unsigned byte) { out += static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0U | code >> 6U);
        put(0x80U | (code & 0x3fU));
    } else if (code < 0x10000) {
        put(0xe0U | code >> 12U);
        put(0x80U | (code >> 6U & 0x3fU));
        put(0x80U | (code & 0x3fU));
    } else {
        put(0xf0U | code >> 18U);
        put(0x80U | (code >> 12U & 0x3fU));
        put(0x80U | (code >> 6U & 0x3fU));
        put(0x80U | (code & 0x3fU));
    }
}

}  // namespace

bool JsonReader::failed(const char* what) const {
    return readFailed(what, offset());
}

bool JsonReader::start(const util::ByteBufferReader& reader) {
    const auto bytes = reader.bytes();
    begin_ = reinterpret_cast<const char*>(bytes.data());
    at_ = begin_;
    end_ = begin_ + bytes.size();
    depth_ = 0;
    afterComma_ = false;
    return false;
}

bool JsonReader::finish() {
    skipBlanks();
    if (depth_ != 0) return failed("the document ends inside a container");
    if (at_ != end_) return failed("expected the end of the document");
    return false;
}

bool JsonReader::begin(char open, const char* what) {
    skipBlanks();
    if (at_ == end_ || *at_ != open) return failed(what);
    if (depth_ == maximumDepth) return failed("containers nested more than 64 deep");
    ++at_;
    ++depth_;
    afterComma_ = false;
    return false;
}

bool JsonReader::atEnd(char close, bool& end) {
    skipBlanks();
    if (at_ == end_) return failed("the document is cut short");
    end = *at_ == close;
    if (end && afterComma_) return failed("a comma with nothing behind it");
    return false;
}

bool JsonReader::separate(char close) {
    skipBlanks();
    if (at_ == end_) return failed("the document is cut short");
    if (*at_ == ',') {
        ++at_;
        afterComma_ = true;
        return false;
    }
    return *at_ == close ? false : failed(close == '}' ? "expected ',' or '}'" : "expected ',' or ']'");
}

bool JsonReader::end(char close) {
    bool atClose = false;
    if (atEnd(close, atClose)) return true;
    if (!atClose || depth_ == 0) return failed(close == '}' ? "expected '}'" : "expected ']'");
    ++at_;
    --depth_;
    return false;
}

bool JsonReader::beginObject() {
    return begin('{', "expected an object");
}
bool JsonReader::atObjectEnd(bool& end) {
    return atEnd('}', end);
}
bool JsonReader::endMember() {
    return separate('}');
}
bool JsonReader::endObject() {
    return end('}');
}
bool JsonReader::beginArray() {
    return begin('[', "expected an array");
}
bool JsonReader::endElement() {
    return separate(']');
}
bool JsonReader::endArray() {
    return end(']');
}

bool JsonReader::atArrayEnd(bool& end) {
    if (atEnd(']', end)) return true;
    afterComma_ = false;  // what comes now is the element; the comma before it has been answered for
    return false;
}

bool JsonReader::memberKey(std::string_view& key) {
    afterComma_ = false;
    skipBlanks();
    if (at_ == end_ || *at_ != '"') return failed("expected a member's key");
    if (readString(key)) return true;
    skipBlanks();
    if (at_ == end_ || *at_ != ':') return failed("expected ':'");
    ++at_;
    return false;
}

ValueType JsonReader::peek() {
    skipBlanks();
    if (at_ == end_) return ValueType::invalid;
    switch (*at_) {
        case '{':
            return ValueType::object;
        case '[':
            return ValueType::array;
        case '"':
            return ValueType::string;
        case 't':
        case 'f':
            return ValueType::boolean;
        case 'n':
            return ValueType::null;
        default:
            break;
    }
    bool integer = false;
    if (scanNumber(integer).empty()) return ValueType::invalid;
    return integer ? ValueType::integer : ValueType::floating;
}

bool JsonReader::literal(std::string_view text) {
    if (!std::string_view{at_, static_cast<std::size_t>(end_ - at_)}.starts_with(text)) return true;
    at_ += text.size();
    return false;
}

bool JsonReader::readNull() {
    skipBlanks();
    return literal("null") && failed("expected null");
}

bool JsonReader::readBool(bool& value) {
    skipBlanks();
    value = !literal("true");
    return !value && literal("false") && failed("expected true or false");
}

std::string_view JsonReader::scanNumber(bool& integer) const noexcept {
    const char* at = at_;
    const auto digits = [&] {
        const char* const first = at;
        while (at < end_ && isDigit(*at)) ++at;
        return at != first;
    };
    if (at < end_ && *at == '-') ++at;
    if (at < end_ && *at == '0') {
        ++at;
    } else if (!digits()) {
        return {};
    }
    integer = true;
    if (at < end_ && *at == '.') {
        ++at;
        integer = false;
        if (!digits()) return {};
    }
    if (at < end_ && (*at == 'e' || *at == 'E')) {
        ++at;
        integer = false;
        if (at < end_ && (*at == '+' || *at == '-')) ++at;
        if (!digits()) return {};
    }
    return {at_, static_cast<std::size_t>(at - at_)};
}

bool JsonReader::readInt(std::int64_t& value) {
    skipBlanks();
    bool integer = false;
    const std::string_view text = scanNumber(integer);
    if (text.empty() || !integer) return failed("expected an integer");
    std::int64_t read = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), read);
    if (result.ec != std::errc{}) return failed("an integer beyond 64 bits");
    value = read;
    at_ += text.size();
    return false;
}

bool JsonReader::readDouble(double& value) {
    skipBlanks();
    bool integer = false;
    const std::string_view text = scanNumber(integer);
    if (text.empty()) return failed("expected a number");
    double read = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), read).ec != std::errc{}) {
        // Too large for a double, or too small, which is a zero or as good as one.
        read = std::strtod(std::string{text}.c_str(), nullptr);
        if (!std::isfinite(read)) return failed("a number beyond the range of a double");
    }
    if (integer) {
        char exact[400];
        const auto end = std::to_chars(exact, exact + sizeof exact, read, std::chars_format::fixed).ptr;
        if (text != std::string_view{exact, static_cast<std::size_t>(end - exact)})
            return failed("an integer that no double is equal to");
    }
    value = read;
    at_ += text.size();
    return false;
}

bool JsonReader::readString(std::string_view& value) {
    skipBlanks();
    if (at_ == end_ || *at_ != '"') return failed("expected a string");
    const char* const first = ++at_;
    at_ = endOfRun(at_, end_);
    if (at_ < end_ && *at_ == '\\') return readEscaped(first, value);
    if (at_ == end_) return failed("a string is cut short");
    if (*at_ != '"') return failed("a control character in a string");
    value = {first, static_cast<std::size_t>(at_ - first)};
    if (!isValidUtf8(value)) return failed("a string is not valid UTF-8");
    ++at_;
    return false;
}

bool JsonReader::readEscaped(const char* runBegin, std::string_view& value) {
    scratch_.clear();
    for (;;) {
        scratch_.append(runBegin, at_);
        if (at_ == end_) return failed("a string is cut short");
        if (*at_ == '"') break;
        if (*at_ != '\\') return failed("a control character in a string");
        ++at_;
        if (readEscape()) return true;
        runBegin = at_;
        at_ = endOfRun(at_, end_);
    }
    if (!isValidUtf8(scratch_)) return failed("a string is not valid UTF-8");
    ++at_;
    value = scratch_;
    return false;
}

// What follows a backslash.
bool JsonReader::readEscape() {
    if (at_ == end_) return failed("a string is cut short");
    switch (const char c = *at_++) {
        case '"':
        case '\\':
        case '/':
            scratch_ += c;
            return false;
        case 'b':
            scratch_ += '\b';
            return false;
        case 'f':
            scratch_ += '\f';
            return false;
        case 'n':
            scratch_ += '\n';
            return false;
        case 'r':
            scratch_ += '\r';
            return false;
        case 't':
            scratch_ += '\t';
            return false;
        case 'u':
            break;
        default:
            return failed("an unknown escape in a string");
    }
    unsigned code = 0;
    if (readHex(code)) return failed("expected four hexadecimal digits");
    if (code >= 0xdc00 && code <= 0xdfff) return failed("half of a surrogate pair");
    if (code >= 0xd800 && code <= 0xdbff) {
        unsigned low = 0;
        if (end_ - at_ < 2 || at_[0] != '\\' || at_[1] != 'u') return failed("half of a surrogate pair");
        at_ += 2;
        if (readHex(low) || low < 0xdc00 || low > 0xdfff) return failed("half of a surrogate pair");
        code = 0x10000U + ((code - 0xd800U) << 10U) + (low - 0xdc00U);
    }
    appendUtf8(scratch_, code);
    return false;
}

bool JsonReader::readHex(unsigned& value) noexcept {
    if (end_ - at_ < 4) return true;
    const auto result = std::from_chars(at_, at_ + 4, value, 16);
    if (result.ec != std::errc{} || result.ptr != at_ + 4) return true;
    at_ += 4;
    return false;
}

bool JsonReader::readUuid(std::UUID& value) {
    std::string_view text;
    if (readString(text)) return true;
    return std::UUID::parse(text, value) ? false : failed("a string that is no UUID");
}

bool JsonReader::readUrl(kelo::url& value) {
    std::string_view text;
    if (readString(text)) return true;
    value = kelo::url{std::string{text}};
    return false;
}

bool JsonReader::skipValue() {
    bool atClose = false;
    switch (peek()) {
        case ValueType::object: {
            std::string_view key;
            if (beginObject()) return true;
            for (;;) {
                if (atObjectEnd(atClose)) return true;
                if (atClose) return endObject();
                if (memberKey(key) || skipValue() || endMember()) return true;
            }
        }
        case ValueType::array:
            if (beginArray()) return true;
            for (;;) {
                if (atArrayEnd(atClose)) return true;
                if (atClose) return endArray();
                if (skipValue() || endElement()) return true;
            }
        case ValueType::string: {
            std::string_view text;
            return readString(text);
        }
        case ValueType::boolean: {
            bool value = false;
            return readBool(value);
        }
        case ValueType::null:
            return readNull();
        case ValueType::integer:
        case ValueType::floating: {
            bool integer = false;
            at_ += scanNumber(integer).size();
            return false;
        }
        case ValueType::invalid:
            break;
    }
    return failed(at_ == end_ ? "the document is cut short" : "expected a value");
}

}  // namespace kelo::serializer
