#include "kelo/record.h"

#include <gtest/gtest.h>

#include "kelo/errors.h"
#include "platform/sample_records.h"
#include "support/documents.h"

namespace {

using sample::Element;
using sample::Insert;
using sample::Layer;
using sample::Point;
using support::fromJson;
using support::MimeTypeID;
using support::toJson;

constexpr const char* kFullElement =
    R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"one","uri":"/hmx/x","active":true,)"
    R"("layers":[{"id":7,"name":"cluster","alpha":0.1,"origin":{"x":-1},"status":"STATUS_ERROR"},{"id":0}],)"
    R"("position":{},"priority":3,"side":"Right_Side","tags":["a","b"]})";

// A table that forgets a member, or names one twice, is not complete.
struct Forgetful {
    kelo::optional<int> first;
    kelo::optional<bool> second;
};
[[maybe_unused]] constexpr auto recordTable(const Forgetful*) {
    return kelo::record::Table<Forgetful, kelo::record::Row<"first", &Forgetful::first>>{"Forgetful"};
}
static_assert(!kelo::record::covers<Forgetful>);

// The same for an element's table, whether the forgotten member is the last, hidden in padding, among others of its type, or
// beside the members that are counted.
struct ForgetfulMembers {
    kelo::optional<int> first;
    kelo::optional<bool> second;
    kelo::optional<bool> third;
};
struct ForgetfulElement : kelo::tolu::XObject, ForgetfulMembers {};
struct BesideMembers : ForgetfulElement {
    kelo::optional<bool> beside;
};
template <class T, class... Own>
using ElementTable = kelo::record::Table<T, kelo::record::Row<"id", &T::id>, kelo::record::Row<"name", &T::name>,
                                         kelo::record::Row<"uri", &T::uri>, Own...>;
template <class T, class... Own>
constexpr bool coversWith = kelo::record::detail::coversRows(ElementTable<T, Own...>{});
using First = kelo::record::Row<"first", &ForgetfulElement::first>;
using Second = kelo::record::Row<"second", &ForgetfulElement::second>;
using Third = kelo::record::Row<"third", &ForgetfulElement::third>;
static_assert(coversWith<ForgetfulElement, First, Second, Third>);
static_assert(!coversWith<ForgetfulElement, First, Second>);
static_assert(!coversWith<ForgetfulElement, First, Third>);
static_assert(!coversWith<ForgetfulElement>);
static_assert(!coversWith<BesideMembers, First, Second, Third>);

TEST(RecordTest, WritesInTheOrderOfTheTableAndReadsBackInEveryEncoding) {
    EXPECT_EQ(toJson(sample::fullElement()), kFullElement);
    EXPECT_EQ(toJson(Element{}), R"({"id":"00000000-0000-0000-0000-000000000000","name":"","uri":""})");
    for (const auto mimeType : {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin}) {
        std::string document;
        Element element;
        element.active = false;
        ASSERT_EQ(support::writeDocument(mimeType, sample::fullElement(), document), "");
        ASSERT_EQ(support::readDocument(mimeType, document, element), "");
        EXPECT_TRUE(kelo::record::equal(element, sample::fullElement())) << toJson(element);
    }
}

TEST(RecordTest, OrderUnknownKeysRepetitionAndNullsOnReading) {
    struct Case {
        const char* document;
        const char* readsAs;
    };
    for (const auto& [document, readsAs] : {
             Case{R"({"status":"STATUS_OK","origin":{},"alpha":2,"name":"n","id":1})",
                  R"({"id":1,"name":"n","alpha":2.0,"origin":{},"status":"STATUS_OK"})"},
             Case{R"({"":{"id":[null,{"a":"}"}]},"id":1,"x":[],"name":"n","name2":1,"status":"STATUS_INIT","":0})",
                  R"({"id":1,"name":"n","status":"STATUS_INIT"})"},
             Case{R"({"id":1,"id":2,"name":"a","origin":{"x":1},"name":"b","origin":{"y":2}})",
                  R"({"id":2,"name":"b","origin":{"y":2}})"},
             Case{R"({"name":"a","origin":{"x":1},"id":1,"name":null,"origin":null,"alpha":null,"status":null})", R"({"id":1})"},
         }) {
        EXPECT_EQ(toJson(fromJson<Layer>(document)), readsAs) << document;
    }
    const auto repeated = fromJson<Insert>(R"({"points":[{},{}],"side":"Left_Side","layer":{"id":1},"points":[{"x":1}]})");
    EXPECT_EQ(toJson(repeated.points), R"([{"x":1}])");
}

TEST(RecordTest, AbsentKeysLeaveWhatWasThereAndNullClearsIt) {
    Element element = sample::fullElement();
    ASSERT_EQ(support::readDocument(
                  MimeTypeID::json,
                  R"({"id":"00000000-0000-0000-0000-000000000000","name":"","uri":"","priority":null,"position":null,"tags":[]})",
                  element),
              "");
    EXPECT_FALSE(element.priority);
    EXPECT_EQ(element.position, nullptr);
    EXPECT_TRUE(element.tags && element.tags->empty());
    EXPECT_TRUE(element.active && *element.active);
}

