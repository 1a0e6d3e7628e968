#include "kelo/serializer/json_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>

#include "kelo/serializer/failure.h"
#include "serializer/json_text.h"
#include "serializer/utf8.h"

// Reads strict RFC 8259 in one pass, without building a tree. The end of a member or element consumes the comma after it; the
// container must not end there. Skipping reads, so skipped text is checked like the rest. It recurses at most to the depth of 64
// that a document may have.
//
// A string without escapes is a view into the input. A string with escapes is assembled in a buffer that the reader keeps.
//
// An integer is accepted as a double only if it is written exactly as the double would be, digit for digit.

namespace kelo::serializer {
namespace {

using util::serializer::ValueType;

constexpr std::size_t largestExactDigits = 15;     // every integer with so few digits equals some double
constexpr std::size_t maximumIntegerDigits = 310;  // the digits of the largest double, and a sign

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// For a number that is out of a double's range: whether it is too small rather than too large. Compares the place of its first
// significant digit with its exponent.
bool isTiny(std::string_view number) noexcept {
    const auto exponentAt = std::min(number.find_first_of("eE"), number.size());
    const std::string_view digits = number.substr(0, exponentAt);
    const auto point = std::min(digits.find('.'), digits.size());
    const auto significant = digits.find_first_of("123456789");
    const auto place = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(significant);
    std::string_view exponentText = number.substr(std::min(exponentAt + 1, number.size()));
    const bool isNegative = exponentText.starts_with('-');
    if (isNegative || exponentText.starts_with('+')) exponentText.remove_prefix(1);
    std::int64_t exponent = 0;
    const auto result = std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
    if (result.ec == std::errc::result_out_of_range) return isNegative;
    return place < (isNegative ? exponent : -exponent);
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

constexpr const char* literalNull = "null";
constexpr const char* literalBool = "true or false";
constexpr std::string_view literals[] = {"true", "false", "null"};

// Whether the text begins with the first letter of a literal, but not with the whole literal.
bool isNoLiteral(std::string_view text) noexcept {
    const auto looksLike = [&](std::string_view literal) {
        return text.front() == literal.front() && !text.starts_with(literal);
    };
    return std::any_of(std::begin(literals), std::end(literals), looksLike);
}

// Whether the text is the beginning of a literal.
bool isCutLiteral(std::string_view text) noexcept {
    const auto begins = [&](std::string_view literal) { return literal.starts_with(text); };
    return !text.empty() && std::any_of(std::begin(literals), std::end(literals), begins);
}

}  // namespace

bool JsonReader::failed(const char* what) const noexcept {
    return readFailed(what, offset());
}

bool JsonReader::failedToFind(const char* expected) {
    const std::string_view left{at_, static_cast<std::size_t>(end_ - at_)};
    const bool wantsLiteral = expected == literalNull || expected == literalBool;
    if (left.empty() || (wantsLiteral && isCutLiteral(left))) {
        return readMismatch(expected, "the end of the document", offset() + left.size());
    }
    std::string_view found = nameOf(peek());
    if (isNoLiteral(left)) found = {};
    char text[16];
    if (found.empty()) {
        const auto c = static_cast<unsigned char>(*at_);
        std::snprintf(text, sizeof text, c >= 0x20 && c < 0x7f ? "'%c'" : "byte 0x%02x", c);
        found = text;
    }
    return readMismatch(expected, found, offset());
}

bool JsonReader::start(const util::ByteBufferReader& reader) {
    const auto bytes = reader.bytes();
    begin_ = reinterpret_cast<const char*>(bytes.data());
    at_ = begin_;
    end_ = begin_ + bytes.size();
    depth_ = 0;
    elements_ = 0;
    memory_ = 0;
    return false;
}

bool JsonReader::finish() {
    skipBlanks();
    if (depth_ != 0) return failed(fault::openAtEnd);
    return at_ != end_ && failedToFind("the end of the document");
}

bool JsonReader::memberKey(std::string_view& key) {
    skipBlanks();
    if (at_ == end_ || *at_ != '"') return failedToFind("a member's key");
    if (readString(key)) return true;
    skipBlanks();
    if (at_ == end_ || *at_ != ':') return failedToFind("':'");
    ++at_;
    return false;
}

bool JsonReader::takeSpacedMemberKey(const util::serializer::PlainKey& key, std::size_t comma) noexcept {
    const char* const before = at_;
    if (comma != 0 && *at_ != ',') return false;
    at_ += comma;
    skipBlanksHere();
    const auto& member = key.jsonMember();
    if (static_cast<std::size_t>(end_ - at_) >= member.size && areSame(at_, member.chars, member.size)) {
        at_ += member.size;
        skipBlanks();
        return true;
    }
    at_ = before;
    return false;
}

bool JsonReader::takePlain(std::string_view& value) noexcept {
    if (at_ == end_ || *at_ != '"') return false;
    bool ascii = true;
    const char* const first = at_ + 1;
    const char* const end = findJsonSpecial(first, end_, ascii);
    if (end == end_ || *end != '"' || !ascii) [[unlikely]]
        return false;
    value = {first, static_cast<std::size_t>(end - first)};
    at_ = end + 1;
    return true;
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

bool JsonReader::readNull() {
    skipBlanks();
    return !takeLiteral("null") && failedToFind(literalNull);
}

bool JsonReader::readBool(bool& value) {
    skipBlanks();
    const bool isTrue = takeLiteral("true");
    if (!isTrue && !takeLiteral("false")) return failedToFind(literalBool);
    value = isTrue;
    return false;
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

bool JsonReader::readUnusualInt(std::int64_t& value) {
    skipBlanks();
    bool integer = false;
    const std::string_view text = scanNumber(integer);
    if (text.empty() || !integer) return failedToFind("an integer");
    std::int64_t read = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), read);
    if (result.ec != std::errc{}) return failed(fault::integerTooLarge);
    value = read;
    at_ += text.size();
    return false;
}

bool JsonReader::readDouble(double& value) {
    skipBlanks();
    bool integer = false;
    const std::string_view text = scanNumber(integer);
    if (text.empty()) return failedToFind("a number");
    double read = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), read).ec != std::errc{}) {
        if (!isTiny(text)) return failed("a number beyond the range of a double");
        read = text.front() == '-' ? -0.0 : 0.0;
    }
    if (integer && text.size() > largestExactDigits) {
        char exact[maximumIntegerDigits];
        const auto end = std::to_chars(exact, exact + sizeof exact, read, std::chars_format::fixed).ptr;
        if (text != std::string_view{exact, static_cast<std::size_t>(end - exact)}) return failed(fault::integerNotExact);
    }
    value = read;
    at_ += text.size();
    return false;
}

