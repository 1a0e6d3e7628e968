// Reading and writing structured documents, whatever their encoding.
//
// The framework's convention holds throughout: a bool result of true means failure, and every caller stops at the first true.
// A failing reader or writer has put the reason into the error store (category kelo::errors::Error, code readFailure or
// writeFailure, with the byte offset for a reader).
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

// A member's key that every encoding takes as it is, so that nobody has to look at its characters: printable ASCII without quotes
// and backslashes, at most 28 of them. What it refers to has static storage.
class PlainKey {
public:
    // A JSON member is copied in one or two blocks of this size, whatever its length, rather than byte by byte.
    static constexpr std::size_t block = 16;

    // The key as a JSON member begins: `"key":`.
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

    // Refers to the text.
    constexpr explicit PlainKey(const Text& text) noexcept : text_{&text} {}

    constexpr std::string_view text() const noexcept { return {text_->chars + 1, size()}; }
    constexpr std::size_t size() const noexcept { return text_->size - 3; }
    constexpr const Text& jsonMember() const noexcept { return *text_; }

private:
    const Text* text_;
};

// Base of interfaces of which an implementation may tell its callers what it is: whoever writes many members then need not go
// through the interface for each. To ask costs a comparison, less than a virtual call. Thread: any.
class Known {
public:
    // Itself, if it has said that it is one of these.
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
    // Ends it; fails if a value is missing or a container is open.
    virtual bool finish() = 0;

    virtual bool beginObject() = 0;
    // `first`: true for the first member written in this object. `index`: the member's number for encodings that have one, -1
    // where there is none; none of today's encodings uses it.
    virtual bool memberKey(std::string_view key, bool first, int index) = 0;
    // memberKey() for a key of which is known that it needs no look.
    virtual bool plainMemberKey(const PlainKey& key, bool first) = 0;
    virtual bool endMember() = 0;
    virtual bool endObject() = 0;

    virtual bool beginArray() = 0;
    // Before each element; `first`: true for the first.
    virtual bool beginElement(bool first) = 0;
    virtual bool endElement() = 0;
    virtual bool endArray() = 0;

    virtual bool writeNull() = 0;
    virtual bool writeBool(bool value) = 0;
    virtual bool writeInt(std::int64_t value) = 0;
    // Infinities and NaN have no JSON form and fail in every encoding, so that no value changes with the encoding.
    virtual bool writeDouble(double value) = 0;
    // Like writeDouble, but the shortest form that reads back as the same float.
    virtual bool writeFloat(float value) = 0;
    // `value` must be valid UTF-8.
    virtual bool writeString(std::string_view value) = 0;
    virtual bool writeUuid(const std::UUID& value) = 0;
    virtual bool writeUrl(const kelo::url& value) = 0;
};

enum class ValueType : std::uint8_t { null, boolean, integer, floating, string, object, array, invalid };

// Thread: one at a time. Nothing that is read may throw, recurse without bound (depth at most 64) or allocate more than the input
// holds; what the elements of arrays become is charged (`chargeMemory`). Text views live until the next call on the reader.
class IStructuredPullDeserializer : public Known {
public:
    using Known::Known;
    virtual ~IStructuredPullDeserializer() = default;

    // Begins a document; the bytes must outlive it. A reader may be started again at any time.
    virtual bool start(const ByteBufferReader& reader) = 0;
    // Ends it; fails if bytes are left over or a container is open.
    virtual bool finish() = 0;

    virtual bool beginObject() = 0;
    // True in `end` when the object that is open has no further member.
    virtual bool atObjectEnd(bool& end) = 0;
    virtual bool memberKey(std::string_view& key) = 0;
    // Whether this key, in its usual spelling, comes next in the object that is open; then it has been consumed. Wherever that is
    // not so, nothing has happened, and it is memberKey() that tells what there is. `behindMember`: the value of another member
    // has just been read; its end, if this key follows, is consumed too. (No failure: true means yes.)
    virtual bool takeMemberKey(const PlainKey& key, bool behindMember) = 0;
    virtual bool endMember() = 0;
    virtual bool endObject() = 0;

    virtual bool beginArray() = 0;
    // True in `end` when the array that is open has no further element.
    virtual bool atArrayEnd(bool& end) = 0;
    virtual bool endElement() = 0;
    virtual bool endArray() = 0;
    // The caller is about to keep so many bytes for what it reads from an array. Fails beyond what a document may take.
    virtual bool chargeMemory(std::size_t bytes) = 0;

    // The type of the next value, without consuming it; `invalid` where no value can begin.
    virtual ValueType peek() = 0;
    virtual bool readNull() = 0;
    // Whether the next value is null; then it has been consumed. (No failure: true means yes.)
    virtual bool takeNull() = 0;
    virtual bool readBool(bool& value) = 0;
    // An integer outside int64, or a number with a fraction or exponent, fails: values never wrap or round.
    virtual bool readInt(std::int64_t& value) = 0;
    // Integers read as floating too, where they are exact.
    virtual bool readDouble(double& value) = 0;
    virtual bool readString(std::string_view& value) = 0;
    // A UUID: text in JSON and msgpack, tag 37 (or text) in the binary form.
    virtual bool readUuid(std::UUID& value) = 0;
    virtual bool readUrl(kelo::url& value) = 0;
    // Consumes the next value, whatever it is.
    virtual bool skipValue() = 0;
    // Where the reader stands, in bytes from the start of the document.
    virtual std::size_t offset() const noexcept = 0;
};

}  // namespace util::serializer
