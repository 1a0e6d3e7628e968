#include "tracing/channel.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <thread>
#include <vector>

#include "kelo/tracing.h"
#include "support/redirect.h"
#include "support/temporary_directory.h"
#include "tracing/client_helper.h"
#include "tracing/levels.h"
#include "tracing/short_id.h"
#include "util/text.h"
#include "util/util.h"

namespace {

using support::Redirect;
using testing::EndsWith;
using testing::HasSubstr;
using tracing::Channel;

TEST(TracingTest, ThresholdsComeFromTheEnvironment) {
    struct Case {
        const char* variable;
        int threshold;
    };
    Redirect output{STDERR_FILENO};
    for (const auto& [variable, threshold] : {
             Case{"", 2},
             Case{"A_CHANNEL=0", 0},
             Case{"*=4", 4},
             Case{"*=4,A_CHANNEL=1", 1},
             Case{"A_CHANNEL=1,*=4", 4},
             Case{" A_CHANNEL = -1 ,, A=5", -1},
             Case{"A_CHANNELS=1,A_CHANNE=1,a_channel=1", 2},
             Case{"A_CHANNEL=x,A_CHANNEL=3", 3},
             Case{"A_CHANNEL,=1,A_CHANNEL=1x,A_CHANNEL=", 2},
         }) {
        setenv("KELO_TRACE", variable, 1);
        const Channel channel{"A_CHANNEL"};
        EXPECT_TRUE(channel.isEnabled(threshold)) << variable;
        EXPECT_FALSE(channel.isEnabled(threshold - 1)) << variable;
    }
    unsetenv("KELO_TRACE");
}

TEST(TracingDeathTest, MalformedEntriesAreReportedOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // runs in a process in which no channel has read the variable yet
    setenv("KELO_TRACE", "good=1,b\nad,other=1x", 1);
    EXPECT_EXIT(
        {
            const Channel first{"first"};
            const Channel second{"second"};
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "^KELO_TRACE: ignoring \"b\\\\nad\", which is not CHANNEL=LEVEL\n"
        "KELO_TRACE: ignoring \"other=1x\", which is not CHANNEL=LEVEL\n$");
    unsetenv("KELO_TRACE");
}

TEST(TracingTest, ThresholdsChangeAtRunTimeAndComeBackFromTheFile) {
    const testing_support::TemporaryDirectory directory;
    const std::string file = directory.path() + "/trace";
    std::ofstream{file} << "# for a day\nA_LEVEL = 0, *=3\nB_LEVEL=1 # louder\nNONE=1,nonsense\n";
    setenv("KELO_TRACE_FILE", file.c_str(), 1);
    setenv("KELO_TRACE", "C_LEVEL=4", 1);
    Redirect output{STDERR_FILENO};
    const Channel a{"A_LEVEL"}, b{"B_LEVEL"}, c{"C_LEVEL"}, again{"A_LEVEL"};
    const auto levels = [] {
        std::string all;
        for (const tracing::ChannelLevel& each : tracing::channelLevels()) {
            if (each.channel.ends_with("_LEVEL")) all += each.channel.substr(0, 1) + std::to_string(each.threshold);
        }
        return all;
    };
    EXPECT_EQ(levels(), "A2B2C4");
    EXPECT_TRUE(tracing::setThreshold("A_LEVEL", 1));
    EXPECT_FALSE(tracing::setThreshold("D_LEVEL", 1));
    EXPECT_EQ(again.threshold(), 1) << "two channels of one name have one threshold";
    EXPECT_EQ(Channel{"A_LEVEL"}.threshold(), 1) << "and so has one that is made later";
    EXPECT_TRUE(tracing::setThreshold("*", 5));
    EXPECT_EQ(levels(), "A5B5C5");
    tracing::reloadThresholds();
    EXPECT_EQ(levels(), "A3B1C4");
    const std::string said = output.take();
    EXPECT_THAT(said, HasSubstr("4 " + file + ": ignoring \"nonsense\", which is not CHANNEL=LEVEL\n"));
    EXPECT_THAT(said, HasSubstr("3 " + file + ": no channel is called \"NONE\"\n"));
    unsetenv("KELO_TRACE");
    setenv("KELO_TRACE_FILE", "/nowhere", 1);
    tracing::reloadThresholds();
    EXPECT_EQ(levels(), "A2B2C2");
    EXPECT_THAT(output.take(), HasSubstr("4 cannot read /nowhere: No such file or directory\n"));
    unsetenv("KELO_TRACE_FILE");
}

// Operators' filters name them.
TEST(TracingTest, ShortIdsAreMadeOfTheNameAlone) {
    for (const auto& [name, id] : {
             std::pair{"HMX_TOLU_BRIDGE_DISPLAYS", "BDP3"},
             std::pair{"HMX_TOLU_BRIDGE_DISPLAYABLES", "BDDV"},
             std::pair{"hmx_tolubridge", "HTWO"},
             std::pair{"hmxsim", "HMFD"},
         }) {
        EXPECT_STREQ(tracing::shortId(name).data(), id) << name;
    }
    for (const char* odd : {"", "x", "_", "__", "a_", "_b", "1_2", "\u00e4_\u00f6"}) {
        EXPECT_TRUE(std::regex_match(tracing::shortId(odd).data(), std::regex{"[A-Z0-9]{4}"})) << odd;
    }
    EXPECT_STREQ(tracing::shortId("hmxsim", 36).data(), "HMGD");
}

class TracingLineTest : public testing::Test {
protected:
    TracingLineTest() { channel_.setThreshold(2); }

    util::Util::Guard guard_ = util::Util::init("bench_app", true, false, false, false);
    Channel channel_{"BENCH_Startup"};
    Redirect output_{STDERR_FILENO};
};

TEST_F(TracingLineTest, OneMessageIsOneLine) {
    logCV(channel_, 1, "not emitted %s", "at all");
    logCV(channel_, 3, "name='%s' n=%i", "a\nb\x1b[31m\x7f\t\u00e4", 7);
    const std::string line = output_.take();
    EXPECT_TRUE(std::regex_match(line, std::regex{R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} bench_app BENCH_Startup 3 )"
                                                  R"(name='a\\nb\\x1b\[31m\\x7f\\t)"
                                                  "\u00e4' n=7\n"}))
        << line;
    // Characters that a terminal obeys must not reach it in any other form either.
    logC(channel_, 3, "\u0085 \u009b2J \u202e \u2066 \u2028 \u200f \x9b \xc3");
    EXPECT_THAT(output_.take(), EndsWith(" 3 \\x85 \\x9b2J \\u202e \\u2066 \\u2028 \\u200f \\x9b \\xc3\n"));
    EXPECT_EQ(util::printable(std::string_view{"a\0\u202eb\u00e4c", 9}, 100), "a\\x00\\u202eb\u00e4c");
    EXPECT_EQ(util::printable("abc\u00e4\u00e4", 6), "abc\u00e4…");
    EXPECT_EQ(kelo::tracing::getTraceClientId(), "bench_app-" + std::to_string(getpid()));
}

