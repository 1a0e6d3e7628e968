// Writes JSON. What every member of a record needs stands here, so that the compiler can put it where records are written.
#pragma once

#include <charconv>
#include <concepts>
#include <cstring>
#include <limits>
#include <string_view>

#include "kelo/serializer/writer_nesting.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Compact: no blanks. Thread: one at a time.
class JsonWriter final : public util::serializer::IStructuredSerializer {
public:
    JsonWriter* asJson() noexcept override { return this; }
    bool start(util::ByteBufferWriter& writer) override;
    bool finish() override;
    bool beginObject() override {
        if (nesting_.begin(true)) return true;
        putByte('{');
        return false;
    }
    bool memberKey(std::string_view key, bool first, int index) override;
    bool plainMemberKey(const util::serializer::PlainKey& key, bool first) override {
        if (nesting_.open(true, first)) return true;
        at_ = putKey(key, first, 0);
        return false;
    }
    bool endMember() override { return nesting_.close(true); }
    bool endObject() override {
        if (nesting_.end(true)) return true;
        putByte('}');
        return false;
    }
    bool beginArray() override {
        if (nesting_.begin(false)) return true;
        putByte('[');
        return false;
    }
    bool beginElement(bool first) override {
        if (nesting_.open(false, first)) return true;
        if (!first) putByte(',');
        return false;
    }
    bool endElement() override { return nesting_.close(false); }
    bool endArray() override {
        if (nesting_.end(false)) return true;
        putByte(']');
        return false;
    }
    bool writeNull() override;
    bool writeBool(bool value) override;
    bool writeInt(std::int64_t value) override;
    bool writeDouble(double value) override;
    bool writeFloat(float value) override;
    bool writeString(std::string_view value) override;
    bool writeUuid(const std::UUID& value) override;
    bool writeUrl(const kelo::url& value) override;

    // A whole member in one step: what plainMemberKey, the value's own operation and endMember would do.
    bool writeMember(const util::serializer::PlainKey& key, std::same_as<int> auto value, bool first) {
        if (nesting_.member(first)) return true;
        constexpr std::size_t longest = std::numeric_limits<int>::digits10 + 2;  // one digit more, and a sign
        char* const to = putKey(key, first, longest);
        at_ = putInt(value, to, to + longest);
        return false;
    }
    bool writeMember(const util::serializer::PlainKey& key, std::same_as<bool> auto value, bool first) {
        if (nesting_.member(first)) return true;
        constexpr std::size_t block = 8;  // copied whole, of which five or four count
        char* const to = putKey(key, first, block);
        std::memcpy(to, value ? "true    " : "false   ", block);
        at_ = to + (value ? 4 : 5);
        return false;
    }
    bool writeMember(const util::serializer::PlainKey& key, std::string_view value, bool first);
    bool writeMember(const util::serializer::PlainKey& key, const std::UUID& value, bool first);
    bool writeMember(const util::serializer::PlainKey& key, const kelo::url& value, bool first);

private:
    // Room for `most` more characters; those that are written there count once `at_` stands behind them.
    char* claim(std::size_t most) {
        if (static_cast<std::size_t>(end_ - at_) < most) [[unlikely]]
            grow(most);
        return at_;
    }
    [[gnu::noinline]] void grow(std::size_t most);
    void putByte(char c) {
        *claim(1) = c;
        ++at_;
    }
    void append(std::string_view text);
    // Claims room for a key and `most` more, writes the key, and tells where it ends, which is not yet where `at_` stands.
    char* putKey(const util::serializer::PlainKey& key, bool first, std::size_t most) {
        constexpr std::size_t block = util::serializer::PlainKey::block;
        const auto& member = key.jsonMember();
        char* to = claim(1 + 2 * block + most);
        if (!first) *to++ = ',';
        std::memcpy(to, member.chars, block);
        if (member.size > block) std::memcpy(to + block, member.chars + block, block);
        return to + member.size;
    }
    // Nearly all have up to four digits: those are written here, for a third of what the general way takes. Behind the text.
    static char* putInt(int value, char* to, char* end) noexcept {
        const auto number = static_cast<unsigned>(value);
        const auto putDigit = [&to](unsigned digit) { *to++ = static_cast<char>('0' + digit); };
        const auto putTwo = [&](unsigned below100) {
            putDigit(below100 / 10);
            putDigit(below100 % 10);
        };
        if (number >= 10000) [[unlikely]]
            return std::to_chars(to, end, value).ptr;
        if (number < 10) {
            putDigit(number);
        } else if (number < 100) {
            putTwo(number);
        } else {
            if (number < 1000) {
                putDigit(number / 100);
            } else {
                putTwo(number / 100);
            }
            putTwo(number % 100);
        }
        return to;
    }
    template <class Number>
    bool writeNumber(Number value);
    // Into room for it and its quotes.
    bool putText(std::string_view text, char* to);
    void putUuid(const std::UUID& value, char* to);
    [[gnu::noinline]] bool writeUnusual(std::string_view text);
    void writeEscaped(unsigned char c);

    util::ByteBufferWriter* out_ = nullptr;
    // In the room of `out_`, which hears of what was written when that is used up, and at the end.
    char* at_ = nullptr;
    char* end_ = nullptr;
    WriterNesting nesting_;
};

}  // namespace kelo::serializer