TEST(RecordTest, FailuresOfReadingNameTheMember) {
    struct Case {
        const char* document;
        const char* reason;  // begins with
    };
    for (const auto& [document, reason] : {
             Case{"{}", "side: missing"},
             Case{R"({"side":"Left_Side","points":[]})", "layer: missing"},
             Case{R"({"side":"Left_Side","layer":null,"points":[]})", "layer: "},
             Case{R"({"side":null,"layer":{"id":1},"points":[]})", "side: "},
             Case{R"({"side":"Lower","layer":{"id":1},"points":[]})", R"(side: not one of "Left_Side", "Right_Side")"},
             Case{R"({"side":"Left_Side","layer":{},"points":[]})", "layer.id: missing"},
             Case{R"({"side":"Left_Side","layer":{"id":2147483648},"points":[]})", "layer.id: integer outside 32 bits at byte "},
             Case{R"({"side":"Left_Side","layer":{"id":-2147483649},"points":[]})", "layer.id: integer outside 32 bits at byte "},
             Case{R"({"side":"Left_Side","layer":{"id":1.0},"points":[]})", "layer.id: "},
             Case{R"({"side":"Left_Side","layer":{"id":1,"alpha":1e39},"points":[]})", "layer.alpha: number outside the range"},
             Case{R"({"side":"Left_Side","layer":{"id":1,"alpha":16777217},"points":[]})",
                  "layer.alpha: an integer that no float"},
             Case{R"({"side":"Left_Side","layer":{"id":1,"origin":{"y":"1"}},"points":[]})", "layer.origin.y: "},
             Case{R"({"side":"Left_Side","layer":{"id":1},"points":[{},{"x":true}]})", "points[1].x: "},
             Case{R"({"side":"Left_Side","layer":{"id":1},"points":[null]})", "points[0]: "},
             Case{R"({"side":"Left_Side","layer":{"id":1},"points":[],"next":{"offsetId":"x"}})", "next.offsetId: "},
             Case{R"({"side":"Left_Side","layer":{"id":1},"points":[)", "points: "},
         }) {
        Insert value;
        const std::string got = support::readDocument(MimeTypeID::json, document, value);
        EXPECT_TRUE(got.starts_with(reason)) << document << "\n" << got;
    }
}

