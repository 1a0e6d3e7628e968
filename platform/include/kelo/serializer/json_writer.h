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
        out_->writeByte('{');
        return false;
    }
    bool memberKey(std::string_view key, bool first, int index) override;
    bool plainMemberKey(const util::serializer::PlainKey& key, bool first) override {
        if (nesting_.open(true, first)) return true;
        out_->commitTo(putKey(key, first, 0));
        return false;
    }
    bool endMember() override { return nesting_.close(true); }
    bool endObject() override {
        if (nesting_.end(true)) return true;
        out_->writeByte('}');
        return false;
    }
    bool beginArray() override {
        if (nesting_.begin(false)) return true;
        out_->writeByte('[');
        return false;
    }
    bool beginElement(bool first) override {
        if (nesting_.open(false, first)) return true;
        if (!first) out_->writeByte(',');
        return false;
    }
    bool endElement() override { return nesting_.close(false); }
    bool endArray() override {
        if (nesting_.end(false)) return true;
        out_->writeByte(']');
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
        out_->commitTo(std::to_chars(to, to + longest, value).ptr);
        return false;
    }
    bool writeMember(const util::serializer::PlainKey& key, std::same_as<bool> auto value, bool first) {
        if (nesting_.member(first)) return true;
        const std::string_view text = value ? "true" : "false";
        char* const to = putKey(key, first, text.size());
        std::memcpy(to, text.data(), text.size());
        out_->commitTo(to + text.size());
        return false;
    }
    bool writeMember(const util::serializer::PlainKey& key, std::string_view value, bool first);
    bool writeMember(const util::serializer::PlainKey& key, const std::UUID& value, bool first);
    bool writeMember(const util::serializer::PlainKey& key, const kelo::url& value, bool first);

private:
    // Claims room for a key and `most` more, writes the key, and tells where it ends. The caller commits.
    char* putKey(const util::serializer::PlainKey& key, bool first, std::size_t most) {
        constexpr std::size_t block = util::serializer::PlainKey::block;
        const auto& member = key.jsonMember();
        char* to = out_->claim(1 + 2 * block + most);
        if (!first) *to++ = ',';
        std::memcpy(to, member.chars, block);
        if (member.size > block) std::memcpy(to + block, member.chars + block, block);
        return to + member.size;
    }
    template <class Number>
    bool writeNumber(Number value);
    // Into room for it and its quotes.
    bool putText(std::string_view text, char* to);
    void putUuid(const std::UUID& value, char* to);
    [[gnu::noinline]] bool writeUnusual(std::string_view text);
    void writeEscaped(unsigned char c);

    util::ByteBufferWriter* out_ = nullptr;
    WriterNesting nesting_;
};

}  // namespace kelo::serializer
