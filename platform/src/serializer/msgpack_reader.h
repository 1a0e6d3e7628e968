// Reads msgpack.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Thread: one at a time.
class MsgpackReader final : public util::serializer::IStructuredPullDeserializer {
public:
    bool start(const util::ByteBufferReader& reader) override;
    bool finish() override;
    bool beginObject() override;
    bool atObjectEnd(bool& end) override;
    bool memberKey(std::string_view& key) override;
    bool endMember() override;
    bool endObject() override;
    bool beginArray() override;
    bool atArrayEnd(bool& end) override;
    bool endElement() override;
    bool endArray() override;
    util::serializer::ValueType peek() override;
    bool readNull() override;
    bool readBool(bool& value) override;
    bool readInt(std::int64_t& value) override;
    bool readDouble(double& value) override;
    bool readString(std::string_view& value) override;
    bool readUuid(std::UUID& value) override;
    bool readUrl(kelo::url& value) override;
    bool skipValue() override;
    std::size_t offset() const noexcept override { return at_; }

private:
    // What stands at one place: its type, its number, and the bytes of text, binary and extension values.
    struct Item {
        enum class Kind : std::uint8_t { null, boolean, integer, tooLarge, floating, text, binary, array, map } kind = Kind::null;
        std::int64_t integer = 0;  // also a boolean, and the count of a container
        double floating = 0;
        std::string_view text;
        std::size_t size = 0;  // of the item in bytes; of a container, its header
    };
    struct Container {
        std::uint32_t left = 0;
        bool object = false;
    };

    bool failed(const char* what) const;
    bool decode(Item& item) const;
    bool expect(Item& item, Item::Kind kind, const char* what);
    bool consume(const Item& item);
    bool begin(bool object);
    bool atEnd(bool object, bool& end) const;
    bool end(bool object);
    std::uint64_t number(std::size_t at, std::size_t size) const noexcept;

    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    unsigned depth_ = 0;
    std::array<Container, 64> containers_;
};

}  // namespace kelo::serializer
