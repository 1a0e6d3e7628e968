// Reads the binary encodings: the part they share, once an encoding has decoded a single value.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "kelo/serializer/failure.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// One value, or the head of a container. The type says which of the members after `end` are valid.
struct BinaryItem {
    // large: an integer beyond 64 bits. opaque: a value that our documents do not have, such as a byte string.
    enum class Type : std::uint8_t { null, boolean, integer, large, floating, text, uuid, opaque, array, map };
    static constexpr std::uint64_t untilBreak = ~std::uint64_t{0};

    void setUnsigned(std::uint64_t value) noexcept;
    // Sets the integer -1 - value.
    void setNegative(std::uint64_t value) noexcept;

    Type type = Type::null;
    std::size_t end = 0;       // where the value ends, in bytes from the start of the document
    std::int64_t integer = 0;  // also of a boolean (0 or 1)
    double floating = 0;       // also of a large integer; NaN if no double equals it
    std::uint64_t count = 0;   // of a container: number of entries, or `untilBreak`
    std::string_view text;     // of a string, not yet checked; of a UUID its 16 bytes
};

// Thread: one at a time.
class BinaryReader : public util::serializer::IStructuredPullDeserializer {
public:
    bool start(const util::ByteBufferReader& reader) final;
    bool finish() final;
    bool beginObject() final { return begin(true); }
    bool atObjectEnd(bool& end) final { return atEnd(true, end); }
    bool memberKey(std::string_view& key) final;
    bool takeMemberKey(const util::serializer::PlainKey& key, bool behindMember) final;
    bool endMember() final { return endEntry(true); }
    bool endObject() final { return end(true); }
    bool beginArray() final { return begin(false); }
    bool atArrayEnd(bool& end) final { return atEnd(false, end); }
    bool endElement() final { return endEntry(false); }
    bool endArray() final { return end(false); }
    bool chargeMemory(std::size_t bytes) final;
    util::serializer::ValueType peek() final;
    bool readNull() final;
    bool takeNull() final;
    bool readBool(bool& value) final;
    bool readInt(std::int64_t& value) final;
    bool readDouble(double& value) final;
    bool readString(std::string_view& value) final;
    bool readUuid(std::UUID& value) final;
    bool readUrl(kelo::url& value) final;
    bool skipValue() final;
    std::size_t offset() const noexcept final { return at_; }

protected:
    // How a short text begins: one byte, the sum of `head` and the length, if the length is less than `limit`.
    struct ShortText {
        std::uint8_t head;
        std::uint8_t limit;
    };
    explicit BinaryReader(ShortText shortText) noexcept : shortText_{shortText} {}

    // Decodes the value at offset(), where there is at least one byte. Returns null, or what is wrong with it. Nothing is
    // recorded, because the caller may only be peeking.
    virtual const char* decode(BinaryItem& item) = 0;

    std::span<const std::uint8_t> bytes() const noexcept { return bytes_; }

    static constexpr const char* cutShort = "the document is cut short";

    std::string scratch_;  // for text that is not in the input as it is

private:
    struct Container {
        std::uint64_t left = 0;  // entries still to come, or `untilBreak`
        bool object = false;
    };

    // Decodes the next value into `item_`, unless that has been done.
    const char* look();
    bool failed(const char* what) const noexcept { return readFailed(what, at_); }
    [[gnu::cold]] bool failedToFind(const char* expected);
    bool take(BinaryItem::Type type, const char* expected);
    bool begin(bool object);
    bool atEnd(bool object, bool& end) const;
    bool endEntry(bool object);
    bool end(bool object);
    bool isOpen(bool object) const noexcept { return depth_ > 0 && containers_[depth_ - 1].object == object; }

    static constexpr std::size_t nowhere = ~std::size_t{0};

    const ShortText shortText_;
    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    std::size_t itemAt_ = nowhere;  // the offset of the value in `item_`
    BinaryItem item_;
    unsigned depth_ = 0;
    unsigned elements_ = 0;
    std::size_t memory_ = 0;
    std::array<Container, maximumDepth> containers_;
};

}  // namespace kelo::serializer
