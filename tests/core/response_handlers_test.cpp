#include "core/response_handlers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelo/errors.h"
#include "kelo/std/error_storage.h"
#include "support/documents.h"
#include "support/recording_handler.h"

namespace {

using kelo::Response;
using kelo::responsehandlers::ComparingPredicate;
using kelo::responsehandlers::FilteringResponseHandler;
using kelo::responsehandlers::MappingResponseHandler;
using support::Heard;
using testing::ElementsAre;
using testing::IsEmpty;
using Ends = std::vector<std::string>;

constexpr std::ErrorCategory foreignErrors{"test::Error", [](int) { return "foreign"; }};

// A filter around a mapping, as the cache and the clients build their chains.
std::unique_ptr<kelo::IResponseHandler<int>> chain(Heard<std::string>& heard) {
    auto mapping = std::make_unique<MappingResponseHandler<int, std::string>>(
        support::record(heard), [](const int& value) -> kelo::optional<std::string> { return std::to_string(value); });
    return std::make_unique<FilteringResponseHandler<int>>(std::move(mapping), [](const int& value) { return value >= 0; });
}

TEST(ResponseHandlers, ARequestEndsOnceAndHearsNothingAfterwards) {
    struct Case {
        const char* events;  // n: onNext, e: onError, c: onCompleted
        std::size_t values;
        Ends ends;
        const char* stored;  // what the last event left in the error store
    };
    const Case cases[] = {
        {"nnc", 2, {"completed"}, ""},
        {"ce", 0, {"completed"}, ""},
        {"cc", 0, {"completed"}, ""},
        {"ec", 0, {"503 gone"}, ""},
        {"ee", 0, {"503 gone"}, ""},
        {"nen", 1, {"503 gone"}, "Request already terminated"},
        {"cn", 0, {"completed"}, "Request already terminated"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.events);
        Heard<std::string> heard;
        const auto handler = chain(heard);
        bool ended = false;
        for (const char* event = c.events; *event != '\0'; ++event) {
            if (*event == 'n') {
                EXPECT_EQ(handler->onNext(7), ended);
            } else {
                *event == 'e' ? handler->onError(Response::createErrorResponse(503, "gone")) : handler->onCompleted();
                ended = true;
            }
        }
        EXPECT_EQ(heard.values, std::vector<std::string>(c.values, "7"));
        EXPECT_EQ(heard.ends(), c.ends);
        EXPECT_EQ(std::ErrorStorage::current().code, *c.stored == '\0' ? 0 : 7);
        EXPECT_EQ(std::ErrorStorage::takeReason(), c.stored);
    }
}

TEST(ResponseHandlers, AMappingWithoutResultEndsTheRequest) {
    struct Case {
        const std::ErrorCategory* category;  // of the error that the mapping leaves; null: none
        int code;
        const char* end;
    };
    const Case cases[] = {
        {&kelo::errors::Error, kelo::errors::unknownElement, "404 why"},
        {&kelo::errors::Error, kelo::errors::badRequest, "400 why"},
        {&kelo::errors::Error, kelo::errors::cannotDeserialize, "500 why"},
        {&foreignErrors, kelo::errors::unknownElement, "500 why"},
        {nullptr, 0, "completed"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.end);
        Heard<int> heard;
        const auto handler = kelo::responsehandlers::mapped<int>(support::record(heard), [&c](const int&) -> kelo::optional<int> {
            if (c.category != nullptr) std::ErrorOutput{*c.category, c.code, "why"};
            return {};
        });
        EXPECT_TRUE(handler->onNext(1));
        handler->onCompleted();
        EXPECT_THAT(heard.values, IsEmpty());
        EXPECT_EQ(heard.ends(), Ends{c.end});
        EXPECT_FALSE(std::ErrorStorage::hasError()) << "the next request must not find it";
    }
}

TEST(ResponseHandlers, WhatTheConsumerWantsPassesOutward) {
    Heard<std::string> heard;
    const auto handler = chain(heard);
    EXPECT_FALSE(handler->isOneShot());
    EXPECT_FALSE(handler->onNext(1));
    heard.finishOnNext = heard.oneShot = true;
    EXPECT_TRUE(handler->isOneShot());
    EXPECT_FALSE(handler->onNext(-1)) << "a value that is held back finishes nothing";
    EXPECT_TRUE(handler->onNext(2));
    EXPECT_THAT(heard.values, ElementsAre("1", "2"));
}

TEST(ResponseHandlers, OnlyChangesPassTheComparison) {
    struct Case {
        const char* name;
        ComparingPredicate<int> predicate;
        std::vector<int> passed;
    };
    const Case cases[] = {
        {"own equality", ComparingPredicate<int>{}, {3, 13, 4, 3}},
        {"same last digit", ComparingPredicate<int>{*[](const int& a, const int& b) { return a % 10 == b % 10; }}, {3, 4, 3}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Heard<int> heard;
        FilteringResponseHandler<int> handler{support::record(heard), c.predicate};
        for (const int value : {3, 3, 13, 4, 4, 3}) handler.onNext(value);
        EXPECT_EQ(heard.values, c.passed);
    }
}

TEST(ResponseHandlers, EachRefusesAValueAfterTheEnd) {
    Heard<int> heard;
    std::vector<std::unique_ptr<kelo::IResponseHandler<int>>> handlers;
    handlers.push_back(std::make_unique<FilteringResponseHandler<int>>(support::record(heard), [](const int&) { return true; }));
    handlers.push_back(
        kelo::responsehandlers::mapped<int>(support::record(heard), [](const int& value) { return kelo::optional<int>{value}; }));
    for (const auto& handler : handlers) {
        handler->onCompleted();
        EXPECT_TRUE(handler->onNext(1));
        EXPECT_EQ(std::ErrorStorage::takeReason(), "Request already terminated");
    }
    EXPECT_THAT(heard.values, IsEmpty());
}

// A predicate without a comparison must not compile.
struct NoEquality {};
static_assert(!std::is_default_constructible_v<ComparingPredicate<NoEquality>>);
static_assert(!std::is_constructible_v<ComparingPredicate<NoEquality>, std::nullptr_t>);
static_assert(std::is_constructible_v<ComparingPredicate<NoEquality>, bool (&)(const NoEquality&, const NoEquality&)>);

}  // namespace
