// Frames as bytes: what is written matches the description of the wire format, and deviations are refused.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/raw_peer.h"
#include "wire/frame.h"

namespace {

using kelo::wire::FrameHeader;
using kelo::wire::FrameType;
using testing_support::Bytes;

TEST(Frame, ARequestIsTheseBytes) {
    kelo::Request request{"retrieve", "/displays"};
    request.setMimeType("application/json");
    util::ByteBufferWriter out;
    kelo::wire::appendRequest(out, 0x0102030405060708U, request, true);
    Bytes expected = testing_support::frame(
        2, 1, 0x0102030405060708U,
        testing_support::textMap(
            {{"$request-command", "retrieve"}, {"$request-path", "/displays"}, {"$mime-type", "application/json"}}));
    EXPECT_EQ(Bytes(out.bytes().begin(), out.bytes().end()), expected);
}

TEST(Frame, ARequestReadsBackWhole) {
    kelo::Request request{"update", "/popups/1",
                          kelo::Payload::copyOf(R"({"visible":true})", kelo::MimeType{"text/x-unheard-of"})};
    request.setServicePath("/hmx");
    request.setClientId("me-1");
    request.setAccept("application/vnd.msgpack, application/json");
    request.setAuthToken("uid=0");
    request.headers().set("x-extra", "yes");
    util::ByteBufferWriter out;
    kelo::wire::appendRequest(out, 7, request, false);
    kelo::Request read;
    ASSERT_STREQ(kelo::wire::readRequest(out.bytes().subspan(kelo::wire::headerSize), "fallback", read), nullptr);
    EXPECT_EQ(read.command(), "update");
    EXPECT_EQ(read.path(), "/popups/1");
    EXPECT_EQ(read.servicePath(), "/hmx");
    EXPECT_EQ(read.clientId(), "me-1");
    EXPECT_EQ(read.getMimeTypeHeader(), "application/vnd.msgpack, application/json");
    EXPECT_EQ(read.contentType(), "text/x-unheard-of");
    EXPECT_EQ(read.authToken(), "uid=0");
    ASSERT_NE(read.headers().find("x-extra"), nullptr);
    EXPECT_EQ(read.payload().text(), R"({"visible":true})");
    // The bytes that the payload borrows may be overwritten; a copy is not affected.
    const kelo::Payload kept = read.payload();
    std::memset(out.claim(0) - out.size(), 0, out.size());
    EXPECT_EQ(kept.text(), R"({"visible":true})");
}

TEST(Frame, AClientIdThatIsMissingAndOneThatIsEmptyAreTwoThings) {
    kelo::Request read;
    ASSERT_STREQ(kelo::wire::readRequest(testing_support::textMap({{"$request-command", "retrieve"}}), "fallback", read),
                 nullptr);
    EXPECT_EQ(read.clientId(), "fallback");
    ASSERT_STREQ(kelo::wire::readRequest(testing_support::textMap({{"$client-id", ""}}), "fallback", read), nullptr);
    EXPECT_EQ(read.clientId(), "");
    // Nothing of one request is left in the next, and a number is kept as text.
    read.setAuthToken("uid=0");
    ASSERT_STREQ(kelo::wire::readRequest(Bytes{0xa1, 0x61, 'n', 0x18, 0x2a}, "", read), nullptr);
    EXPECT_EQ(read.command() + read.path() + read.servicePath() + read.accept() + read.authToken(), "");
    EXPECT_EQ(*read.headers().find("n"), "42");
}

TEST(Frame, FieldsThatWereReadLastAreNotMistakenForOthers) {
    using testing_support::textMap;
    const auto body = [](std::string_view path, std::string_view payload, std::string_view extra = "x") {
        return textMap({{"$request-path", path}, {"$mime-type", "application/json"}, {"extra", extra}}, payload);
    };
    Bytes cut = body("/displays", "");
    cut.pop_back();
    kelo::Request kept;
    kelo::wire::LastFields last;
    for (const Bytes& bytes : {body("/displays", "1"), body("/displays", "22"), body("/displays", ""), body("/popups/1", "3"),
                               body("/displays", "4"), cut, body("/displays", "5"), body("/displays", "6", std::string(600, 'y')),
                               body("/displays", "7", std::string(600, 'z')), body("/displays", "8"), Bytes{0xa0}, Bytes{},
                               textMap({{"$request-path", "/displays"}, {"$mime-type", "text/other"}}, "9"),
                               textMap({{"$request-path", "/displays"}, {"$mime-type", "text/other"}}, "")}) {
        kelo::Request fresh;
        const char* const wrong = kelo::wire::readRequest(bytes, "me", fresh);
        ASSERT_STREQ(kelo::wire::readRequest(bytes, "me", kept, last), wrong);
        if (wrong != nullptr) continue;
        EXPECT_EQ(kept.path(), fresh.path());
        EXPECT_EQ(kept.clientId(), "me");
        EXPECT_EQ(kept.headers().entries(), fresh.headers().entries());
        EXPECT_EQ(kept.payload().text(), fresh.payload().text());
        EXPECT_EQ(kept.payload().mimeType(), fresh.payload().mimeType());
    }
}

TEST(Frame, IndefiniteMapsOfOtherLibrariesAreRead) {
    Bytes body{0xbf};
    testing_support::appendCborText(body, "$status");
    body.insert(body.end(), {0x19, 0x00, 0xc8, 0xff});
    kelo::Response response;
    ASSERT_STREQ(kelo::wire::readResponse(body, response), nullptr);
    EXPECT_EQ(response.status(), 200);
}

TEST(Frame, AnEmptyMapMayBeWrittenInEveryWay) {
    for (const Bytes& body : {Bytes{}, Bytes{0xa0}, Bytes{0xb8, 0x00}, Bytes{0xbf, 0xff}}) {
        EXPECT_STREQ(kelo::wire::readBare(body), nullptr);
    }
    for (const Bytes& body : {Bytes{0xbf}, Bytes{0xb8}, Bytes{0x80}, Bytes{0xa0, 0x00}, Bytes{0xa1, 0x61, 'a', 0x01}}) {
        EXPECT_NE(kelo::wire::readBare(body), nullptr);
    }
}

TEST(Frame, MalformedHeadersAreRefused) {
    struct Case {
        const char* what;
        Bytes bytes;
    };
    std::vector<Case> cases;
    const auto with = [](std::size_t at, std::uint8_t value) {
        Bytes bytes = testing_support::frame(2, 1, 1, {});
        bytes[at] = value;
        return bytes;
    };
    cases.push_back({"type 0", with(4, 0)});
    cases.push_back({"type 7", with(4, 7)});
    cases.push_back({"end flag on a request", with(5, 2)});
    cases.push_back({"end flag on an error", testing_support::frame(4, 2, 1, {})});
    cases.push_back({"unknown flag", with(5, 0x80)});
    cases.push_back({"reserved byte", with(7, 1)});
    cases.push_back({"request with id 0", with(8, 0)});
    cases.push_back({"hello with an id", with(4, 1)});
    for (const auto& [what, bytes] : cases) {
        FrameHeader header;
        EXPECT_NE(kelo::wire::readHeader(bytes, header), nullptr) << what;
    }
}

TEST(Frame, MalformedMapsAreRefused) {
    const Bytes good = testing_support::textMap({{"$request-command", "retrieve"}, {"$request-path", "/displays"}});
    kelo::Request request;
    ASSERT_STREQ(kelo::wire::readRequest(good, "", request), nullptr);
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_NE(kelo::wire::readRequest(std::span{good}.first(size), "", request), nullptr) << "cut to " << size;
    }
    const std::vector<std::pair<const char*, Bytes>> cases{
        {"an array", {0x80}},
        {"a key that is a number", {0xa1, 0x01, 0x01}},
        {"a value that is a map", {0xa1, 0x61, 'a', 0xa0}},
        {"a value that is a byte string", {0xa1, 0x61, 'a', 0x41, 0x00}},
        {"a tagged value", {0xa1, 0x61, 'a', 0xc0, 0x61, 'b'}},
        {"text in pieces", {0xa1, 0x61, 'a', 0x7f, 0x61, 'b', 0xff}},
        {"invalid UTF-8", {0xa1, 0x61, 'a', 0x61, 0xff}},
        {"an endless map", {0xbf, 0x61, 'a', 0x61, 'b'}},
        {"a key without a value", {0xbf, 0x61, 'a', 0xff}},
        {"more fields than bytes", {0xba, 0xff, 0xff, 0xff, 0xff}},
        {"a command that is a number",
         {0xa1, 0x70, '$', 'r', 'e', 'q', 'u', 'e', 's', 't', '-', 'c', 'o', 'm', 'm', 'a', 'n', 'd', 0x01}},
    };
    for (const auto& [what, bytes] : cases) EXPECT_NE(kelo::wire::readRequest(bytes, "", request), nullptr) << what;
    // As many fields as there may be, in a map that tells their number and in one that does not; then one more.
    for (const bool isEndless : {false, true}) {
        for (const int count : {64, 65}) {
            Bytes bytes = isEndless ? Bytes{0xbf} : Bytes{0xb8, static_cast<std::uint8_t>(count)};
            for (int i = 0; i < count; ++i) bytes.insert(bytes.end(), {0x61, 'a', 0x01});
            if (isEndless) bytes.push_back(0xff);
            EXPECT_EQ(kelo::wire::readRequest(bytes, "", request) == nullptr, count == 64) << isEndless;
        }
    }
    kelo::Response response;
    for (const std::uint8_t status : Bytes{0, 99}) {
        Bytes bytes{0xa1, 0x67, '$', 's', 't', 'a', 't', 'u', 's', 0x18, status};
        EXPECT_NE(kelo::wire::readResponse(bytes, response), nullptr) << +status;
    }
    EXPECT_NE(kelo::wire::readResponse(Bytes{0xa0}, response), nullptr) << "no status";
}

}  // namespace
