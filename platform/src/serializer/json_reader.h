// Reads JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Thread: one at a time.
class JsonReader final : public util::serializer::IStructuredPullDeserializer {
public:
    bool start(const util::ByteBufferReader& reader) override;
    bool finish() override;
    bool beginObject() override;
    bool atObjectEnd(bool& end) override;
    bool memberKey(std::string_view& key) override;
    bool takeMemberKey(const util::serializer::PlainKey& key, bool behindMember) override;
    bool endMember() override;
    bool endObject() override;
    bool beginArray() override;
    bool atArrayEnd(bool& end) override;
    bool endElement() override;
    bool endArray() override;
    util::serializer::ValueType peek() override;
    bool readNull() override;
    bool takeNull() override;
    bool readBool(bool& value) override;
    bool readInt(std::int64_t& value) override;
    bool readDouble(double& value) override;
    bool readString(std::string_view& value) override;
    bool readUuid(std::UUID& value) override;
    bool readUrl(kelo::url& value) override;
    bool skipValue() override;
    std::size_t offset() const noexcept override { return static_cast<std::size_t>(at_ - begin_); }

private:
    bool failed(const char* what) const noexcept;
    [[gnu::cold]] bool failedToFind(const char* expected);
    void skipBlanks() noexcept {
        while (at_ < end_ && static_cast<unsigned char>(*at_) <= ' ' &&
               (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t'))
            ++at_;
    }
    bool begin(char open, const char* expected);
    bool atEnd(char close, bool& end);
    bool separate(char close);
    bool end(char close);
    [[gnu::noinline]] bool readUnusualInt(std::int64_t& value);
    bool takeLiteral(std::string_view text) noexcept;
    // The number at the present place, not consumed; empty if none begins there. `integer`: it has neither fraction nor exponent.
    std::string_view scanNumber(bool& integer) const noexcept;
    // A string with escapes, or a malformed one, whose plain characters from `run` to the present place have been passed over.
    [[gnu::noinline]] bool readUnusual(const char* run, bool ascii, std::string_view& value);
    bool readEscape();  // what follows a backslash
    bool readHex(unsigned& value) noexcept;

    const char* begin_ = nullptr;
    const char* at_ = nullptr;
    const char* end_ = nullptr;
    unsigned depth_ = 0;
    unsigned elements_ = 0;
    std::string scratch_;
};

}  // namespace kelo::serializer
