// What people type as JSON and as KEY=VALUE.

#include "typed_json.h"

#include <gtest/gtest.h>

#include <functional>

#include "assignments.h"
#include "hmx/client/resources.h"

namespace hmxctl {
namespace {

std::string reasonOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "";
}

TEST(ParseJson, PointsAtTheFault) {
    const std::string reason = reasonOf([] { (void)parseJson("{\n  \"a\": 1,\n  \"b\": x\n}", "region.json"); });
    EXPECT_EQ(reason.rfind("region.json:3:8: not JSON", 0), 0U) << reason;
}

TEST(Assignments, TakeTheTypeOfTheKey) {
    struct Case {
        const char* word;
        const char* json;  // "" for a failure
    };
    const Resource& popups = *findResource("popups");
    const std::vector<Case> cases{
        {"visible=true", R"({"visible":true})"},
        {"visible=1", ""},
        {"visible:=1", R"({"visible":1})"},
        {"priorityInlayer=7", R"({"priorityInlayer":7})"},
        {"priorityInlayer=-7", R"({"priorityInlayer":-7})"},
        {"priorityInlayer=7x", ""},
        {"priorityInlayer=", ""},
        {"priorityInlayer=4294967296", ""},
        {"name=7", R"({"name":"7"})"},
        {"name=true", R"({"name":"true"})"},
        {"name=", R"({"name":""})"},
        {"name=a=b:=c", R"({"name":"a=b:=c"})"},
        {"name:=null", R"({"name":null})"},
        {"other=7", R"({"other":"7"})"},
        {"other:={\"a\":[1]}", R"({"other":{"a":[1]}})"},
        {"other:={a}", ""},
        {"fields=name,visible", R"({"fields":["name","visible"]})"},
        {"fields=", R"({"fields":[]})"},
        {"limit=2", R"({"limit":2})"},
        {"=7", ""},
        {"visible", ""},
    };
    for (const Case& each : cases) {
        Json document;
        const std::string reason =
            reasonOf([&] { assign(document, asAssignments(std::vector<std::string>{each.word}), parametersOf(popups)); });
        EXPECT_EQ(reason.empty() ? compact(document) : "", each.json) << each.word << " " << reason;
    }
}

}  // namespace
}  // namespace hmxctl
