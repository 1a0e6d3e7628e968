// What every encoding has in common.
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>

#include "kelo/errors.h"
#include "platform/any_document.h"

namespace {

using any_document::expectDocument;
using any_document::expectPrefixesRefused;
using any_document::expectRefused;
using any_document::fromHex;
using any_document::MimeTypeID;
using support::Any;
using Json = nlohmann::json;
using Reader = util::serializer::IStructuredPullDeserializer;
using Writer = util::serializer::IStructuredSerializer;
using util::serializer::ValueType;

class EveryEncoding : public testing::TestWithParam<MimeTypeID> {
protected:
    // The document that `write` writes; it must not fail.
    template <class Write>
    std::string written(Write write) {
        util::ByteBufferWriter bytes;
        EXPECT_FALSE(writer_->start(bytes) || write(*writer_) || writer_->finish()) << std::ErrorStorage::takeReason();
        return {bytes.bytes().begin(), bytes.bytes().end()};
    }
    template <class Read>
    void read(std::string_view document, Read read) {
        EXPECT_FALSE(reader_->start(util::ByteBufferReader{document}) || read(*reader_) || reader_->finish())
            << std::ErrorStorage::takeReason();
    }
    std::string written(const Json& value) {
        return written([&](Writer& writer) { return support::writeAny(writer, value); });
    }
    // The document as an independent parser reads it, and as an independent writer would write it.
    static Json parsed(const std::string& document) {
        switch (GetParam()) {
            case MimeTypeID::msgpack:
                return Json::from_msgpack(document);
            case MimeTypeID::ixobin:
                return Json::from_cbor(document);
            default:
                return Json::parse(document);
        }
    }
    static std::string dumped(const Json& value) {
        std::string document;
        switch (GetParam()) {
            case MimeTypeID::msgpack:
                Json::to_msgpack(value, document);
                return document;
            case MimeTypeID::ixobin:
                Json::to_cbor(value, document);
                return document;
            default:
                return value.dump();
        }
    }