TEST(RecordTest, ElementsTakeSoMuchMemoryAndNoMore) {
    for (const auto mimeType : {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin}) {
        const auto reader = kelo::serializer::Factory::createDeserializer(mimeType);
        for (const std::size_t count : {20'000, 20'000, 20'000, 20'000, 20'000, 20'000, 40'000}) {  // each begins anew
            std::string document;
            Element element;
            Element got;
            element.layers.emplace(count, std::make_shared<Layer>());
            ASSERT_EQ(support::writeDocument(mimeType, element, document), "");
            const bool isTooMuch = reader->start(util::ByteBufferReader{document}) || kelo::record::readValue(*reader, got);
            EXPECT_EQ(isTooMuch, count == 40'000);
            const std::string refusal = std::ErrorStorage::takeReason();
            if (isTooMuch) {
                EXPECT_NE(refusal.find("]: array elements that take more than 4 MiB of memory at byte "), std::string::npos);
            }
        }
    }
}

TEST(RecordTest, BlanksMakeNoDifference) {
    const auto spread = [](std::string_view comma, std::string_view colon, std::string_view around) {
        std::string text;
        for (const char c : std::string_view{kFullElement}) {
            if (c == ',') {
                text += comma;
            } else if (c == ':') {
                text += colon;
            } else if (c == '{' || c == '[') {
                text.append(1, c).append(around);
            } else if (c == '}' || c == ']') {
                text.append(around).append(1, c);
            } else {
                text += c;
            }
        }
        return text;
    };
    for (const std::string& text : {spread(", ", ": ", ""), spread(",\n  ", ":", "\n"), spread(" , ", "\t:", " "),
                                    spread(" ,", " :", ""), spread(",", ": ", "\r\n")}) {
        EXPECT_EQ(toJson(fromJson<Element>(text)), kFullElement) << text;
        const auto last = text.find_last_of(",");
        Element element;
        EXPECT_NE(support::readDocument(MimeTypeID::json, text.substr(0, last + 1) + "}", element), "") << text;
    }
}

TEST(RecordTest, IntegersAndBoolsReadAsTheyAreWritten) {
    for (const char* const number : {"0", "-1", "7", "9", "10", "99", "100", "109", "999", "1000", "9999", "10000", "-9999",
                                     "12345678", "123456789", "2147483647", "-2147483648"}) {
        const std::string document = std::string{R"({"x":)"} + number + R"(,"y":)" + number + "}";
        EXPECT_EQ(toJson(fromJson<Point>(document)), document);
    }
    EXPECT_EQ(toJson(fromJson<Point>(R"({"x":-0})")), R"({"x":0})");
    for (const char* const number : {"01", "00", "1.0", "1e1", "12345678.0", "1_", "12345678a", "+1", "-", "tru", "\"1\"", ""}) {
        Point point;
        const std::string member = std::string{R"({"x":)"} + number;
        EXPECT_NE(support::readDocument(MimeTypeID::json, member + "}", point), "") << member;
        EXPECT_NE(support::readDocument(MimeTypeID::json, member + R"(,"y":12345678})", point), "") << member;
        EXPECT_NE(support::readDocument(MimeTypeID::json, member, point), "") << member;
    }
    constexpr std::string_view whole = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"","uri":"","active":)";
    for (const char* const value : {"true", "false"}) {
        const std::string document = std::string{whole} + value;
        EXPECT_EQ(toJson(fromJson<Element>(document + "}")), document + "}");
        for (const std::string& wrong : {document + "e}", document, std::string{whole} + "fals}", std::string{whole} + "tru}"}) {
            Element element;
            EXPECT_NE(support::readDocument(MimeTypeID::json, wrong, element), "") << wrong;
        }
    }
}

TEST(RecordTest, WhatCannotBeWrittenFailsInEveryEncoding) {
    struct Case {
        const char* what;
        void (*spoil)(Insert&);
        int code;
        const char* reason;
    };
    for (const auto& [what, spoil, code, reason] : {
             Case{"required pointer", [](Insert& value) { value.layer = nullptr; }, 5, "std::shared_ptr"},
             Case{"engaged but null", [](Insert& value) { value.layer->origin = std::shared_ptr<Point>{}; }, 5,
                  "std::shared_ptr"},
             Case{"enumeration", [](Insert& value) { value.side = static_cast<sample::Side>(2); }, 19,
                  "2 is no value of the enumeration"},
         }) {
        for (const auto mimeType : {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin}) {
            Insert value{.side = sample::Side::left, .layer = std::make_shared<Layer>(), .points = {}, .next = {}};
            std::string document;
            ASSERT_EQ(support::writeDocument(mimeType, value, document), "") << what;
            spoil(value);
            util::ByteBufferWriter bytes;
            const auto writer = kelo::serializer::Factory::createSerializer(mimeType);
            EXPECT_TRUE(writer->start(bytes) || kelo::record::writeValue(*writer, value)) << what;
            EXPECT_EQ(std::ErrorStorage::current().code, code) << what;
            EXPECT_EQ(std::ErrorStorage::takeReason(), reason) << what;
        }
    }
    std::string document;
    EXPECT_EQ(
        support::writeDocument(MimeTypeID::json, std::vector{std::make_shared<Point>(), std::shared_ptr<Point>{}}, document),
        "std::shared_ptr");
}

TEST(RecordTest, EqualityLooksBehindPointersAndTellsAbsentFromPresent) {
    struct Case {
        const char* what;
        void (*change)(Element&);
    };
    for (const auto& [what, change] : {
             Case{"required member", [](Element& e) { e.name = "two"; }},
             Case{"absent", [](Element& e) { e.priority = kelo::nullopt; }},
             Case{"null pointer", [](Element& e) { e.position = nullptr; }},
             Case{"behind the pointer", [](Element& e) { e.position->y = 1; }},
             Case{"behind the pointer in an array's element", [](Element& e) { (*e.layers->front()->origin)->x = 2; }},
             Case{"fewer elements", [](Element& e) { e.layers->pop_back(); }},
         }) {
        const Element original = sample::fullElement();
        Element changed = kelo::record::deepCopy(original);
        EXPECT_TRUE(kelo::record::equal(original, changed)) << what;
        change(changed);  // must not affect the original
        EXPECT_FALSE(kelo::record::equal(original, changed)) << what;
        EXPECT_EQ(toJson(original), kFullElement) << what;
    }
}

TEST(RecordTest, CopyingPropertiesMergesWhatIsPresent) {
    Element target = sample::fullElement();
    Element update;
    update.priority = 9;
    update.tags = std::vector<std::string>{};
    kelo::record::copyProperties(target, update);
    EXPECT_EQ(target.priority, 9);
    EXPECT_TRUE(target.tags->empty());
    EXPECT_EQ(target.active, true);
    EXPECT_NE(target.position, nullptr);
}

TEST(RecordTest, DescriptionTellsWhatTheTableTells) {
    std::string text;
    const auto describe = [&](const kelo::record::Description& description, const auto& self, int depth) -> void {
        for (const auto& member : description.members) {
            text.append(static_cast<std::size_t>(depth), ' ').append(member.key).append(" ");
            text.append(kelo::record::typeText(member)).append(member.isRequired ? "!" : "");
            for (const auto value : member.enumValues) text.append(" ").append(value);
            text.append("\n");
            if (member.nested != nullptr) self(member.nested(), self, depth + 1);
        }
    };
    describe(kelo::record::describe<Insert>(), describe, 0);
    EXPECT_EQ(kelo::record::describe<Insert>().name, "Insert");
    EXPECT_EQ(text, R"(side enum! Left_Side Right_Side
layer Layer!
 id int!
 name string
 alpha float
 origin Point
  x int
  y int
 status enum STATUS_INIT STATUS_OK STATUS_ERROR
points array of Point!
 x int
 y int
next RequestHint
 limit int
 offset int
 offsetId uuid
)");
}

}  // namespace
