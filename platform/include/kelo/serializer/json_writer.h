// Writes JSON. What every member of a record needs is defined here, so that the compiler can inline it where records are written.
#pragma once

#include <charconv>
#include <concepts>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "kelo/serializer/writer_nesting.h"
#include "kelo/std/uuid.h"
#include "kelo/url.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Compact: writes no blanks. Thread: one at a time.
class JsonWriter final : public util::serializer::IStructuredSerializer {
public:
    JsonWriter() : IStructuredSerializer{std::in_place_type<JsonWriter>} {}
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
        at_ = putKey(key, first, claim(keyRoom));
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

    class Members;

private:
    // Room for `most` more characters at `at_`; they count as written once `at_` has been moved past them.
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
    // The room that is needed to write a key and the comma before it.
    static constexpr std::size_t keyRoom = 1 + 2 * util::serializer::PlainKey::block;
    // Returns the end of the key.
    static char* putKey(const util::serializer::PlainKey& key, bool first, char* to) {
        constexpr std::size_t block = util::serializer::PlainKey::block;
        const auto& member = key.jsonMember();
        if (!first) *to++ = ',';
        std::memcpy(to, member.chars, block);
        if (member.size > block) std::memcpy(to + block, member.chars + block, block);
        return to + member.size;
    }
    // Nearly all integers have up to four digits: those are written here, in a third of the instructions of the general way.
    // Returns the end of the text.
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
    // Writes the text in quotes; true on failure.
    bool appendText(std::string_view text);
    // The same for room that is claimed already. Returns the end, or null if the text is not plain; what was written is then
    // useless.
    static char* putPlainText(std::string_view text, char* to) noexcept;
    static char* putUuid(const std::UUID& value, char* to) noexcept;
    [[gnu::noinline]] bool writeUnusual(std::string_view text);
    // The same at `to`; then claims `room` more. Returns the position after the text; null on failure.
    [[gnu::noinline]] char* putUnusual(std::string_view text, char* to, std::size_t room);
    void writeEscaped(unsigned char c);

    util::ByteBufferWriter* out_ = nullptr;
    // `at_` and `end_` point into the room of `out_`. `out_` is told what was written when the room is used up, and at the end.
    char* at_ = nullptr;
    char* end_ = nullptr;
    WriterNesting nesting_;
};

// Writes the members of an object that has just begun, if they are all known beforehand. Room for the plain ones is claimed once,
// and the nesting is not checked for each: they are written one after the other. Others are written in between through the
// writer's own operations. Thread: one at a time; nobody else may use the writer meanwhile.
class JsonWriter::Members {
public:
    // `room`: the sum of `roomFor` of all plain members that will be written.
    Members(JsonWriter& writer, std::size_t room) : writer_{writer}, room_{room}, to_{writer.claim(room)} {}
    Members(const Members&) = delete;
    Members& operator=(const Members&) = delete;

    static constexpr std::size_t roomFor(std::same_as<int> auto /*value*/) noexcept { return keyRoom + longestInt; }
    static constexpr std::size_t roomFor(std::same_as<bool> auto /*value*/) noexcept { return keyRoom + wordBlock; }
    static constexpr std::size_t roomFor(const std::UUID& /*value*/) noexcept { return keyRoom + std::UUID::textLength + 2; }
    static std::size_t roomFor(const std::string& value) noexcept { return keyRoom + value.size() + 2; }
    static std::size_t roomFor(const kelo::url& value) noexcept { return roomFor(value.toString()); }

    // Writes the next member, a plain one. True on failure.
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key, std::same_as<int> auto value) {
        char* const to = nextKey(key);
        to_ = putInt(value, to, to + longestInt);
        return false;
    }
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key, std::same_as<bool> auto value) {
        char* const to = nextKey(key);
        std::memcpy(to, value ? "true    " : "false   ", wordBlock);
        to_ = to + (value ? 4 : 5);
        return false;
    }
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key, const std::UUID& value) {
        to_ = putUuid(value, nextKey(key));
        return false;
    }
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key, const std::string& value) {
        char* const to = nextKey(key);
        to_ = putPlainText(value, to);
        if (to_ == nullptr) [[unlikely]]
            to_ = writer_.putUnusual(value, to, room_);
        return to_ == nullptr;
    }
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key, const kelo::url& value) {
        return write(key, value.toString());
    }
    // Writes the next member; `write` writes its value with the writer's own operations.
    template <class Write>
    [[gnu::always_inline]] bool write(const util::serializer::PlainKey& key,
                                      Write&& write) requires std::is_invocable_r_v<bool, Write> {
        give();
        if (writer_.plainMemberKey(key, first_) || std::forward<Write>(write)() || writer_.endMember()) return true;
        first_ = false;
        to_ = writer_.claim(room_);
        return false;
    }
    // Ends the object.
    bool end() {
        give();
        return writer_.endObject();
    }

private:
    static constexpr std::size_t longestInt = std::numeric_limits<int>::digits10 + 2;  // one digit more than digits10, and a sign
    static constexpr std::size_t wordBlock = 8;  // copied as a whole block; four or five characters of it count

    [[gnu::always_inline]] char* nextKey(const util::serializer::PlainKey& key) {
        return putKey(key, std::exchange(first_, false), to_);
    }
    // Tells the writer what has been written.
    void give() {
        writer_.at_ = to_;
        if (!first_) writer_.nesting_.membersAreWritten();
    }

    JsonWriter& writer_;
    const std::size_t room_;
    char* to_;
    bool first_ = true;
};

}  // namespace kelo::serializer
