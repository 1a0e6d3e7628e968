// msgpack as others write it, correctly or not.
#include "platform/any_document.h"

namespace any_document {
namespace {

TEST(Msgpack, EveryFormIsRead) {
    expectForms(
        MimeTypeID::msgpack,
        {
            Forms{"null", "c0"},
            Forms{"false", "c2"},
            Forms{"true", "c3"},
            Forms{"0", "00 | cc00 | cd0000 | ce00000000 | cf0000000000000000 | d000 | d10000 | d200000000 | d30000000000000000"},
            Forms{"127", "7f | cc7f | d07f | d1007f"},
            Forms{"-32", "e0 | d0e0 | d1ffe0 | d2ffffffe0 | d3ffffffffffffffe0"},
            Forms{"128", "cc80 | cd0080 | d10080"},
            Forms{"65535", "cdffff | ce0000ffff | d20000ffff"},
            Forms{"4294967295", "ceffffffff | cf00000000ffffffff | d300000000ffffffff"},
            Forms{"9223372036854775807", "cf7fffffffffffffff | d37fffffffffffffff"},
            Forms{"9223372036854775808", "cf8000000000000000"},
            Forms{"-9223372036854775808", "d38000000000000000"},
            Forms{"-0.5", "cabf000000 | cbbfe0000000000000"},
            Forms{"3.4028234663852886e38", "ca7f7fffff"},
            Forms{R"("")", "a0 | d900 | da0000 | db00000000"},
            Forms{R"("ä€")", "a5c3a4e282ac | d905c3a4e282ac | da0005c3a4e282ac | db00000005c3a4e282ac"},
            Forms{"[]", "90 | dc0000 | dd00000000"},
            Forms{"[1,[2]]", "92019102 | dc000201dc000102 | dd0000000201dd0000000102"},
            Forms{"{}", "80 | de0000 | df00000000"},
            Forms{R"({"a":{"":1},"b":2})", "82a16181a001a16202 | de0002a161de0001a001a16202 | df00000002d9016181a001da00016202"},
            // Can only be skipped: byte strings, extensions, a timestamp, numbers that none of our types can hold.
            Forms{"null", "c400 | c40100 | c5000100 | c600000001ff | c700ff | c8000105ff | c90000000100ff | d4ff00 | d5ff0000"},
            Forms{"null", "d6ff00000000 | d7ff0000000000000000 | d80500000000000000000000000000000000 | cfffffffffffffffff"},
            Forms{"null", "ca7f800000 | caffc00000 | cb7ff8000000000000 | cbfff0000000000000"},
        });
}

TEST(Msgpack, WhatIsNotValidIsRefused) {
    for (const auto hex : casesOf(R"(
        c1 | 91c1 | 81a161c1 | 81c101 | 9201 | 82a16101 | 81a161 | ddffffffff | dfffffffff | dbffffffff61 | c6ffffffff00 | c9ffffffff0000
        dd8000000001 | dcffff0102 | a2ff61 | a180 | d901ff | da0002c080 | db00000003eda080 | 81a1ff01 | 91a1fe | c0c0 | 9000)")) {
        SCOPED_TRACE(hex);
        expectRefused(MimeTypeID::msgpack, fromHex(hex));
    }
    expectOnlySkipped(MimeTypeID::msgpack, "810102 | 81c001 | 8180c0 | 8191a16101 | 81c4016101");
}

TEST(Msgpack, WritesTheShortestForms) {
    struct Case {
        std::int64_t value;
        const char* hex;
    };
    for (const auto& [value, hex] :
         {Case{0, "00"}, Case{127, "7f"}, Case{128, "cc80"}, Case{255, "ccff"}, Case{256, "cd0100"}, Case{65536, "ce00010000"},
          Case{4294967296, "cf0000000100000000"}, Case{-1, "ff"}, Case{-32, "e0"}, Case{-33, "d0df"}, Case{-128, "d080"},
          Case{-129, "d1ff7f"}, Case{-32769, "d2ffff7fff"}, Case{-2147483649, "d3ffffffff7fffffff"}}) {
        std::string document;
        EXPECT_EQ(support::writeDocument(MimeTypeID::msgpack, support::Any{value}, document), "");
        EXPECT_EQ(document, fromHex(hex)) << value;
    }
}

}  // namespace
}  // namespace any_document
