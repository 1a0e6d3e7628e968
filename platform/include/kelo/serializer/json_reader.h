// Reads JSON. What every member of a record needs is defined here, so that the compiler can inline it where records are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "kelo/serializer/failure.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Thread: one at a time.
class JsonReader final : public util::serializer::IStructuredPullDeserializer {
public:
    JsonReader() : IStructuredPullDeserializer{std::in_place_type<JsonReader>} {}
    bool start(const util::ByteBufferReader& reader) override;
    bool finish() override;
    bool beginObject() override { return begin('{', "an object"); }
    bool atObjectEnd(bool& end) override { return atEnd('}', end); }
    bool memberKey(std::string_view& key) override;
    bool takeMemberKey(const util::serializer::PlainKey& key, bool behindMember) override {
        const auto& member = key.jsonMember();
        const std::size_t comma = behindMember ? 1 : 0;
        if (static_cast<std::size_t>(end_ - at_) <= member.size) return false;  // in a document, more follows a key
        const char* const at = at_ + comma;
        if (!areSame(at, member.chars, member.size)) {
            return static_cast<unsigned char>(*at) <= ' ' && takeSpacedMemberKey(key, comma);
        }
        if (behindMember && *at_ != ',') return false;
        at_ = at + member.size;
        return true;
    }
    // Reads a whole member in one step if its value is simple: a number of few digits, a bool, or ASCII text without escapes. A
    // string is returned as a view into the document.
    enum class MemberPart : std::uint8_t { nothing, key, whole };
    template <class Plain>
    MemberPart takeMember(const util::serializer::PlainKey& key, bool behindMember, Plain& value) {
        if (!takeMemberKey(key, behindMember)) return MemberPart::nothing;
        return takePlain(value) ? MemberPart::whole : MemberPart::key;
    }
    bool endMember() override { return separate('}'); }
    bool endObject() override { return end('}'); }
    bool beginArray() override { return begin('[', "an array"); }
    bool atArrayEnd(bool& end) override { return atEnd(']', end); }
    bool endElement() override {
        if (++elements_ > maximumElements) [[unlikely]]
            return failed(fault::tooManyElements);
        return separate(']');
    }
    bool endArray() override { return end(']'); }
    bool chargeMemory(std::size_t bytes) override {
        memory_ += bytes;
        return memory_ > maximumElementMemory && failed(fault::tooMuchMemory);
    }
    util::serializer::ValueType peek() override;
    bool readNull() override;
    bool takeNull() override {
        skipBlanks();
        return at_ != end_ && *at_ == 'n' && takeLiteral("null");
    }
    bool readBool(bool& value) override;
    bool readInt(std::int64_t& value) override {
        int few = 0;
        if (!takePlain(few)) return readUnusualInt(value);
        value = few;
        return false;
    }
    bool readDouble(double& value) override;
    bool readString(std::string_view& value) override;
    bool readUuid(std::UUID& value) override;
    bool readUrl(kelo::url& value) override;
    bool skipValue() override;
    std::size_t offset() const noexcept override { return static_cast<std::size_t>(at_ - begin_); }

private:
    // Of at least four characters. Keys are short: a call of memcmp would cost more than the comparison.
    static bool areSame(const char* a, const char* b, std::size_t size) noexcept {
        const auto differ = [&]<class Word>(Word, std::size_t at) {
            Word x = 0;
            Word y = 0;
            std::memcpy(&x, a + at, sizeof x);
            std::memcpy(&y, b + at, sizeof y);
            return x != y;
        };
        // The last word overlaps the previous one.
        if (size < 8) return !differ(std::uint32_t{}, 0) && !differ(std::uint32_t{}, size - 4);
        for (std::size_t at = 0; at + 8 < size; at += 8) {
            if (differ(std::uint64_t{}, at)) return false;
        }
        return !differ(std::uint64_t{}, size - 8);
    }
    // Each reads a value of the usual form: without blanks before it, and followed by a character that may end a member or
    // element. For any other form, returns false and consumes nothing.
    bool takePlain(int& value) noexcept {
        constexpr std::ptrdiff_t most = 8;  // digits
        if (end_ - at_ <= most) [[unlikely]]
            return false;
        const char* at = at_;
        unsigned digit = valueOf(*at);
        if (digit > 9) [[unlikely]]
            return false;
        unsigned number = digit;
        ++at;
        if (number != 0) {
            for (const char* const last = at_ + most; (digit = valueOf(*at)) < 10 && at != last; ++at)
                number = number * 10 + digit;
        }
        if (!mayFollowValue(*at)) [[unlikely]]
            return false;
        value = static_cast<int>(number);
        at_ = at;
        return true;
    }
    bool takePlain(bool& value) noexcept {
        constexpr std::size_t most = 5;  // characters
        if (static_cast<std::size_t>(end_ - at_) <= most) [[unlikely]]
            return false;
        const bool isTrue = areSame(at_, "true", 4);
        if (!isTrue && !areSame(at_, "false", most)) [[unlikely]]
            return false;
        value = isTrue;
        at_ += most - (isTrue ? 1 : 0);
        return true;
    }
    bool takePlain(std::string_view& value) noexcept;
    // `comma`: the number of characters before the blanks that precede the key.
    [[gnu::noinline]] bool takeSpacedMemberKey(const util::serializer::PlainKey& key, std::size_t comma) noexcept;
    static bool mayFollowValue(char c) noexcept { return c == ',' || c == '}' || c == ']'; }
    [[gnu::cold]] bool failed(const char* what) const noexcept;
    [[gnu::cold]] bool failedToFind(const char* expected);
    // Programs write no blanks, so they are the rare case.
    void skipBlanks() noexcept {
        if (at_ != end_ && static_cast<unsigned char>(*at_) <= ' ') [[unlikely]]
            skipBlanksHere();
    }
    [[gnu::noinline]] void skipBlanksHere() noexcept {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) ++at_;
    }
    bool begin(char open, const char* expected) {
        skipBlanks();
        if (at_ == end_ || *at_ != open) [[unlikely]]
            return failedToFind(expected);
        if (depth_ == maximumDepth) [[unlikely]]
            return failed(fault::tooDeep);
        ++at_;
        ++depth_;
        return false;
    }
    bool atEnd(char close, bool& end) {
        skipBlanks();
        if (at_ == end_) [[unlikely]]
            return failedToFind(close == '}' ? "a member or '}'" : "a value or ']'");
        end = *at_ == close;
        return false;
    }
    bool separate(char close) {
        skipBlanks();
        if (at_ != end_ && *at_ == ',') {
            ++at_;
            skipBlanks();
            return at_ != end_ && *at_ == close && failed("a comma with nothing behind it");
        }
        if (at_ != end_ && *at_ == close) return false;
        return failedToFind(close == '}' ? "',' or '}'" : "',' or ']'");
    }
    bool end(char close) {
        bool atClose = false;
        if (atEnd(close, atClose)) return true;
        if (!atClose || depth_ == 0) [[unlikely]]
            return failedToFind(close == '}' ? "'}'" : "']'");
        ++at_;
        --depth_;
        return false;
    }
    // The value of a digit; ten or more for any other character.
    static unsigned valueOf(char digit) noexcept { return static_cast<unsigned char>(digit) - unsigned{'0'}; }
    [[gnu::noinline]] bool readUnusualInt(std::int64_t& value);
    bool takeLiteral(std::string_view text) noexcept {
        if (!std::string_view{at_, static_cast<std::size_t>(end_ - at_)}.starts_with(text)) return false;
        at_ += text.size();
        return true;
    }
    // The number at the current position, not consumed; empty if none begins here. `integer`: it has neither fraction nor
    // exponent.
    std::string_view scanNumber(bool& integer) const noexcept;
    // Reads a string with escapes, or a malformed one. Its plain characters from `run` to the current position have been passed
    // already.
    [[gnu::noinline]] bool readUnusual(const char* run, bool ascii, std::string_view& value);
    bool readEscape();  // the part after the backslash
    bool readHex(unsigned& value) noexcept;

    const char* begin_ = nullptr;
    const char* at_ = nullptr;
    const char* end_ = nullptr;
    unsigned depth_ = 0;
    unsigned elements_ = 0;
    std::size_t memory_ = 0;
    std::string scratch_;
};

}  // namespace kelo::serializer