TEST_F(TracingLineTest, TheJournalGetsAPriorityAndWhatItDoesNotKnowItself) {
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    setenv("JOURNAL_STREAM", stream.c_str(), 1);
    channel_.setThreshold(0);
    for (int level = 0; level <= 4; ++level) logC(channel_, level, "x");
    EXPECT_EQ(output_.take(),
              "<7>BENCH_Startup 0 x\n<7>BENCH_Startup 1 x\n<6>BENCH_Startup 2 x\n<4>BENCH_Startup 3 x\n<3>BENCH_Startup 4 x\n");
    for (const std::string& other : {stream + "1", "1" + stream, std::string{"0:0"}, std::string{"x"}, std::string{}}) {
        setenv("JOURNAL_STREAM", other.c_str(), 1);
        logC(channel_, 4, "x");
        EXPECT_THAT(output_.take(), HasSubstr(" bench_app BENCH_Startup 4 x\n")) << "standard error leads elsewhere";
    }
    unsetenv("JOURNAL_STREAM");
}

TEST_F(TracingLineTest, LongLinesAreCut) {
    for (const std::string& text : {std::string(10'000, 'x'), std::string(3'000, '\n')}) {
        logC(channel_, 4, text.c_str());
        logCV(channel_, 4, "%s", text.c_str());
        const std::string lines = output_.take();
        EXPECT_GT(lines.size(), 2 * 4080U);
        EXPECT_LE(lines.size(), 2 * 4096U);
        EXPECT_THAT(lines, EndsWith("\u2026\n"));
    }
}

