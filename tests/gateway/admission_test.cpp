// Who may ask and what is asked for: headers and request lines as browsers, tools and attackers write them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "admission.h"
#include "media_types.h"
#include "page.h"
#include "target.h"

namespace hmxgateway {
namespace {

using testing::ElementsAre;
using testing::Pair;

struct Case {
    const char* name;
    Credentials asked;
    std::optional<Refusal> refusal;
};

TEST(Admission, decidesByTheHeaders) {
    const Admission admission{{.hosts = {"panel.example", "192.0.2.7"}, .origins = {"https://other.example"}}};
    const Case cases[]{
        {"curl", {.host = "127.0.0.1:8780"}, {}},
        {"a tunnel", {.host = "localhost:9000"}, {}},
        {"IPv6", {.host = "[::1]:8780"}, {}},
        {"a name of ours in capitals", {.host = "PANEL.example"}, {}},
        {"no host", {.host = ""}, Refusal::host},
        {"two hosts", {.host = "localhost", .hasOneHost = false}, Refusal::host},
        {"a rebound name", {.host = "evil.example:8780"}, Refusal::host},
        {"a name that begins like ours", {.host = "localhost.evil.example"}, Refusal::host},
        {"a name behind what looks like a port", {.host = "localhost:80@evil.example"}, Refusal::host},
        {"our own page", {.host = "localhost:8780", .origin = "http://localhost:8780"}, {}},
        {"another port's page", {.host = "localhost:8780", .origin = "http://localhost:3000"}, Refusal::origin},
        {"a rebound page", {.host = "evil.example", .origin = "http://evil.example"}, Refusal::host},
        {"a foreign page", {.host = "localhost:8780", .origin = "https://evil.example"}, Refusal::origin},
        {"a sandboxed page", {.host = "localhost:8780", .origin = "null"}, Refusal::origin},
        {"a page that is admitted", {.host = "localhost:8780", .origin = "https://other.example"}, {}},
        {"a page behind TLS that is not", {.host = "panel.example", .origin = "https://panel.example"}, Refusal::origin},
        {"a foreign page's image", {.host = "localhost", .fetchSite = "cross-site", .fetchMode = "no-cors"}, Refusal::origin},
        {"a link on a foreign page", {.host = "localhost", .fetchSite = "cross-site", .fetchMode = "navigate"}, {}},
        {"somebody else on a Unix socket", {.host = "localhost", .isForeignUser = true}, Refusal::user},
    };
    for (const Case& each : cases) EXPECT_EQ(admission.refusal(each.asked), each.refusal) << each.name;
}

TEST(Admission, demandsTheToken) {
    const Admission admission{{.token = "correct horse battery"}};
    const std::pair<const char*, bool> cases[]{
        {"", false},
        {"Bearer correct horse battery", true},
        {"bearer  correct horse battery", true},
        {"Bearer correct horse batterz", false},
        {"Bearer correct horse", false},
        {"Bearer correct horse battery2", false},
        {"Bearer ", false},
        {"Bearercorrect horse battery", false},
        {"Basic YW55Ym9keTpjb3JyZWN0IGhvcnNlIGJhdHRlcnk=", true},  // anybody:…
        {"Basic OmNvcnJlY3QgaG9yc2UgYmF0dGVyeQ==", true},          // :…
        {"Basic Y29ycmVjdCBob3JzZSBiYXR0ZXJ5", false},             // without a colon
        {"Basic !!!!", false},
        {"Digest correct horse battery", false},
    };
    for (const auto& [authorization, admitted] : cases) {
        const Credentials asked{.host = "localhost", .authorization = authorization};
        EXPECT_EQ(admission.refusal(asked), admitted ? std::nullopt : std::optional{Refusal::token}) << authorization;
    }
    EXPECT_EQ(admission.refusal({.host = "localhost"}, true), std::nullopt) << "a preflight has no token";
}

TEST(MediaTypes, chooseWhatWeighsMost) {
    const std::pair<const char*, const char*> cases[]{
        {"", "application/json"},
        {"*/*", "application/json"},
        {"text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8", "application/json"},
        {"application/vnd.msgpack", "application/vnd.msgpack"},
        {"APPLICATION/CBOR", "application/cbor"},
        {"application/json;q=0.5, application/msgpack;q=0.9", "application/msgpack"},
        {"application/*;q=0.1, application/cbor", "application/cbor"},
        {"*/*, application/json;q=0", "application/vnd.msgpack"},
        {"application/json;q=0, */*;q=0.001, text/*;q=0.002", "text/event-stream"},
        {"text/event-stream", "text/event-stream"},
        {"text/event-stream;q=0.5, application/json;charset=utf-8;q=0.4", "text/event-stream"},
        {"application/json;q=1.5, application/cbor;q=0.1", "application/cbor"},
        {"application/json ; q=0.000", nullptr},
        {"text/html", nullptr},
        {"application", nullptr},
        {"/*,*/json,;;q=,", nullptr},
    };
    for (const auto& [accept, name] : cases) {
        const MediaType* chosen = choose(accept, answerTypes());
        EXPECT_EQ(chosen == nullptr ? "none" : chosen->name, name == nullptr ? "none" : name) << accept;
    }
    EXPECT_EQ(bodyType("Application/JSON; charset=utf-8"), "application/json");
    EXPECT_EQ(bodyType("application/merge-patch+json"), "application/json");
    EXPECT_EQ(bodyType("application/cbor"), "application/vnd.ixobin");
    for (const char* type : {"", "application/x-www-form-urlencoded", "text/plain", "text/event-stream"}) {
        EXPECT_EQ(bodyType(type), "") << type;
    }
}

TEST(Target, isDecodedPartByPart) {
    const Target target = parseTarget("/hmx/popups/Driver%5FDisplay/A%2FB?fields=a%2Cb&name=x+y%2Bz&flag&=v").value();
    EXPECT_THAT(target.parts, ElementsAre("hmx", "popups", "Driver_Display", "A/B"));
    EXPECT_THAT(target.query, ElementsAre(Pair("fields", "a,b"), Pair("name", "x y+z"), Pair("flag", ""), Pair("", "v")));
    EXPECT_THAT(parseTarget("/")->parts, ElementsAre());
    EXPECT_THAT(parseTarget("/hmx/")->parts, ElementsAre("hmx", ""));
    EXPECT_THAT(parseTarget("//hmx")->parts, ElementsAre("", "hmx"));
    EXPECT_EQ(parseTarget("http://localhost:1/hmx")->authority, "localhost:1");
    for (const char* text : {"", "hmx", "*", "http://", "http://host", "https://host/", "/%", "/%4", "/%zz", "/%00", "/a%0Ab",
                             "/%FF", "/%C0%AE", "/?a=%1F"}) {
        EXPECT_FALSE(parseTarget(text)) << text;
    }
    EXPECT_EQ(encodedPart("A/B %\xC3\xA4"), "A%2FB%20%25%C3%A4");
}

TEST(Page, tagIsFoundAmongOthers) {
    const std::string tag = tagOf("content");
    EXPECT_NE(tag, tagOf("Content"));
    for (const std::string& header : {tag, "W/" + tag, "\"x\", " + tag, std::string{"*"}})
        EXPECT_TRUE(namesTag(header, tag)) << header;
    for (const std::string& header : {std::string{}, tag.substr(1), std::string{"\"x\""}})
        EXPECT_FALSE(namesTag(header, tag)) << header;
}

}  // namespace
}  // namespace hmxgateway
