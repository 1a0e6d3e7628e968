// Writes JSON.
#pragma once

#include "serializer/writer_nesting.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Compact: no blanks. Thread: one at a time.
class JsonWriter final : public util::serializer::IStructuredSerializer {
public:
    bool start(util::ByteBufferWriter& writer) override;
    bool finish() override;
    bool beginObject() override;
    bool memberKey(std::string_view key, bool first, int index) override;
    bool plainMemberKey(const util::serializer::PlainKey& key, bool first) override;
    bool endMember() override;
    bool endObject() override;
    bool beginArray() override;
    bool beginElement(bool first) override;
    bool endElement() override;
    bool endArray() override;
    bool writeNull() override;
    bool writeBool(bool value) override;
    bool writeInt(std::int64_t value) override;
    bool writeDouble(double value) override;
    bool writeFloat(float value) override;
    bool writeString(std::string_view value) override;
    bool writeUuid(const std::UUID& value) override;
    bool writeUrl(const kelo::url& value) override;

private:
    // What std::to_chars takes: a value, and how to write it.
    template <class... Format>
    bool writeNumber(Format... format);
    bool writeText(std::string_view text);
    [[gnu::noinline]] bool writeUnusual(std::string_view text);
    void writeEscaped(unsigned char c);

    util::ByteBufferWriter* out_ = nullptr;
    WriterNesting nesting_;
};

}  // namespace kelo::serializer