TEST_F(TracingLineTest, AStuckReaderLosesLinesButHoldsNobodyUp) {
    output_.fill();
    logC(channel_, 4, "lost");
    logC(channel_, 4, "lost too");
    tracing::client_helper::getClient().flush(true);
    output_.take();
    logC(channel_, 4, "heard");
    EXPECT_THAT(output_.take(), EndsWith("BENCH_Startup 4 (2 lines lost) heard\n"));
    logC(channel_, 4, "again");
    EXPECT_THAT(output_.take(), EndsWith("BENCH_Startup 4 again\n"));
    output_.fill();
    logC(channel_, 4, "lost");
    output_.take();
    tracing::client_helper::getClient().flush(false);
    EXPECT_THAT(output_.take(), HasSubstr("(1 lines lost)"));
}

TEST_F(TracingLineTest, AStuckReaderHoldsNobodyUpWhoeverWritesAsWell) {
    const std::string text(3'500, 'x');
    for (int round = 0; round < 300; ++round) {
        std::vector<std::thread> loggers;
        for (int i = 0; i < 2; ++i) {
            loggers.emplace_back([&] {
                for (int line = 0; line < 10; ++line) logC(channel_, 4, text.c_str());
            });
        }
        for (auto& logger : loggers) logger.join();
        output_.take();
    }
}

TEST_F(TracingLineTest, SwitchedOffWritesNothing) {
    const auto guard = util::Util::init("bench_app", false, false, false, false);
    logC(channel_, 4, "silence");
    EXPECT_EQ(output_.take(), "");
}

TEST_F(TracingLineTest, NoCallIsUnderWayOnceTheSinkIsReplaced) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> loggers;
    for (int i = 0; i < 2; ++i) {
        loggers.emplace_back([&] {
            while (!stop) logC(channel_, 4, "to whoever listens");
        });
    }
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> calls{0};
        auto context = std::make_unique<std::atomic<int>*>(&calls);
        tracing::setSink([](const char*, int, const char*, void* at) { ++**static_cast<std::atomic<int>**>(at); }, context.get());
        while (calls == 0) std::this_thread::yield();
        tracing::setSink(nullptr, nullptr);
        context.reset();  // a later call would read freed memory
        output_.take();
    }
    stop = true;
    for (auto& logger : loggers) logger.join();
}

TEST_F(TracingLineTest, WhatOthersCauseOftenIsHeldBackAndCounted) {
    std::vector<std::string> lines;
    tracing::setSink(
        [](const char*, int, const char* text, void* at) { static_cast<std::vector<std::string>*>(at)->push_back(text); },
        &lines);
    unsigned long asked = 0;
    while (lines.empty() || lines.back().front() != '(') {  // until the first line of the next second
        logCV(channel_, 3, "refused %lu", ++asked);
        if (lines.size() == tracing::linesPerSecond) sched_yield();
    }
    logC(channel_, 4, "another");
    tracing::setSink(nullptr, nullptr);
    const std::size_t refused = lines.size() - 1;
    EXPECT_LE(refused, 2 * tracing::linesPerSecond + 1) << "of at most three seconds that it touched";
    EXPECT_EQ(lines[refused - 1],
              "(" + std::to_string(asked - refused) + " such lines held back) refused " + std::to_string(asked));
    EXPECT_EQ(lines.back(), "another");
}

}  // namespace
