#include "expression.h"

#include <gtest/gtest.h>

#include <tuple>

#include "failure.h"

namespace hmxctl {
namespace {

const Json element =
    Json::parse(R"({"name": "Phone", "visible": true, "active": false, "priorityInlayer": 7, "empty": "", "zero": 0,
    "resolution": {"width": 1920}, "layers": [{"zpos": 1}, {"zpos": 2}], "gone": null, "quote": "it's", "big": 2.5})");

TEST(Expression, HoldsOrNot) {
    const std::vector<std::pair<const char*, bool>> cases{
        {"true", true},
        {"visible", true},
        {"active", false},
        {"nothing", false},
        {"zero || empty || gone", false},
        {"name && layers", true},
        {"visible==true", true},
        {"visible == true && active == false", true},
        {"!visible", false},
        {"!active && !nothing", true},
        {"!(visible && active)", true},
        {"active || visible && active", false},
        {"(active || visible) && visible", true},
        {"visible || active && nothing", true},
        {"priorityInlayer >= 7 && priorityInlayer < 7.5", true},
        {"priorityInlayer == 7.0", true},
        {"priorityInlayer > -1", true},
        {"priorityInlayer != 7", false},
        {"7 == priorityInlayer", true},
        {"big <= 2.5", true},
        {"name == 'Phone'", true},
        {"name == \"Phone\"", true},
        {"name < 'Q' && name > 'O'", true},
        {"quote == 'it\\'s'", true},
        {"nothing == null", true},
        {"gone == null", true},
        {"nothing != null", false},
        {"nothing == false", false},
        {"nothing < 1 || nothing >= 1 || name > 1", false},
        {"name == 7", false},
        {"name != 7", true},
        {"resolution.width == 1920", true},
        {"resolution.height == null", true},
        {"name.width == null", true},
        {"layers[1].zpos == 2", true},
        {"layers[2] == null", true},
        {"layers[0].zpos == 2", false},
        {"!visible==false", true},
    };
    for (const auto& [text, holds] : cases) EXPECT_EQ(Expression::parse(text).holdsFor(element), holds) << text;
}

TEST(Expression, IsAboutSeveralElements) {
    const std::vector<Json> all{Json{{"name", "A"}, {"visible", true}, {"z", 1}},
                                Json{{"name", "B"}, {"visible", false}, {"z", 2}}, Json{{"name", "C"}, {"z", 2}}};
    const std::vector<const Json*> three{&all[0], &all[1], &all[2]};
    const std::vector<std::tuple<const char*, bool, bool>> cases{
        // of three elements, and of none
        {"any visible == true", true, false},
        {"visible == true", true, false},
        {"visible && z == 2", false, false},
        {"any visible && z == 2", false, false},
        {"any (visible) && any (z == 2)", true, false},
        {"all z > 0", true, true},
        {"all(z > 1)", false, true},
        {"none name == 'D'", true, true},
        {"!any visible", false, true},
        {"none visible || count > 2", false, true},
        {"none (visible) || count > 2", true, true},
        {"count == 3", true, false},
        {"count", true, false},
        {"count(z == 2) >= 2 && count < 4", true, false},
        {"(count == 0 || all (z > 0)) && !any (z > 2)", true, true},
        {"true", true, true},
    };
    for (const auto& [text, holds, holdsForNone] : cases) {
        EXPECT_EQ(Expression::parseForSeveral(text).holdsFor(three), holds) << text;
        EXPECT_EQ(Expression::parseForSeveral(text).holdsFor(std::vector<const Json*>{}), holdsForNone) << text;
    }
    EXPECT_EQ(Expression::parseForSeveral("any visible || z > 1 ").countsIn(three), "visible || z > 1 holds for 3 of 3 elements");
    EXPECT_EQ(Expression::parseForSeveral("any (visible) || count > 3").countsIn({}), "(visible) holds for 0 of 0 elements");
    EXPECT_EQ(Expression::parseForSeveral("count > 3").countsIn({three[0]}), "there is 1 element");
}

TEST(Expression, SaysWhereItCannotBeRead) {
    const std::vector<std::pair<const char*, const char*>> cases{
        {"", "expected a value at column 1"},
        {"visible ==", "expected a value at column 11"},
        {"visible = true", "'=' is no comparison, '==' is at column 9"},
        {"visible == true)", "unexpected ')' at column 16"},
        {"(visible", "expected ')' at column 9"},
        {"name == 'Phone", "a string without its closing quote at column 15"},
        {"a b", "unexpected 'b' at column 3"},
        {"a == b == c", "unexpected '=' at column 8"},
        {"a &&", "expected a value at column 5"},
        {"a.[0]", "expected a member's name at column 3"},
        {"a[x]", "expected an index and ']' at column 3"},
        {"a[99999999999999999999]", "expected an index and ']'"},
        {"1e999 == 1", "not a number at column 1"},
    };
    for (const auto& [text, reason] : cases) {
        try {
            (void)Expression::parse(text);
            ADD_FAILURE() << text << " was read";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::usage);
            EXPECT_NE(std::string{failure.what()}.find(reason), std::string::npos) << text << ": " << failure.what();
        }
    }
    for (const char* text : {"visible && count > 2", "any (visible) && z == 2", "count(", "any", "any (visible"}) {
        EXPECT_THROW((void)Expression::parseForSeveral(text), Failure) << text;
    }
    EXPECT_THROW((void)Expression::parse(std::string(100'000, '(')), Failure);
    EXPECT_THROW((void)Expression::parse(std::string(100'000, '!')), Failure);
}

}  // namespace
}  // namespace hmxctl
