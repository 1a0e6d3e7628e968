// The tree is nlohmann's ordered JSON. All three encodings are read with the platform's pull readers, so their limits (depth,
// UTF-8, no trailing bytes) apply here, too, and a document means the same as in the services.
//
// Single-precision numbers: the binary encodings write a float as 32 bits, the JSON one as the shortest text that reads back as
// the same float. The readers return doubles. So a double of a binary document that is exactly a float gets the float's
// shortest text, and 59.94 is shown as 59.94 in every encoding, not as 59.939998626708984.

#include "hmx/client/document.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <vector>

#include "kelo/mimetypes.h"
#include "kelo/serializer/factory.h"
#include "kelo/std/error_storage.h"

namespace hmx::client {
namespace {

using kelo::mimetypes::MimeTypeID;
using util::serializer::IStructuredPullDeserializer;
using util::serializer::IStructuredSerializer;
using util::serializer::ValueType;

double asShown(double value) {
    const auto narrow = static_cast<float>(value);
    if (!std::isfinite(narrow) || static_cast<double>(narrow) != value) return value;
    std::array<char, 32> shortest{};
    const auto end = std::to_chars(shortest.data(), shortest.data() + shortest.size(), narrow);
    double shown = value;
    std::from_chars(shortest.data(), end.ptr, shown);
    return shown;
}

// Reads one value, containers and all; true on failure. The depth is the reader's to bound.
class TreeReader {
public:
    TreeReader(IStructuredPullDeserializer& reader, bool singlePrecision) : reader_{reader}, singlePrecision_{singlePrecision} {}

    bool read(Json& out) {
        switch (reader_.peek()) {
            case ValueType::null:
                out = nullptr;
                return reader_.readNull();
            case ValueType::boolean: {
                bool value = false;
                if (reader_.readBool(value)) return true;
                out = value;
                return false;
            }
            case ValueType::integer: {
                std::int64_t value = 0;
                if (reader_.readInt(value)) return true;
                out = value;
                return false;
            }
            case ValueType::floating: {
                double value = 0;
                if (reader_.readDouble(value)) return true;
                out = singlePrecision_ ? asShown(value) : value;
                return false;
            }
            case ValueType::string: {
                std::string_view value;
                if (reader_.readString(value)) return true;
                out = value;
                return false;
            }
            case ValueType::object:
                return readObject(out);
            case ValueType::array:
                return readArray(out);
            case ValueType::invalid:
                break;
        }
        return reader_.skipValue();  // says what is wrong with it
    }

private:
    bool readObject(Json& out) {
        out = Json::object();
        if (reader_.beginObject()) return true;
        for (bool end = false;;) {
            if (reader_.atObjectEnd(end)) return true;
            if (end) return reader_.endObject();
            std::string_view key;
            if (reader_.memberKey(key)) return true;
            Json& value = out[std::string{key}];
            if (read(value) || reader_.endMember()) return true;
        }
    }

    bool readArray(Json& out) {
        out = Json::array();
        if (reader_.beginArray()) return true;
        for (bool end = false;;) {
            if (reader_.atArrayEnd(end)) return true;
            if (end) return reader_.endArray();
            if (read(out.emplace_back(nullptr)) || reader_.endElement()) return true;
        }
    }

    IStructuredPullDeserializer& reader_;
    bool singlePrecision_;
};

bool writeTree(IStructuredSerializer& writer, const Json& value) {
    switch (value.type()) {
        case Json::value_t::null:
            return writer.writeNull();
        case Json::value_t::boolean:
            return writer.writeBool(value.get<bool>());
        case Json::value_t::number_integer:
            return writer.writeInt(value.get<std::int64_t>());
        case Json::value_t::number_unsigned:
            if (value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                throw Error{Error::Kind::invalid, compact(value) + " does not fit into 64 bits"};
            }
            return writer.writeInt(value.get<std::int64_t>());
        case Json::value_t::number_float:
            return writer.writeDouble(value.get<double>());
        case Json::value_t::string:
            return writer.writeString(value.get_ref<const std::string&>());
        case Json::value_t::object: {
            if (writer.beginObject()) return true;
            bool first = true;
            for (const auto& [key, each] : value.items()) {
                if (writer.memberKey(key, first, -1) || writeTree(writer, each) || writer.endMember()) return true;
                first = false;
            }
            return writer.endObject();
        }
        case Json::value_t::array: {
            if (writer.beginArray()) return true;
            bool first = true;
            for (const Json& each : value) {
                if (writer.beginElement(first) || writeTree(writer, each) || writer.endElement()) return true;
                first = false;
            }
            return writer.endArray();
        }
        case Json::value_t::binary:
        case Json::value_t::discarded:
            break;
    }
    return true;
}

// With the reason that the reader left behind.
Error unreadable(const kelo::Payload& payload) {
    return Error{Error::Kind::unreadable,
                 "the answer is not a readable " + std::string{payload.mimeType().text()} +
                     " document: " + std::ErrorStorage::takeReason(),
                 {.sent = Sent::answered}};
}

}  // namespace

Json decode(const kelo::Payload& payload) {
    if (payload.empty()) return nullptr;
    const MimeTypeID type = payload.mimeType().id();
    const auto reader = kelo::serializer::Factory::createDeserializer(type);
    if (!reader) return Json(payload.text());
    Json document;
    const bool failed = reader->start(util::ByteBufferReader{payload.bytes()}) ||
                        TreeReader{*reader, type != MimeTypeID::json}.read(document) || reader->finish();
    if (!failed) return document;
    throw unreadable(payload);
}

kelo::Payload encode(const Json& document, std::string_view mimeType) {
    const auto writer = kelo::serializer::Factory::createSerializer(kelo::mimetypes::typename2id(mimeType));
    if (!writer) throw Error{Error::Kind::invalid, "no encoding for mime type '" + std::string{mimeType} + "'"};
    util::ByteBufferWriter bytes{1024};
    if (writer->start(bytes) || writeTree(*writer, document) || writer->finish()) {
        throw Error{Error::Kind::invalid,
                    "the body cannot be written as " + std::string{mimeType} + ": " + std::ErrorStorage::takeReason()};
    }
    return kelo::Payload::copyOf(bytes.bytes(), kelo::MimeType{mimeType});
}

std::string jsonText(const kelo::Payload& payload) {
    const Json document = decode(payload);  // also of JSON: what is no document is not passed on as one
    if (payload.mimeType().id() == MimeTypeID::json && !payload.empty()) {
        std::string text{payload.text()};
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        return text;
    }
    return compact(document);
}

std::string compact(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void readRecord(const kelo::Payload& payload, kelo::ResultView record) {
    if (kelo::readDocument(payload.bytes(), payload.mimeType(), record)) throw unreadable(payload);
}

const Json& member(const Json& object, std::string_view key) noexcept {
    static const Json absent;
    if (!object.is_object()) return absent;
    for (const auto& entry : object.get_ref<const Json::object_t&>()) {
        if (entry.first == key) return entry.second;
    }
    return absent;
}

std::string text(const Json& object, std::string_view key) {
    const Json& value = member(object, key);
    return value.is_string() ? value.get<std::string>() : std::string{};
}

}  // namespace hmx::client
