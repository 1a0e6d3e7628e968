#include "kelo/std/error_storage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "comm/active_object.h"
#include "kelo/errors.h"
#include "kelo/func_call_event.h"
#include "kelo/std/global_error_handler.h"

namespace {

using kelo::errors::Error;

std::vector<std::string>& overwritten() {
    static std::vector<std::string> texts;
    return texts;
}

void remember(const std::ErrorEntry& entry) {
    overwritten().emplace_back(entry.text);
    std::ErrorOutput{Error, 1, "from the action"};  // must not disturb what is being reported or stored
    EXPECT_EQ(std::ErrorStorage::reason(), entry.text);
}

class ErrorStorageTest : public testing::Test {
protected:
    ErrorStorageTest() {
        overwritten().clear();
        std::ErrorStorage::ack();
    }
    ~ErrorStorageTest() override { std::ErrorStorage::ack(); }
};

TEST_F(ErrorStorageTest, OnlyAnErrorThatNobodyConsumedGoesToTheAction) {
    {
        const std::ErrorStorage storage{&remember};
        std::ErrorOutput{Error, 14, "consumed"};
        std::ErrorStorage::ack();
        std::ErrorOutput{Error, 15, "forgotten"};
        std::ErrorOutput{Error, 16, "newest"};
        EXPECT_EQ(overwritten(), std::vector<std::string>{"forgotten"});
        const auto current = std::ErrorStorage::current();
        EXPECT_EQ(current.category, &Error);
        EXPECT_EQ(current.code, 16);
        EXPECT_EQ(current.text, "newest");
    }
    EXPECT_EQ(overwritten(), (std::vector<std::string>{"forgotten", "newest"}));
    std::ErrorOutput{Error, 17, "after the storage's life"};
    EXPECT_EQ(overwritten().size(), 2U);
    std::ErrorStorage::ack();
    EXPECT_FALSE(std::ErrorStorage::hasError());
    EXPECT_EQ(std::ErrorStorage::reason(), "");
}

TEST_F(ErrorStorageTest, WhatAnEventLeavesIsNotThereForTheNextTurn) {
    const std::ErrorStorage storage{&remember};
    comm::ActiveObject worker{"by hand", comm::ActiveObject::ByHand{}};
    kelo::post(worker, [] { std::ErrorOutput{Error, 13, "left behind"}; });
    worker.runPending();
    EXPECT_FALSE(std::ErrorStorage::hasError());
    EXPECT_EQ(overwritten(), std::vector<std::string>{"left behind"});
}

TEST_F(ErrorStorageTest, LongTextsAreCutAtACharacter) {
    for (const std::string_view unit : {"a", "\u00e4", "\u20ac", "\U0001F600"}) {
        std::string text;
        while (text.size() < 1100) text += unit;
        std::ErrorOutput{Error, 11, text};
        const std::string reason = std::ErrorStorage::reason();
        EXPECT_EQ(reason.size(), 1024 / unit.size() * unit.size()) << unit;
        EXPECT_EQ(text.substr(0, reason.size()), reason) << unit;
    }
    std::ErrorOutput{Error, 11, std::string(1100, '\x80')};  // not UTF-8
    EXPECT_EQ(std::ErrorStorage::reason().size(), 1024U);
}

TEST_F(ErrorStorageTest, PathGrowsFromTheInsideOut) {
    std::ErrorStorage::prependPath("nothing stored");
    EXPECT_FALSE(std::ErrorStorage::hasError());
    std::ErrorOutput{Error, 18, "a: b"};
    std::ErrorStorage::prependPath("width");
    std::ErrorStorage::prependPath(std::size_t{2});
    std::ErrorStorage::prependPath(std::size_t{10});
    std::ErrorStorage::prependPath("layers");
    std::ErrorStorage::prependPath("regions");
    EXPECT_EQ(std::ErrorStorage::reason(), "regions.layers[10][2].width: a: b");
    // The next error's path starts again, even if its text is a piece of the last one's.
    std::ErrorOutput{Error, 18, std::ErrorStorage::current().text.substr(8, 6)};
    std::ErrorStorage::prependPath("x");
    EXPECT_EQ(std::ErrorStorage::reason(), "x: layers");
    // Neither depth nor length may push out what is wrong.
    for (int i = 0; i < 1000; ++i) std::ErrorStorage::prependPath("deeper");
    const std::string full = std::ErrorStorage::reason();
    EXPECT_GT(full.size(), 1010U);
    EXPECT_TRUE(full.starts_with("deeper.") && full.ends_with(".deeper.x: layers")) << full;
    std::ErrorStorage::prependPath("a");
    EXPECT_EQ(std::ErrorStorage::reason(), full);
    std::ErrorOutput{Error, 18, "wrong"};
    std::ErrorStorage::prependPath(std::string(2000, 'y'));
    std::ErrorStorage::prependPath(std::string(62, 'z') + "\u00e4\u00e4");
    EXPECT_EQ(std::ErrorStorage::reason(), std::string(62, 'z') + "\u00e4…." + std::string(64, 'y') + "…: wrong");
}

TEST(ErrorStorageDumpTest, OneLineWhateverTheTextQuotes) {
    testing::internal::CaptureStdout();
    std::ErrorOutput{Error, 18, "bad \"\x1b[2J\n\" \u00e4"};
    std::ErrorStorage::action_dump_to_stdout(std::ErrorStorage::current());
    std::ErrorStorage::ack();
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(
        line.starts_with("unhandled error kelo::errors::Error 18 (malformed document): bad \"\\x1b[2J\\n\" \u00e4 "
                         "[error_storage_test.cpp:"))
        << line;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
}

TEST(ErrorStatusTest, ClientsLearnWhatTheyCanMend) {
    EXPECT_EQ(kelo::errors::error2StatusCode(14), 404);
    EXPECT_EQ(kelo::errors::error2StatusCode(17), 404);
    EXPECT_EQ(kelo::errors::error2StatusCode(15), 400);
    for (const int code : {-1, 0, 5, 7, 11, 13, 16, 18, 19, 20}) EXPECT_EQ(kelo::errors::error2StatusCode(code), 500) << code;
}

TEST(GlobalErrorHandlerDeathTest, SaysWhereAndWhy) {
    EXPECT_DEATH(
        std::GlobalErrorHandler::doAbort("service_tracker", "serviceAvailable", "we have no valid tracker info received"),
        "service_tracker:serviceAvailable: we have no valid tracker info received\n");
}

}  // namespace
