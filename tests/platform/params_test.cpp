#include <gtest/gtest.h>

#include "kelo/serializer/basic.h"
#include "kelo/tolu/parameters.h"
#include "platform/sample_records.h"
#include "support/documents.h"

namespace {

using kelo::toluglobals::ToluParams;
using support::MimeTypeID;
using util::config::Value;

std::string read(std::string_view json, ToluParams& params) {
    return support::readDocument(MimeTypeID::json, json, params);
}

TEST(ParamsTest, EveryKeyIsAValueAndTheKnownOnesAreMembersToo) {
    ToluParams params;
    params.limit = 99;  // left over from an earlier request
    ASSERT_EQ(read(R"({"limit":2147483647,"offset":0,"offsetId":"19243473-0126-5f4b-b1bf-4879152c72e5","fields":["a","b"],)"
                   R"("name":"x","deep":{"list":[1,2.5,null,{"k":true}]},"limit":1})",
                   params),
              "");
    EXPECT_EQ(params.limit, 1);
    EXPECT_EQ(params.offset, 0);
    EXPECT_EQ(params.offsetId->toString(), "19243473-0126-5f4b-b1bf-4879152c72e5");
    EXPECT_EQ(*params.fields, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(params.values.size(), 6U);
    EXPECT_EQ(*params.values.find("limit"), Value{1});
    const util::config::Array list{Value{1}, Value{2.5}, Value{}, Value{util::config::Object{{"k", Value{true}}}}};
    EXPECT_EQ(*params.values.find("deep"), (Value{util::config::Object{{"list", Value{list}}}}));

    ASSERT_EQ(read(R"({"limit":null,"offset":3,"offset":null})", params), "");
    EXPECT_TRUE(!params.limit && !params.offset && !params.offsetId && !params.fields);
}

TEST(ParamsTest, AKnownKeyThatDoesNotFitIsNamed) {
    for (const std::string_view json : {R"({"limit":0})", R"({"limit":-1})", R"({"limit":2147483648})", R"({"limit":"5"})",
                                        R"({"limit":1.0})", R"({"offset":-1})", R"({"offset":true})", R"({"offsetId":"here"})",
                                        R"({"offsetId":5})", R"({"fields":"name"})", R"({"fields":["name",1]})"}) {
        ToluParams params;
        const std::string key{json.substr(2, json.find('"', 2) - 2)};
        EXPECT_TRUE(read(json, params).starts_with(key + ": not a")) << json;
    }
}

TEST(ParamsTest, DocumentsThatAreNoMapOrBrokenFail) {
    for (const std::string_view json : {"", "[]", "null", R"({"a":})", R"({"a":1)", R"({"a":99999999999999999999})"}) {
        ToluParams params;
        EXPECT_NE(read(json, params), "") << json;
    }
}

TEST(ParamsTest, OnlyWhatCanChangeTheAnswerIsKept) {
    struct Case {
        const char* json;
        const char* ofList;
        const char* ofElement;
    };
    for (const auto& [json, ofList, ofElement] : {
             Case{R"({"nobody":{"a":[1,"b"]},"name":"n","active":false,"limit":3,"nobody":99999999999999999999})",
                  R"({"active":false,"name":"n","limit":3})", R"({"limit":3})"},
             Case{R"({"name":{"a":1},"active":null,"tags":["a"],"side":[],"priority":2.5,"layers":[1],"position":1})",
                  R"({"priority":2.5,"tags":["a"]})", "{}"},
             Case{R"({"name":"n","name":[1]})", "{}", "{}"},  // the last one takes effect
             Case{R"({"fields":["tags","nobody","tags","active"]})", R"({"fields":["active","tags"]})",
                  R"({"fields":["active","tags"]})"},
             Case{R"({"fields":["nobody"]})", R"({"fields":[]})", R"({"fields":[]})"},
         }) {
        for (const bool isList : {true, false}) {
            ToluParams params;
            kelo::tolu::RelevantParams relevant{params, &kelo::record::describe<sample::Element>(), isList};
            EXPECT_EQ(support::readDocument(MimeTypeID::json, json, relevant), "") << json;
            EXPECT_EQ(support::toJson(params), isList ? ofList : ofElement) << json;
        }
    }
}

TEST(ParamsTest, TooManyOrTooLongOnesAreRefused) {
    const auto reason = [](std::string_view json) {
        ToluParams params;
        kelo::tolu::RelevantParams relevant{params, &kelo::record::describe<sample::Element>(), true};
        return support::readDocument(MimeTypeID::json, json, relevant);
    };
    std::string many = R"({"limit":1)";
    for (int i = 1; i < 32; ++i) many += ",\"" + std::to_string(i) + "\":[]";
    EXPECT_EQ(reason(many + "}"), "");
    many += R"(,"k":0,"k":0)";
    EXPECT_EQ(reason(many + "}"), "34 parameters; the limit is 32");
    ToluParams all;
    EXPECT_EQ(read(many + "}", all), "34 parameters; the limit is 32") << "a delete's, too";
    EXPECT_EQ(reason(R"({"name":")" + std::string(2048, 'x') + R"(","nobody":")" + std::string(9999, 'x') + "\"}"), "");
    EXPECT_EQ(reason(R"({"tags":["x"],"name":")" + std::string(2040, 'x') + "\"}"),
              "parameters of " + std::to_string(2041 + sizeof(Value)) + " bytes; the limit is 2048");
}

TEST(ParamsTest, WhatIsWrittenReadsBackInEveryEncoding) {
    ToluParams params;
    params.values.set("limit", 7);  // the member takes precedence
    params.values.set("display", "Driver_Display");
    params.values.set("ratio", 0.25);
    params.values.set("list", util::config::Array{Value{}, Value{false}, Value{"x"}});
    params.limit = 5;
    params.fields = std::vector<std::string>{"name"};
    for (const auto mimeType : {MimeTypeID::json, MimeTypeID::msgpack, MimeTypeID::ixobin}) {
        std::string document;
        ToluParams back;
        ASSERT_EQ(support::writeDocument(mimeType, params, document), "");
        ASSERT_EQ(support::readDocument(mimeType, document, back), "");
        ToluParams expected = params;
        expected.values.set("limit", 5);
        expected.values.set("fields", util::config::Array{Value{"name"}});
        EXPECT_EQ(back, expected);
    }
}

}  // namespace
