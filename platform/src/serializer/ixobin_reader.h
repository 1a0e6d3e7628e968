// Reads the binary form "application/vnd.ixobin", which is CBOR.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Thread: one at a time.
class IxobinReader final : public util::serializer::IStructuredPullDeserializer {
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
    // One item, without what it contains.
    struct Item {
        enum class Kind : std::uint8_t {
            none,
            integer,
            tooLarge,
            bytes,
            bytesStart,
            text,
            textStart,
            array,
            arrayStart,
            map,
            mapStart,
            tag,
            floating,
            null,
            boolean,
            simple,
            stop
        } kind = Kind::none;
        std::int64_t integer = 0;  // also a boolean
        std::uint64_t count = 0;   // of a container, and the number of a tag
        double floating = 0;
        std::string_view text;
        std::size_t size = 0;  // in bytes, header included
    };
    struct Decoding;
    struct Container {
        std::uint64_t left = 0;
        bool object = false;
        bool indefinite = false;
    };

    bool failed(const char* what) const;
    // The item at `at`; fails if it is cut short or malformed.
    bool decode(std::size_t at, Item& item) const;
    // The same at the present place, past any tags; `tag`: the innermost one, or `noTag`.
    bool decodeValue(Item& item, std::size_t& at, std::uint64_t& tag) const;
    bool expect(Item& item, Item::Kind kind, const char* what);
    bool begin(bool object);
    bool atEnd(bool object, bool& end) const;
    bool end(bool object);
    // The pieces of a string of indefinite length, behind its start, put together in `scratch_`.
    bool readPieces(Item::Kind piece);

    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    unsigned depth_ = 0;
    std::array<Container, 64> containers_;
    std::string scratch_;
};

}  // namespace kelo::serializer
