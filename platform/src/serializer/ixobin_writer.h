// Writes the binary form "application/vnd.ixobin", which is CBOR.
#pragma once

#include "kelo/serializer/writer_nesting.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

// Containers of indefinite length; a UUID is tag 37, a URL tag 32. Thread: one at a time.
class IxobinWriter final : public util::serializer::IStructuredSerializer {
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
    template <class Encode>
    void put(Encode encode);
    bool writeText(std::string_view text);

    util::ByteBufferWriter* out_ = nullptr;
    WriterNesting nesting_;
};

}  // namespace kelo::serializer
