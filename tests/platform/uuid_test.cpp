#include "kelo/uuid.h"

#include <gtest/gtest.h>

namespace {

// The expected ids are from Python's uuid.uuid5(uuid.NAMESPACE_URL, name).
TEST(UuidTest, NamesGiveTheSameIdsAsEverybodyElses) {
    struct Case {
        const char* name;
        const char* id;
    };
    for (const auto& [name, id] :
         {Case{"hmx/displays/Driver_Display", "19243473-0126-5f4b-b1bf-4879152c72e5"},
          Case{"", "1b4db7eb-4057-5ddf-91e0-36dec72071f5"}, Case{"Bücher", "553cccc1-46d8-5a24-8533-b1cd90038a5d"}}) {
        std::UUID out;
        kelo::uuid::createFromName(name, out);
        EXPECT_EQ(out.toString(), id) << name;
    }
}

TEST(UuidTest, TextIsReadStrictlyAndInEitherCase) {
    std::UUID id;
    ASSERT_TRUE(std::UUID::parse("0123aBcD-4567-89ab-CDEF-fedcba987654", id));
    EXPECT_EQ(id.toString(), "0123abcd-4567-89ab-cdef-fedcba987654");
    const std::UUID before = id;
    for (const std::string_view text :
         {"", "0123abcd-4567-89ab-cdef-fedcba98765", "0123abcd-4567-89ab-cdef-fedcba9876543", "0123abcd456789abcdeffedcba987654",
          "0123abcd04567-89ab-cdef-fedcba987654", "0123abcg-4567-89ab-cdef-fedcba987654", "0123abcd-4567-89ab-cdef-fedcba98765/",
          "0123abcd-4567-89ab-cdef-fedcba98765\xff", "{123abcd-4567-89ab-cdef-fedcba98765}"}) {
        EXPECT_FALSE(std::UUID::parse(text, id)) << text;
        EXPECT_EQ(id, before) << text;
    }
}

}  // namespace
