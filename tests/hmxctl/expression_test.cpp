#include "expression.h"

#include <gtest/gtest.h>

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
    EXPECT_THROW((void)Expression::parse(std::string(100'000, '(')), Failure);
    EXPECT_THROW((void)Expression::parse(std::string(100'000, '!')), Failure);
}

}  // namespace
}  // namespace hmxctl