    std::unique_ptr<Writer> writer_ = kelo::serializer::Factory::createSerializer(GetParam());
    std::unique_ptr<Reader> reader_ = kelo::serializer::Factory::createDeserializer(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Encodings, EveryEncoding, testing::Values(MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin),
                         [](const auto& test) {
                             const std::string_view name = kelo::mimetypes::id2typename(test.param);
                             return std::string{name.substr(name.find_last_of("/.") + 1)};
                         });

TEST_P(EveryEncoding, NumbersAtTheEdgesComeBackAsTheyWere) {
    for (const std::int64_t magnitude : {0L, 1L, 31L, 127L, 255L, 32767L, 65535L, 2147483647L, 4294967295L, 9007199254740992L,
                                         std::numeric_limits<std::int64_t>::max() - 2}) {
        for (const std::int64_t base : {magnitude, -magnitude - 2}) {
            for (const std::int64_t value : {base - 1, base, base + 1, base + 2}) {
                std::int64_t got = 0;
                read(written([&](Writer& writer) { return writer.writeInt(value); }),
                     [&](Reader& from) { return from.readInt(got); });
                EXPECT_EQ(got, value);
            }
        }
    }
    for (const double magnitude : {0.0, 1.0, 0.1, 1.0 / 3, 5e-324, DBL_MIN, DBL_MAX, 0x1p53, 0x1p63, 0x1p64, 1e15, 1e16, 1e22,
                                   1e23, 12345678901234567168.0, 123456789012345680.0, std::nextafter(0x1p63, 0.0)}) {
        for (const double value : {magnitude, -magnitude}) {
            double got = 1;
            read(written([&](Writer& writer) { return writer.writeDouble(value); }), [&](Reader& from) {
                EXPECT_EQ(from.peek(), util::serializer::ValueType::floating) << value;  // so that -0.0 keeps its sign
                return from.readDouble(got);
            });
            EXPECT_EQ(std::bit_cast<std::uint64_t>(got), std::bit_cast<std::uint64_t>(value)) << value;
        }
    }
    for (const float value :
         {0.1F, FLT_MAX, FLT_MIN, FLT_TRUE_MIN, 16777216.0F, 3e10F, 1e30F, 0x1.5c87fap-84F, -0x1.5c87fap-84F}) {
        double got = 1;
        read(written([&](Writer& writer) { return writer.writeFloat(value); }),
             [&](Reader& from) { return from.readDouble(got); });
        EXPECT_EQ(static_cast<float>(got), value);
    }
}

TEST_P(EveryEncoding, StringsAndContainersOfEverySizeComeBackAsTheyWere) {
    for (const std::size_t size : {0U, 1U, 7U, 8U, 9U, 15U, 16U, 31U, 32U, 255U, 256U, 65535U, 65536U}) {
        SCOPED_TRACE(size);
        Json object = Json::object();
        for (std::size_t i = 0; i < size && size <= 256; ++i) object[std::to_string(i)] = i;
        const std::size_t escaped = std::min<std::size_t>(size, 256);
        const Json value{std::string(size, 'x'), std::string(escaped, '\x01'), std::string(escaped, '"') + "ä", Json(size, 1),
                         object};
        const std::string document = written(value);
        EXPECT_EQ(parsed(document), value);
        expectDocument(GetParam(), document, value);
    }
    // An object that outgrows its header. All members have the same key, which keeps the test fast.
    const std::string document = written([](Writer& writer) {
        if (writer.beginObject()) return true;
        for (int i = 0; i < 65'536; ++i) {
            if (writer.memberKey("k", i == 0, -1) || support::writeAny(writer, {i}) || writer.endMember()) return true;
        }
        return writer.endObject();
    });
    EXPECT_EQ(parsed(document), (Json{{"k", {65'535}}}));
    expectDocument(GetParam(), document, Json{{"k", {65'535}}});
}

TEST_P(EveryEncoding, IdsUrlsAndTextViews) {
    std::UUID id;
    ASSERT_TRUE(std::UUID::parse("19243473-0126-5f4b-b1bf-4879152c72e5", id));
    const auto document = written([&](Writer& writer) {
        return writer.beginArray() || writer.beginElement(true) || writer.writeUuid(id) || writer.endElement() ||
               writer.beginElement(false) || writer.writeUuid(id) || writer.endElement() || writer.beginElement(false) ||
               writer.writeUrl(kelo::url{"/a"}) || writer.endElement() || writer.beginElement(false) ||
               writer.writeString("plain") || writer.endElement() || writer.endArray();
    });
    read(document, [&](Reader& from) {
        std::UUID got;
        kelo::url url;
        std::string_view asText;
        std::string_view plain;
        if (from.beginArray() || from.peek() != ValueType::string || from.readUuid(got) || from.endElement() ||
            from.readString(asText))
            return true;
        EXPECT_EQ(asText, id.toString());
        if (from.endElement() || from.readUrl(url) || from.endElement() || from.readString(plain)) return true;
        EXPECT_EQ(got, id);
        EXPECT_EQ(url.toString(), "/a");
        EXPECT_EQ(plain, "plain");
        EXPECT_TRUE(plain.data() > document.data() && plain.data() < document.data() + document.size()) << "copied";
        return from.endElement() || from.endArray();
    });
    const std::string text = written(Json("19243473-0126-5f4b-b1bf-4879152c72eg"));
    ASSERT_FALSE(reader_->start(util::ByteBufferReader{text}));
    EXPECT_TRUE(reader_->readUuid(id));
    EXPECT_EQ(std::ErrorStorage::takeReason(), "a string that is no UUID at byte 0");
}

TEST_P(EveryEncoding, SixtyFourLevelsAndNoMore) {
    for (const bool objects : {false, true}) {
        for (const int depth : {64, 65}) {
            Json value = objects ? Json::object() : Json::array();
            for (int i = 1; i < depth; ++i) value = objects ? Json{{"k", value}} : Json::array({value});
            std::string document;
            if (depth == 64) {
                expectDocument(GetParam(), dumped(value), value);
                EXPECT_EQ(support::writeDocument(GetParam(), Any{value}, document), "");
                EXPECT_EQ(parsed(document), value);
            } else {
                expectRefused(GetParam(), dumped(value));
                EXPECT_EQ(support::writeDocument(GetParam(), Any{value}, document), "containers nested more than 64 deep");
            }
        }
    }
}

TEST_P(EveryEncoding, ADocumentHasSoManyElementsAndNoMore) {
    constexpr std::size_t most = 100'000;
    for (const bool nested : {false, true}) {
        for (const std::size_t count : {most, most + 1}) {
            // In one array, or in two, the second of which is the last element of the first.
            Json value = Json::array();
            for (std::size_t i = 0; i < (nested ? 999 : count); ++i) value.push_back(Json::object());
            if (nested) {
                Json inner = Json::array();
                for (std::size_t i = 1000; i < count; ++i) inner.push_back(1);
                value.push_back(inner);
            }
            const std::string document = dumped(value);
            const bool isRead = count == most;
            Any any;
            const std::string refusal = any_document::read(GetParam(), document, any);
            EXPECT_EQ(refusal.empty(), isRead) << refusal;
            if (!isRead) {
                EXPECT_NE(refusal.find("more than 100000 array elements"), std::string::npos) << refusal;
            }
            EXPECT_EQ(any_document::skip(GetParam(), document).empty(), isRead);
        }
    }
}

TEST_P(EveryEncoding, AWriterOutOfTurnFailsUntilItIsStartedAgain) {
    using Misuse = bool (*)(Writer&);
    const Misuse misuses[] = {
        [](Writer& writer) { return writer.finish(); },
        [](Writer& writer) { return writer.writeInt(1) || writer.writeInt(2); },
        [](Writer& writer) { return writer.writeInt(1) || writer.beginArray(); },
        [](Writer& writer) { return writer.writeInt(1) || writer.endElement(); },
        [](Writer& writer) { return writer.memberKey("k", true, -1); },
        [](Writer& writer) { return writer.beginElement(true); },
        [](Writer& writer) { return writer.endArray(); },
        [](Writer& writer) { return writer.beginObject() || writer.writeInt(1); },
        [](Writer& writer) { return writer.beginObject() || writer.beginElement(true); },
        [](Writer& writer) { return writer.beginObject() || writer.endArray(); },
        [](Writer& writer) { return writer.beginObject() || writer.finish(); },
        [](Writer& writer) { return writer.beginObject() || writer.memberKey("k", false, -1); },
        [](Writer& writer) { return writer.beginObject() || writer.memberKey("k", true, -1) || writer.endMember(); },
        [](Writer& writer) { return writer.beginObject() || writer.memberKey("k", true, -1) || writer.endObject(); },
        [](Writer& writer) {
            return writer.beginObject() || writer.memberKey("k", true, -1) || writer.memberKey("l", false, -1);
        },
        [](Writer& writer) {
            return writer.beginObject() || writer.memberKey("k", true, -1) || writer.writeNull() || writer.endElement();
        },
        [](Writer& writer) {
            return writer.beginObject() || writer.memberKey("k", true, -1) || writer.writeNull() ||
                   writer.memberKey("l", false, -1);
        },
        [](Writer& writer) {
            return writer.beginObject() || writer.memberKey("k", true, -1) || writer.writeNull() || writer.endMember() ||
                   writer.memberKey("l", true, -1);
        },
        [](Writer& writer) { return writer.beginArray() || writer.writeUuid({}); },
        [](Writer& writer) { return writer.beginArray() || writer.beginElement(true) || writer.endElement(); },
        [](Writer& writer) {
            return writer.beginArray() || writer.beginElement(true) || writer.writeBool(true) || writer.endArray();
        },
        [](Writer& writer) { return writer.writeString("\xff"); },
        [](Writer& writer) { return writer.writeUrl(kelo::url{"/\xed\xa0\x80"}); },
        [](Writer& writer) { return writer.beginObject() || writer.memberKey("eight or more \xc3", true, -1); },
        [](Writer& writer) { return writer.writeDouble(std::numeric_limits<double>::infinity()); },
        [](Writer& writer) { return writer.writeFloat(std::numeric_limits<float>::quiet_NaN()); },
    };
    EXPECT_TRUE(writer_->writeNull()) << "not started yet";
    for (const auto& misuse : misuses) {
        SCOPED_TRACE(&misuse - misuses);
        std::ErrorStorage::ack();
        util::ByteBufferWriter bytes;
        ASSERT_FALSE(writer_->start(bytes));
        EXPECT_TRUE(misuse(*writer_));
        EXPECT_EQ(std::ErrorStorage::current().code, kelo::errors::writeFailure);
        EXPECT_TRUE(writer_->endObject() && writer_->writeNull() && writer_->finish());
        util::ByteBufferWriter again;
        EXPECT_FALSE(writer_->start(again) || writer_->writeNull() || writer_->finish());
        EXPECT_TRUE(writer_->writeNull()) << "finished";
    }
    std::ErrorStorage::ack();
}

TEST(Encodings, NumbersReadAsWhatHoldsThem) {
    struct Case {
        const char* json;
        const char* msgpack;  // in hexadecimal; empty if the encoding has no such number
        const char* ixobin;
        std::optional<std::int64_t> integer;
        std::optional<double> floating;
    };
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
    for (const auto& [json, msgpack, ixobin, integer, floating] : {
             Case{"-0", "00", "00", 0, 0.0},
             Case{"9007199254740992", "cf0020000000000000", "1b0020000000000000", 1L << 53, 0x1p53},
             Case{"9007199254740993", "cf0020000000000001", "1b0020000000000001", (1L << 53) + 1, {}},
             Case{"9223372036854775807", "cf7fffffffffffffff", "1b7fffffffffffffff", largest, {}},
             Case{"9223372036854775808", "cf8000000000000000", "1b8000000000000000", {}, 0x1p63},
             Case{"9223372036854775809", "cf8000000000000001", "1b8000000000000001", {}, {}},
             Case{"18446744073709549568", "cffffffffffffff800", "1bfffffffffffff800", {}, 18446744073709549568.0},
             Case{"-9223372036854775808", "d38000000000000000", "3b7fffffffffffffff", smallest, -0x1p63},
             Case{"-9223372036854775807", "d38000000000000001", "3b7ffffffffffffffe", smallest + 1, {}},
             Case{"-9223372036854775809", "", "3b8000000000000000", {}, {}},
             Case{"-18446744073709551616", "", "3bffffffffffffffff", {}, -0x1p64},
             Case{"1.0", "ca3f800000", "f93c00", {}, 1.0},
             Case{"1e999", "cb7ff0000000000000", "f97c00", {}, {}},
             Case{"true", "c3", "f5", {}, {}},
             Case{"\"1\"", "a131", "6131", {}, {}},
         }) {
        for (const auto& [mimeType, document] :
             {std::pair{MimeTypeID::json, std::string{json}}, std::pair{MimeTypeID::msgpack, fromHex(msgpack)},
              std::pair{MimeTypeID::ixobin, fromHex(ixobin)}}) {
            if (document.empty()) continue;
            SCOPED_TRACE(std::string{kelo::mimetypes::id2typename(mimeType)} + " " + json);
            const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
            std::int64_t readInteger = 7;
            double readFloating = 7;
            ASSERT_FALSE(reader->start(util::ByteBufferReader{document}));
            EXPECT_EQ(reader->readInt(readInteger), !integer);
            EXPECT_EQ(readInteger, integer.value_or(7));
            std::ErrorStorage::ack();
            ASSERT_FALSE(reader->start(util::ByteBufferReader{document}));
            EXPECT_EQ(reader->readDouble(readFloating), !floating);
            EXPECT_EQ(readFloating, floating.value_or(7));
            std::ErrorStorage::ack();
            EXPECT_EQ(any_document::skip(mimeType, document), "");
        }
    }
}

// Makes values of any shape; the same seed gives the same values.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine_{seed} {}

    std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>{0, limit - 1}(engine_); }
    Json value(int depth) {
        switch (below(depth > 0 ? 8 : 6)) {
            case 0:
                return nullptr;
            case 1:
                return below(2) == 0;
            case 2:
                return static_cast<std::int64_t>(engine_() >> below(64)) * (below(2) == 0 ? 1 : -1);
            case 3: {
                const double any = std::bit_cast<double>(engine_());
                return std::isfinite(any) ? any : 0.5;
            }
            case 4:
                return static_cast<double>(below(2000)) / 8 - 100;
            case 5:
                return text();
            case 6: {
                Json array = Json::array();
                for (std::size_t i = below(20); i > 0; --i) array.push_back(value(depth - 1));
                return array;
            }
            default: {
                Json object = Json::object();
                for (std::size_t i = below(20); i > 0; --i) object[text()] = value(depth - 1);
                return object;
            }
        }
    }

private:
    std::string text() {
        static constexpr const char* pieces[] = {"a",    "plain text ", "\"", "\\", "\n",     "\x01",
                                                 "\x7f", "ä",           "€",  "𝄞",  "\uffff", "/"};
        std::string text;
        for (std::size_t i = below(below(8) == 0 ? 60 : 6); i > 0; --i) text += pieces[below(std::size(pieces))];
        return text;
    }

    std::mt19937_64 engine_;
};

TEST_P(EveryEncoding, AgreesWithIndependentReadersAndWriters) {
    for (std::uint64_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Random random{seed};
        const Json value = Json::array({random.value(3)});
        const std::string theirs = dumped(value);
        const std::string ours = written(value);
        expectDocument(GetParam(), theirs, value);
        expectDocument(GetParam(), ours, value);
        EXPECT_EQ(parsed(ours), value);
        if (theirs.size() < 300) {
            expectPrefixesRefused(GetParam(), theirs);
            expectPrefixesRefused(GetParam(), ours);
        }
        // A document with a changed byte is refused or is another document: it never does harm.
        for (int i = 0; i < 20; ++i) {
            std::string spoilt = i % 2 == 0 ? theirs : ours;
            spoilt[random.below(spoilt.size())] = static_cast<char>(random.below(256));
            Any any;
            const bool isRead = any_document::read(GetParam(), spoilt, any).empty();
            EXPECT_TRUE(!isRead || any_document::skip(GetParam(), spoilt).empty());
        }
        if (HasFailure()) break;
    }
}

TEST(MimeTypes, NamesAreFoundWithoutCaseAndParameters) {
    struct Case {
        const char* name;
        MimeTypeID id;
        bool structured;
    };
    for (const auto& [name, id, structured] : {
             Case{"application/json", MimeTypeID::json, true},
             Case{" Application/JSON ; charset=utf-8", MimeTypeID::json, true},
             Case{"application/vnd.msgpack;", MimeTypeID::msgpack, true},
             Case{"\tAPPLICATION/VND.IXOBIN", MimeTypeID::ixobin, true},
             Case{"plain/text", MimeTypeID::plainText, false},
             Case{"application/octet-stream", MimeTypeID::octetStream, false},
             Case{"", MimeTypeID::unknown, false},
             Case{";", MimeTypeID::unknown, false},
             Case{"application/jso", MimeTypeID::unknown, false},
             Case{"application/json5", MimeTypeID::unknown, false},
             Case{"application/ json", MimeTypeID::unknown, false},
         }) {
        EXPECT_EQ(kelo::mimetypes::typename2id(name), id) << name;
        EXPECT_EQ(kelo::mimetypes::isStructured(id), structured) << name;
        EXPECT_EQ(kelo::serializer::Factory::createSerializer(id) != nullptr, structured) << name;
        EXPECT_EQ(kelo::serializer::Factory::createDeserializer(id) != nullptr, structured) << name;
    }
    EXPECT_FALSE(std::ErrorStorage::hasError());
}

}  // namespace
