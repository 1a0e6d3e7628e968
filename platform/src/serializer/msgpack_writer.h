// Writes msgpack.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kelo/serializer/writer_nesting.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// UUIDs and URLs are text. Thread: one at a time.
class MsgpackWriter final : public util::serializer::IStructuredSerializer {
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
    bool beginContainer(bool object);
    bool endContainer(bool object);
    template <class T>
    void bigEndian(std::uint8_t type, T value);
    bool writeText(std::string_view text);

    struct Container {
        std::size_t at = 0;  // of the header in the buffer
        std::uint32_t count = 0;
    };

    util::ByteBufferWriter* out_ = nullptr;
    WriterNesting nesting_;
    std::array<Container, maximumDepth> containers_;
};

}  // namespace kelo::serializer
