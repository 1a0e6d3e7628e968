// Histories and their comparison; and `diff` of files and of what is running.

#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

#include "comparison.h"
#include "hmx/recording/entry.h"
#include "scripted_services.h"
#include "support/temporary_directory.h"

namespace hmxctl_test {
namespace {

using hmx::recording::Entry;
using hmxctl::Comparison;
using hmxctl::History;
using hmxctl::Texts;

// Letters are states of one element; "-" is none.
hmxctl::Track track(const std::string& states) {
    hmxctl::Track track;
    for (const char c : states) track.push_back({{}, c == '-' ? Texts::absent : static_cast<Texts::Number>(c)});
    return track;
}

TEST(Partings, ForgiveWhatASlowReaderSkips) {
    // Two tracks, the states that stand against each other, and the states that were skipped.
    const std::vector<std::tuple<const char*, const char*, const char*, std::size_t>> cases{
        {"abc", "abc", "", 0},        {"abcd", "ad", "", 2},
        {"ad", "abcd", "", 2},        {"abd", "acd", "b/c", 0},
        {"abc", "abd", "c/d", 0},     {"abc", "ab", "c/b", 0},
        {"axbcd", "abcyd", "", 2},    {"axbyc", "aubyc", "x/u", 0},
        {"", "-a-", "", 2},           {"", "a", "-/a", 0},
        {"-a", "a", "", 1},           {"abab", "ab", "", 2},
        {"abcxe", "abcye", "x/y", 0}, {"abxcdye", "abucdve", "x/u y/v", 0},
    };
    for (const auto& [a, b, expected, skips] : cases) {
        std::string found;
        std::size_t skipped = 0;
        const auto letter = [](const char* states, const std::optional<std::size_t>& at) {
            return at && *states != '\0' ? std::string(1, states[*at]) : std::string{"-"};
        };
        for (const hmxctl::Parting& each : hmxctl::partings(track(a), track(b), false, skipped)) {
            found += (found.empty() ? "" : " ") + letter(a, each.a) + "/" + letter(b, each.b);
        }
        EXPECT_EQ(found, expected) << a << " " << b;
        EXPECT_EQ(skipped, skips) << a << " " << b;
        std::size_t ignored = 0;
        EXPECT_EQ(hmxctl::partings(track(a), track(b), true, ignored).empty(), std::string_view{a} == b) << a << " " << b;
    }
}

// A side, from lines as they stand in a recording, without what they have in common.
History historyOf(Texts& texts, const std::vector<std::string>& lines, std::vector<std::string> ignored = {}) {
    History history{texts, std::move(ignored)};
    std::size_t number = 0;
    for (const std::string& line : lines) {
        const std::string t = std::to_string(number++);
        history.take(hmx::recording::entryOf(R"({"t":)" + t +
                                             R"(,"service":"/hmx","path":"/popups","parameters":{"display":"D"},)" + line + "}"));
    }
    return history;
}

std::string stateOf(const std::string& elements) {
    return R"("event":"state","status":200,"document":{"total":1,"data":[)" + elements + "]}";
}

std::string steps(const std::string& text) {
    return R"("event":"change","status":200,"array":"data","steps":[)" + text + "]";
}

TEST(Diff, FollowsElementsThroughChanges) {
    const std::string a0 = R"({"id":"a","name":"A","visible":false})";
    const std::string a1 = R"({"id":"a","name":"A","visible":true})";
    const std::string b0 = R"({"id":"b","name":"B","n":1})";
    const std::string a1other = R"({"id":"a","visible":true,"name":"A"})";
    const std::string set = R"({"step":"set","at":0,"element":)";
    // The lines of both sides, and the members that differ.
    const std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>, const char*>> cases{
        {{stateOf(a0 + "," + b0), steps(set + a1 + "}")}, {stateOf(b0 + "," + a0), stateOf(a1 + "," + b0)}, ""},
        {{stateOf(a0), steps(set + a1 + "}")}, {stateOf(a0)}, "a.visible"},
        {{stateOf(a1)}, {stateOf(a1other)}, ""},
        {{stateOf(a0), steps(R"({"step":"insert","at":0,"element":)" + b0 + "}")}, {stateOf(b0 + "," + a0)}, ""},
        {{stateOf(a0 + "," + b0), steps(R"({"step":"erase","at":1})")}, {stateOf(a0)}, ""},
        {{stateOf(a0 + "," + b0), steps(R"({"step":"erase","at":0},{"step":"insert","at":1,"element":)" + a0 + "}")},
         {stateOf(a0 + "," + b0)},
         ""},
        {{stateOf(a0 + "," + b0)}, {stateOf(a0)}, "b"},
        {{stateOf(a0), R"("event":"missing","status":404)"}, {stateOf(a0)}, " a"},
        {{stateOf(a0), R"("event":"lost","status":503)", stateOf(a0)}, {stateOf(a0)}, ""},
        {{stateOf(a0), R"("event":"lost","status":503)"}, {stateOf(a0)}, ""},
    };
    for (const auto& [a, b, expected] : cases) {
        Texts texts;
        const Comparison comparison = hmxctl::compare(historyOf(texts, a), historyOf(texts, b), texts, false);
        std::string found;
        for (const hmxctl::Difference& each : comparison.differences) {
            found += (&each == &comparison.differences.front() ? "" : " ") + each.element;
            for (const hmxctl::MemberDifference& differing : each.members) found += "." + differing.path;
        }
        const bool isLost = a.back().find("lost") != std::string::npos;
        EXPECT_EQ(found, expected) << a.back() << " " << b.back();
        EXPECT_EQ(comparison.differences.empty(), *expected == '\0' && !isLost)
            << "what is lost at the end is no element's difference";
    }
    Texts texts;
    const Comparison ignoring =
        hmxctl::compare(historyOf(texts, {stateOf(a0)}, {"visible"}), historyOf(texts, {stateOf(a1)}, {"visible"}), texts, true);
    EXPECT_TRUE(ignoring.differences.empty());
}

TEST(Diff, ComparesFilesAndWhatIsRunning) {
    const testing_support::TemporaryDirectory directory;
    const auto write = [&](const char* name, const std::string& text) {
        const std::string file = directory / name;
        std::ofstream{file} << text;
        return file;
    };
    const std::string displays = R"("service":"/hmx","path":"/displays","event":"state","status":200,"document":)";
    const std::string head = R"({"recording":1,"wall":"2026-11-22T12:30:00+00:00"})"
                             "\n";
    const std::string narrow =
        R"({"total":1,"totalPages":1,"data":[{"id":")" + driverId + R"(","name":"Driver_Display","resolution":{"width":9}}]})";
    const std::string recording = write("a.rec", head + R"({"t":0,"n":1,)" + displays + narrow + "}\n" +
                                                     R"({"t":2000000000,"n":2,)" + displays + page({driver}) + "}\n");
    const std::string world = write("w.json", R"({"displaymanager":{"displays":[{"id":1,"name":"D","updateRate":60}]}})");
    const std::string other = write(
        "v.json",
        R"({"displaymanager":{"displays":[{"id":1,"name":"D","updateRate":30}]},"popupmanager":{"displays":{"D":[{"name":"P"}]}}})");
    ScriptedServices services;
    services.hmx().on("retrieve /displays", page({driver}));
    services.service("/hmxdisplaymanager")
        .on("retrieve /displays", R"({"infoForAllDisplays":[{"id":1,"name":"D","updateRate":60}]})");
    services.service("/hmxdisplaymanager").on("retrieve /displayables", R"({"infoForAllDisplayables":[]})");
    services.service("/hmxdisplaymanager").on("retrieve /layerConfig", "[]");
    const std::vector<std::tuple<std::string, std::string, ExitCode, std::string>> cases{
        {recording, recording, ExitCode::ok, "no differences"},
        {recording, "live", ExitCode::ok, "no differences"},
        {recording + "@1s", "live", ExitCode::differences, "displays/Driver_Display  resolution.width   9"},
        {recording + "@1s", recording, ExitCode::differences, "displays/Driver_Display"},
        {world, "live", ExitCode::ok, "no differences in 1 elements"},
        {world, other, ExitCode::differences, "hmxdisplaymanager/displays/D  updateRate  60"},
        {world, recording, ExitCode::usage, "record with --upstream"},
        {recording, directory / "none", ExitCode::usage, "there is no file"},
        {recording, write("bad", "{nothing"), ExitCode::usage, "neither a recording nor a world file"},
    };
    for (const auto& [a, b, code, text] : cases) {
        const Outcome outcome = services.run({"diff", a.c_str(), b.c_str()});
        EXPECT_EQ(outcome.code, code) << a << " " << b << outcome.out << outcome.err;
        const std::string said = outcome.out + outcome.err;
        EXPECT_NE(said.find(text), std::string::npos) << said;
    }
    const Json document = Json::parse(services.run({"diff", world.c_str(), other.c_str(), "-o", "json"}).out);
    EXPECT_EQ(document["differences"][0]["members"], Json::parse(R"([{"member":"updateRate","a":60,"b":30}])"));
    EXPECT_EQ(document["onlyB"], Json({"/hmxpopupmanager"}));
    EXPECT_EQ(services.run({"diff", world.c_str(), other.c_str(), "--ignore", "updateRate"}).code, ExitCode::ok);
}

}  // namespace
}  // namespace hmxctl_test
