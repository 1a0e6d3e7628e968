// Text, tables and suggestions.

#include "text.h"

#include <gtest/gtest.h>

#include "hmx/client/suggest.h"
#include "render.h"
#include "table.h"

namespace hmxctl {
namespace {

TEST(Text, TakesTheColumnsThatATerminalGivesIt) {
    const std::vector<std::pair<const char*, std::size_t>> cases{
        {"", 0},         {"abc", 3},      {"Fahrerhöhe", 10},        {"e\xCC\x81", 1}, {"表示", 4}, {"\xF0\x9F\x9A\x97", 2},
        {"\xFF\xFE", 2}, {"\xE2\x82", 2}, {"\x1b[31mred\x1b[0m", 3},
    };
    for (const auto& [text, width] : cases) EXPECT_EQ(displayWidth(text), width) << text;
}

TEST(Text, NothingReachesTheTerminalThatItWouldObey) {
    const std::vector<std::pair<std::string, const char*>> cases{
        {"plain höher", "plain höher"},
        {"\x1b]0;title\x07", "\\x1b]0;title\\x07"},
        {"a\nb\tc\rd", "a\\nb\\tc\\x0dd"},
        {std::string{"\0", 1}, "\\x00"},
        {"\xC2\x9B"
         "31m",
         "\\x9b31m"},
        {"a\xE2\x80\xAE"
         "b",
         "a\\u202eb"},
        {"\xC0\xAF\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& [text, shown] : cases) EXPECT_EQ(printable(text), shown);
}

TEST(Text, IsCutBetweenCharacters) {
    EXPECT_EQ(cutToWidth("abcdef", 6), "abcdef");
    EXPECT_EQ(cutToWidth("abcdef", 5), "abcd…");
    EXPECT_EQ(cutToWidth("表示面", 5), "表示…");
    EXPECT_EQ(cutToWidth("表示面", 4), "表…");
    EXPECT_EQ(cutToWidth("\x1b[1mabcdef\x1b[0m", 4), "\x1b[1mabc…\x1b[0m");
}

TEST(Table, AlignsByContent) {
    Table table{{{"NAME"}, {"Z", Align::right}, {"STATE"}}};
    table.addRow({{"Rück"}, {"5"}, {"yes", Style::green}});
    table.addRow({{"表示"}, {"1000"}, {""}});
    table.addRow({{"x"}});
    const std::vector<std::string> expected{"NAME     Z  STATE", "Rück     5  yes", "表示  1000  -", "x        -  -"};
    EXPECT_EQ(table.lines(false), expected);
    EXPECT_EQ(table.lines(true)[1], "Rück     5  \x1b[32myes\x1b[0m");
}

TEST(DocumentLines, FlattenWhatIsNoTable) {
    const Json document = Json::parse(R"({"application": "bridge", "limits": {"frames": 32, "sizes": {"width": 3, "height": 4}},
        "empty": [], "tags": ["a", "b"], "services": [{"path": "/a", "alive": true}, {"path": "/b", "pid": 7}],
        "deep": [{"inner": [{"x": [1]}]}]})");
    const std::vector<std::string> expected{"application    bridge",
                                            "limits.frames  32",
                                            "limits.sizes   3x4",
                                            "empty          none",
                                            "tags           a,b",
                                            "",
                                            "services",
                                            "  PATH  ALIVE  PID",
                                            "  /a    yes      -",
                                            "  /b    -        7",
                                            "",
                                            "deep[0].inner",
                                            "  X",
                                            "  1"};
    EXPECT_EQ(documentLines(document, false), expected);
    EXPECT_EQ(documentLines(Json::parse("[]"), false), std::vector<std::string>{"none"});
    EXPECT_EQ(documentLines(Json::parse("\"a\\nb\""), false), std::vector<std::string>{"a\\nb"});
}

TEST(Suggest, NamesWhatWasMeant) {
    const std::vector<std::string> verbs{"list", "get", "watch", "wait", "update", "uuid"};
    const std::vector<std::string> displays{"Driver_Display", "Co_Driver_Display", "Cluster_Display"};
    EXPECT_EQ(didYouMean("lst", verbs), "did you mean 'list'?");
    EXPECT_EQ(didYouMean("wacth", verbs), "did you mean 'watch'?");
    EXPECT_EQ(didYouMean("zzz", verbs), "");
    EXPECT_EQ(didYouMean("driver_display", displays).substr(0, 30), "did you mean 'Driver_Display' ");
    EXPECT_EQ(didYouMean("Cluster", displays), "did you mean 'Cluster_Display'?");
    EXPECT_EQ(didYouMean(std::string(100'000, 'a'), verbs), "");
}

}  // namespace
}  // namespace hmxctl
