// JSON as others write it, correctly or not.
#include "platform/any_document.h"
#include "serializer/json_text.h"

namespace any_document {
namespace {

TEST(Json, WhatIsValidIsReadAsAnotherParserReadsIt) {
    std::vector<std::string> texts{" true\n",
                                   "\tfalse\r",
                                   "{\n}",
                                   "\t[\r\n1 , 2\t]",
                                   "\"\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\"",
                                   "\"eight or more \xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf\""};
    for (const auto text : casesOf(R"(
        null | 0 | -0 | -0.0 | 1e5 | 1E+2 | 12.5e-3 | 0e1 | 0e99999999999999999999 | 0.0000000001 | 123.456e78 | 1e-999 | -2e-324
        9223372036854775807 | -9223372036854775808 | 18446744073709551616 | 0.000000000000000000000000000000000000000001e340
        [] | {} | [ ] | { "a" : 1 , "b" : [ { } ] } | {"a":1,"a":[2],"b":3,"a":4} | {"":""} | {"a\u0062\n":1}
        "\u0000\"\\\/\b\f\n\r\t\u001F\u00e4\u20AC" | "\ud834\udd1eg\uDBFF\uDFFF" | "\uFFFF\u2028\ufdd0"
        "longer than a word, \\ with \u0065scapes \"here\" and there and a plain rest")")) {
        texts.emplace_back(text);
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        expectDocument(MimeTypeID::json, text, nlohmann::json::parse(text));
        const std::string inArray = "[" + text + ",{\"k\":" + text + "}]";
        expectDocument(MimeTypeID::json, inArray, nlohmann::json::parse(inArray));
        expectPrefixesRefused(MimeTypeID::json, inArray);
    }
    // Valid, but none of our number types can hold the value.
    for (const auto text : casesOf("1e999 | -1e999 | 1e99999999999999999999 | 9007199254740993000000 | -9223372036854775809")) {
        expectDocument(MimeTypeID::json, text, nullptr);
    }
}

TEST(Json, WhatIsNotValidIsRefused) {
    std::vector<std::string> texts{
        std::string(1, '\0'), "1\v", "\f[]", "[1\n", "\"a\nb\"", "\"\t\"", "\"long enough for a word\x1f\""};
    for (const auto text : casesOf(R"~(
        [ | ] | { | } | [1,] | [,1] | [,] | [1,,2] | [1 2] | [1:2] | [} | {] | [1} | [1]] | [[1] | {}} | {"a":1] | {"a":[1}
        {"a"} | {"a":} | {"a" 1} | {"a",1} | {"a"::1} | {"a":1,} | {,"a":1} | {"a":1,,"b":2} | {"a":1 "b":2} | {"a":1:2}
        {a:1} | {1:1} | {'a':1} | {null:1} | {[]:1} | {"a":1 | 1 2 | 1,, | ,1 | []# | [/**/] | []// | {}{}
        nul | nulll | Null | tru | truefalse | fals | falsee | TRUE | undefined | NaN | Infinity | -Infinity | n | t | f
        +1 | 01 | -01 | 00 | - | -- | --1 | - 1 | 1. | .5 | -.5 | 1.e1 | 1e | 1e+ | 1e 1 | 1ee1 | 1e1.5 | 0x1 | 1_0 | 1.2.3 | 1a | 1+2
        " | "a | "\" | "\x41" | "\a" | "\U0041" | "\u" | "\u12" | "\u123g" | "\u+123" | "\u 123" | "\u-001" | 'a' | a
        "\ud800" | "\udc00" | "\ud800\u0041" | "\ud800\ud800" | "\ud800x" | "\ud800\n" | "\ud800\" | "\ud800\u" | "\udc00\ud800"
        "\u00e)")~")) {
        texts.emplace_back(text);
    }
    // In strings: lone and missing continuation bytes, overlong forms, surrogates, values above the last code point, and
    // characters that an escape interrupts or seems to complete.
    for (const auto hex : casesOf(R"(
        80 | bf | c2 | c220 | e282 | e28220 | f09f98 | c080 | c1bf | e09fbf | f08fbfbf | eda080 | edbfbf | f4908080 | f5808080 | fe | ff
        f888808080 | c35c7530306134 | 5c7530306534a4 | e25c6e82ac | 61626364656667686970eda0806162636465666768 | 00 | 6100)")) {
        texts.push_back("\"" + fromHex(hex) + "\"");
        texts.push_back("{\"" + fromHex(hex) + "\":1}");
    }
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        expectRefused(MimeTypeID::json, text);
        expectRefused(MimeTypeID::json, "[" + text + "]");
    }
    // No byte order marks, no other encodings, no blanks other than the four.
    for (const auto hex :
         casesOf("efbbbf5b5d | fffe5b005d00 | 5b005d00 | 005b005d | 5b5d00 | c2a05b5d | 5be281a05d | efbc91 | 20")) {
        SCOPED_TRACE(hex);
        expectRefused(MimeTypeID::json, fromHex(hex));
    }
}

TEST(Json, ReasonsSayWhatWasExpectedAndWhatWasFound) {
    struct Case {
        const char* text;
        const char* reason;
    };
    for (const auto& [text, reason] : {
             Case{"", "expected a value, found the end of the document at byte 0"},
             Case{"[1 \"\"]", "expected ',' or ']', found a string at byte 3"},
             Case{"{\"a\":1", "expected ',' or '}', found the end of the document at byte 6"},
             Case{"{\"a\" tru", "expected ':', found 't' at byte 5"},
             Case{"{\"a\": 1, 2:3}", "expected a member's key, found an integer at byte 9"},
             Case{"[1] x", "expected the end of the document, found 'x' at byte 4"},
             Case{"[1,\x01]", "expected a value, found byte 0x01 at byte 3"},
             Case{"[tru", "expected true or false, found the end of the document at byte 4"},
             Case{"[fals]", "expected true or false, found 'f' at byte 1"},
             Case{"[1,]", "a comma with nothing behind it at byte 3"},
         }) {
        EXPECT_EQ(skip(MimeTypeID::json, text), reason);
    }
    int number = 0;
    EXPECT_EQ(support::readDocument(MimeTypeID::json, " 1.5", number),
              "expected an integer, found a number with a fraction or exponent at byte 1");
}

// One special character among plain ones, at every position of texts of every length that matters to blocks.
template <class Block>
void expectBlocksLookAtEachCharacter() {
    using namespace kelo::serializer;
    for (std::size_t size = 0; size <= 50; ++size) {
        for (std::size_t at = 0; at <= size; ++at) {
            for (const char odd : {'"', '\\', '\0', '\x1f', ' ', '!', '\x7f', '\x80', '\xff'}) {
                std::string text(size, 'a');
                if (at < size) text[at] = odd;
                const bool isSpecial = at < size && (odd == '"' || odd == '\\' || static_cast<unsigned char>(odd) < 0x20);
                const bool isBeyondAscii = at < size && static_cast<unsigned char>(odd) >= 0x80;
                bool ascii = true;
                const char* const end = text.data() + size;
                const char* const found = findJsonSpecial<Block>(text.data(), end, ascii);
                ASSERT_EQ(found, isSpecial ? text.data() + at : end) << size << " " << at;
                ASSERT_EQ(ascii, !isBeyondAscii) << size << " " << at;
                std::string copy(size, '?');
                ASSERT_EQ(copyJsonPlain<Block>(text, copy.data()), !isSpecial && !isBeyondAscii) << size << " " << at;
                ASSERT_TRUE(isSpecial || isBeyondAscii || copy == text) << size << " " << at;
            }
        }
    }
    // What comes after the special character must not matter.
    bool ascii = true;
    const std::string_view text = "plain\"and then \xc3\xa4 and more";
    EXPECT_EQ(findJsonSpecial<Block>(text.data(), text.data() + text.size(), ascii), text.data() + 5);
    EXPECT_TRUE(ascii);
}

TEST(Json, BlocksOfTextAreLookedAtCharacterByCharacter) {
    expectBlocksLookAtEachCharacter<kelo::serializer::JsonWord>();
    expectBlocksLookAtEachCharacter<kelo::serializer::JsonBlock>();
}

TEST(Json, WritesNoMoreThanIsNeeded) {
    const nlohmann::json value{{"a", {1, -2.5, 1e22, 0.1, true, nullptr}},
                               {"b", {{"\"\\/\b\f\n\r\t\x01\x1f\x7f", ""}, {"ä", "plain, and longer than a word"}}}};
    EXPECT_EQ(support::toJson(support::Any{value}), R"({"a":[1,-2.5,1e+22,0.1,true,null],"b":{"\"\\/\b\f\n\r\t\u0001\u001f)"
                                                    "\x7f"
                                                    R"(":"","ä":"plain, and longer than a word"}})");
    // Whole numbers that a reader must not take for integers.
    const nlohmann::json whole{12345678901234567168.0, -9007199254740992.0, 2.0, -0.0};
    EXPECT_EQ(support::toJson(support::Any{whole}), "[12345678901234567168.0,-9007199254740992.0,2.0,-0.0]");
    EXPECT_EQ(support::toJson(0.1F), "0.1");
}

}  // namespace
}  // namespace any_document