bool JsonReader::readString(std::string_view& value) {
    skipBlanks();
    if (at_ == end_ || *at_ != '"') return failedToFind("a string");
    const char* const first = ++at_;
    bool ascii = true;
    at_ = findJsonSpecial(at_, end_, ascii);
    if (at_ == end_ || *at_ != '"') return readUnusual(first, ascii, value);
    value = {first, static_cast<std::size_t>(at_ - first)};
    if (!ascii && !isValidUtf8(value)) return failed(fault::notUtf8);
    ++at_;
    return false;
}

bool JsonReader::readUnusual(const char* run, bool ascii, std::string_view& value) {
    scratch_.clear();
    for (;;) {
        scratch_.append(run, at_);
        if (at_ == end_) return failed("a string is cut short");
        if (*at_ == '"') break;
        if (*at_ != '\\') return failed("a control character in a string");
        ++at_;
        if (readEscape()) return true;
        run = at_;
        at_ = findJsonSpecial(at_, end_, ascii);
    }
    // An escape yields whole characters, so it cannot complete a partial one before or after it.
    if (!ascii && !isValidUtf8(scratch_)) return failed(fault::notUtf8);
    ++at_;
    value = scratch_;
    return false;
}

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
    skipBlanks();
    const std::size_t begin = offset();
    std::string_view text;
    if (readString(text)) return true;
    return !std::UUID::parse(text, value) && readFailed(fault::noUuid, begin);
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
    return failedToFind("a value");
}

}  // namespace kelo::serializer
