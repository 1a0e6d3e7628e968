// Reading and writing structured documents in any encoding.
//
// The framework's convention applies throughout: a bool result of true means failure, and every caller stops at the first true. A
// reader or writer that fails has recorded the reason in the error store (category kelo::errors::Error, code readFailure or
// writeFailure; a reader adds the byte offset).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "kelo/std/uuid.h"
#include "kelo/url.h"
#include "util/byte_buffer.h"

namespace util::serializer {

// The key of a member that no encoding has to escape or check: printable ASCII without quotes and backslashes, at most 28
// characters. It refers to text with static storage.
class PlainKey {
public:
    // A JSON key is copied in one or two blocks of this size, whatever its length, instead of byte by byte.
    static constexpr std::size_t block = 16;

    // The key as it begins a JSON member: `"key":`.
    struct Text {
        template <std::size_t N>
        consteval explicit Text(const char (&key)[N]) {
            static_assert(N > 1 && N - 1 + 3 <= 2 * block);
            chars[size++] = '"';
            for (std::size_t i = 0; i + 1 < N; ++i) {
                if (key[i] < ' ' || key[i] > '~' || key[i] == '"' || key[i] == '\\') throw "not a plain key";
                chars[size++] = key[i];
            }
            chars[size++] = '"';
            chars[size++] = ':';
        }
        std::size_t size = 0;
        char chars[2 * block]{};
    };

    // Keeps a reference to `text`.
    constexpr explicit PlainKey(const Text& text) noexcept : text_{&text} {}

    constexpr std::string_view text() const noexcept { return {text_->chars + 1, size()}; }
    constexpr std::size_t size() const noexcept { return text_->size - 3; }
    constexpr const Text& jsonMember() const noexcept { return *text_; }

private:
    const Text* text_;
};

// Base of interfaces whose implementation can tell callers what it is. A caller that writes many members then need not make a
// virtual call for each. The query is one comparison, cheaper than a virtual call. Thread: any.
class Known {
public:
    // This object as an Implementation, if it said that it is one; otherwise null.
    template <class Implementation>
    Implementation* as() noexcept {
        return what_ == &name<Implementation> ? static_cast<Implementation*>(this) : nullptr;
    }

protected:
    Known() = default;
    template <class Implementation>
    explicit Known(std::in_place_type_t<Implementation> /*what*/) noexcept : what_{&name<Implementation>} {}
    ~Known() = default;

private:
    template <class Implementation>
    static constexpr char name = 0;  // its address tells implementations apart

    const char* what_ = nullptr;
};

// Thread: one at a time. A writer may be started again after finish() or a failure.
class IStructuredSerializer : public Known {
public:
    using Known::Known;
    virtual ~IStructuredSerializer() = default;

    // Begins a document at the end of `writer`, which must outlive the document.
    virtual bool start(ByteBufferWriter& writer) = 0;
    // Ends the document; fails if a value is missing or a container is open.
    virtual bool finish() = 0;

    virtual bool beginObject() = 0;
    // `first`: true for the first member of this object. `index`: the member's number for encodings that use one, -1 for none;
    // none of today's encodings does.
    virtual bool memberKey(std::string_view key, bool first, int index) = 0;
    // Like memberKey(), for a key that needs no check.
    virtual bool plainMemberKey(const PlainKey& key, bool first) = 0;
    virtual bool endMember() = 0;
    virtual bool endObject() = 0;

    virtual bool beginArray() = 0;
    // Called before each element; `first`: true for the first.
    virtual bool beginElement(bool first) = 0;
    virtual bool endElement() = 0;
    virtual bool endArray() = 0;

    virtual bool writeNull() = 0;
    virtual bool writeBool(bool value) = 0;
    virtual bool writeInt(std::int64_t value) = 0;
    // Infinities and NaN fail in every encoding, because JSON cannot express them and no value may depend on the encoding.
    virtual bool writeDouble(double value) = 0;
    // Like writeDouble, but the shortest form that reads back as the same float.
    virtual bool writeFloat(float value) = 0;
    // `value` must be valid UTF-8.
    virtual bool writeString(std::string_view value) = 0;
    virtual bool writeUuid(const std::UUID& value) = 0;
    virtual bool writeUrl(const kelo::url& value) = 0;
};

enum class ValueType : std::uint8_t { null, boolean, integer, floating, string, object, array, invalid };

// Thread: one at a time. Input must never make a reader throw, recurse without bound (the depth is at most 64), or allocate more
// than the input's size; the memory of array elements is charged (`chargeMemory`). Text views are valid until the next call on
// the reader.
class IStructuredPullDeserializer : public Known {
public:
    using Known::Known;
    virtual ~IStructuredPullDeserializer() = default;

    // Begins a document; the bytes must outlive it. A reader may be started again at any time.
    virtual bool start(const ByteBufferReader& reader) = 0;
    // Ends the document; fails if bytes are left over or a container is open.
    virtual bool finish() = 0;

    virtual bool beginObject() = 0;
    // Sets `end` to true if the open object has no further member.
    virtual bool atObjectEnd(bool& end) = 0;
    virtual bool memberKey(std::string_view& key) = 0;
    // If this key, without escapes, is next in the open object, consumes it and returns true. Otherwise consumes nothing;
    // memberKey() then reads the key that is there. `behindMember`: the value of another member has just been read, and if this
    // key follows, the end of that member is consumed too. (The result is not a failure: true means yes.)
    virtual bool takeMemberKey(const PlainKey& key, bool behindMember) = 0;
    virtual bool endMember() = 0;
    virtual bool endObject() = 0;

    virtual bool beginArray() = 0;
    // Sets `end` to true if the open array has no further element.
    virtual bool atArrayEnd(bool& end) = 0;
    virtual bool endElement() = 0;
    virtual bool endArray() = 0;
    // The caller is about to use this many bytes for elements of an array. Fails above the limit for a document.
    virtual bool chargeMemory(std::size_t bytes) = 0;

    // The type of the next value, without consuming it; `invalid` if no value can begin here.
    virtual ValueType peek() = 0;
    virtual bool readNull() = 0;
    // If the next value is null, consumes it and returns true. (The result is not a failure: true means yes.)
    virtual bool takeNull() = 0;
    virtual bool readBool(bool& value) = 0;
    // Fails for an integer outside int64 and for a number with a fraction or exponent: values never wrap or round.
    virtual bool readInt(std::int64_t& value) = 0;
    // Also reads integers that a double represents exactly.
    virtual bool readDouble(double& value) = 0;
    virtual bool readString(std::string_view& value) = 0;
    // A UUID: text in JSON and msgpack; tag 37, or text, in the binary form.
    virtual bool readUuid(std::UUID& value) = 0;
    virtual bool readUrl(kelo::url& value) = 0;
    // Consumes the next value of any type.
    virtual bool skipValue() = 0;
    // The reader's position, in bytes from the start of the document.
    virtual std::size_t offset() const noexcept = 0;
};

}  // namespace util::serializer
