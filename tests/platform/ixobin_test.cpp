// The binary form as other CBOR writers write it, correctly or not.
#include "platform/any_document.h"

namespace any_document {
namespace {

// The examples of RFC 8949, appendix A, and similar ones.
TEST(Ixobin, EveryFormIsRead) {
    expectForms(
        MimeTypeID::ixobin,
        {
            Forms{"0", "00 | 1800 | 190000 | 1a00000000 | 1b0000000000000000 | c000 | d9ffff00"},
            Forms{"23", "17"},
            Forms{"24", "1818"},
            Forms{"1000", "1903e8"},
            Forms{"1000000", "1a000f4240"},
            Forms{"1000000000000", "1b000000e8d4a51000"},
            Forms{"9223372036854775808", "1b8000000000000000"},
            Forms{"-1", "20 | 3800 | 390000 | 3a00000000 | 3b0000000000000000"},
            Forms{"-100", "3863"},
            Forms{"-1000", "3903e7"},
            Forms{"-9223372036854775808", "3b7fffffffffffffff"},
            Forms{"-18446744073709551616", "3bffffffffffffffff"},
            Forms{"-9223372036854775808", "3b7fffffffffffffff"},
            Forms{"0.0", "f90000"},
            Forms{"-0.0", "f98000"},
            Forms{"1.0", "f93c00 | fa3f800000 | fb3ff0000000000000"},
            Forms{"65504.0", "f97bff"},
            Forms{"5.960464477539063e-8", "f90001"},
            Forms{"0.00006103515625", "f90400"},
            Forms{"1.1", "fb3ff199999999999a"},
            Forms{"-4.1", "fbc010666666666666"},
            Forms{"3.4028234663852886e38", "fa7f7fffff"},
            Forms{"1e300", "fb7e37e43c8800759c"},
            Forms{"1363896240", "c11a514b67b0"},
            Forms{"1363896240.5", "c1fb41d452d9ec200000"},
            Forms{"false", "f4"},
            Forms{"true", "f5"},
            Forms{"null", "f6 | c1f6"},
            // Can only be skipped: undefined, simple values, infinities and NaN, byte strings, large numbers.
            Forms{"null",
                  "f7 | e0 | f0 | f3 | f820 | f8ff | f97c00 | f97e00 | f9fc00 | fa7f800000 | faff800000 | fb7ff8000000000000"},
            Forms{"null",
                  "40 | 4401020304 | 5f42010243030405ff | 5fff | c249010000000000000000 | d74401020304 | d818456449455446"},
            Forms{"null", "1bffffffffffffffff | 3bfffffffffffffffe | 3b8000000000000000"},
            Forms{R"("")", "60 | 7800 | 7fff | 7f6060ff"},
            Forms{R"("IETF")", "6449455446 | 780449455446 | 7f6249456254 46ff | 7b000000000000000449455446 | c0d8206449455446"},
            Forms{R"("\"\\")", "62225c"},
            Forms{R"("ü水𐅑")", "69c3bce6b0b4f0908591 | 7f62c3bc63e6b0b460 64f0908591ff"},
            Forms{R"("http://www.example.com")", "d82076687474703a2f2f7777772e6578616d706c652e636f6d"},
            Forms{R"("19243473-0126-5f4b-b1bf-4879152c72e5")",
                  "d8255019243473 01265f4bb1bf4879152c72e5 | d8255f4319243448730126 5f4bb1bf484579152c72e5ff"},
            Forms{"[]", "80 | 9fff | 9b0000000000000000"},
            Forms{"[1,2,3]", "83010203 | 9f010203ff | 9803010203"},
            Forms{"[1,[2,3],[4,5]]", "8301820203820405 | 9f018202039f0405ffff | 83018202039f0405ff | 83019f0203ff820405"},
            Forms{"{}", "a0 | bfff | b800"},
            Forms{R"({"a":1,"b":[2,3]})", "a26161016162820203 | bf61610161629f0203ffff | b9000261610161629f0203ff"},
            Forms{R"(["a",{"b":"c"}])", "826161a161626163 | 826161bf61626163ff"},
            Forms{R"({"Fun":true,"Amt":-2})", "bf6346756ef563416d7421ff | bf7f6146627 56eff f563416d7421ff"},
        });
    expectOnlySkipped(MimeTypeID::ixobin, "a201020304 | bf0102ff | a1f600 | bf9f00ff00ff | a1410061 61");
}

// RFC 8949, appendix F, and text that is not valid.
TEST(Ixobin, WhatIsNotWellFormedIsRefused) {
    for (const auto hex : casesOf(R"(
        18 | 19 | 1a | 1b | 1901 | 1a0102 | 1b01020304050607 | 38 | 58 | 78 | 98 | 9a01ff00 | b8 | d8 | f8 | f900 | fa0000 | fb000000
        41 | 61 | 5affffffff00 | 5bffffffffffffffff010203 | 7affffffff00 | 7b7fffffffffffffff010203 | 81 | 818181818181818181 | 8200
        9bffffffffffffffff01 | 9bffffffffffffffffff | bbffffffffffffffffff | 9bffffffffffffffff01ff | a1 | a20102 | a100 | a2000000 | c0
        5f4100 | 7f6100 | 9f | 9f0102 | bf | bf01020102 | 819f | 9f8000 | 9f9f9f9f9fffffffff | 9f819f819f9fffffff
        1c | 1d | 1e | 3c | 3d | 3e | 5c | 5d | 5e | 7c | 7d | 7e | 9c | 9d | 9e | bc | bd | be | dc | dd | de | fc | fd | fe
        f800 | f801 | f814 | f818 | f81f | 5f00ff | 5f21ff | 5f6100ff | 5f80ff | 5fa0ff | 5fc000ff | 5fe0ff | 7f4100ff | 7fc06161ff
        5f5f4100ffff | 7f7f6100ffff | ff | 81ff | 8200ff | a1ff | a1ff00 | a100ff | a20000ff | 9f81ff | 9f829f819f9fffffffff | c0ff
        bf00ff | bf000000ff | bf6161ff | bf616100 6162ff | 1f | 3f | df | 0000 | 8000 | 9fffff
        61ff | 6180 | 62c080 | 63eda080 | 64f4908080 | 7f61c361a4ff | 7f62c0 80ff | a161ff01 | bf61ff01ff | 8161ff | 9f7f61ffffff)")) {
        SCOPED_TRACE(hex);
        expectRefused(MimeTypeID::ixobin, fromHex(hex));
    }
}

TEST(Ixobin, WritesOpenContainersAndTags) {
    const auto writer = kelo::serializer::Factory::createSerializer(MimeTypeID::ixobin);
    util::ByteBufferWriter bytes;
    std::UUID id;
    ASSERT_TRUE(std::UUID::parse("19243473-0126-5f4b-b1bf-4879152c72e5", id));
    ASSERT_FALSE(writer->start(bytes) || writer->beginObject() || writer->memberKey("id", true, -1) || writer->writeUuid(id) ||
                 writer->endMember() || writer->memberKey("l", false, -1) || writer->beginArray() || writer->beginElement(true) ||
                 writer->writeUrl(kelo::url{"/a"}) || writer->endElement() || writer->endArray() || writer->endMember() ||
                 writer->endObject() || writer->finish());
    const std::string expected = fromHex("bf626964d82550192434730126 5f4bb1bf4879152c72e5616c9fd820622f61ffff");
    EXPECT_EQ(std::string(bytes.bytes().begin(), bytes.bytes().end()), expected);
}

}  // namespace
}  // namespace any_document
