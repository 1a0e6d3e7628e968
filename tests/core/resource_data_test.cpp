#include "core/resource_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/element.h"
#include "support/documents.h"
#include "support/recording_handler.h"

namespace {

// The calling thread's remaining allocations before one fails.
constexpr int unlimited = -1;
thread_local int allocationsLeft = unlimited;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = allocationsLeft == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc{};
    if (allocationsLeft > 0) --allocationsLeft;
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using kelo::tolu::ToluResourceData;
using support::Element;
using support::element;
using support::Heard;
using testing::ElementsAre;
using testing::IsEmpty;
using Ends = std::vector<std::string>;

std::vector<int> sizes(const Heard<Element>& heard) {
    std::vector<int> result;
    for (const Element& value : heard.values) result.push_back(value.size.value_or(-1));
    return result;
}

class ResourceData : public testing::Test {
protected:
    void put(const std::string& name, int size) { data.put(element(name)->id, element(name, size)); }
    void listen(std::size_t request, const std::string& name = "a",
                const kelo::optional<kelo::toluglobals::ToluParams>& params = {}) {
        data.addListener(key(request), element(name)->id, params, support::record(heard.at(request)));
    }
    void* key(std::size_t request) { return &heard.at(request); }

    std::array<Heard<Element>, 4> heard;  // outlives the data: handlers record their destruction
    ToluResourceData<Element> data;
};

TEST_F(ResourceData, AListenerHearsTheElementNowAndWhenItChanges) {
    put("a", 1);
    listen(0);
    put("a", 1);  // another object, but an equal one
    put("b", 5);
    put("a", 2);
    EXPECT_THAT(sizes(heard[0]), ElementsAre(1, 2));
    EXPECT_TRUE(data.erase(element("a")->id));
    EXPECT_FALSE(data.erase(element("a")->id));
    put("a", 3);
    EXPECT_THAT(sizes(heard[0]), ElementsAre(1, 2));
    EXPECT_EQ(heard[0].ends(), Ends{"404 UNKNOWN"});
    EXPECT_EQ(heard[0].destroyed, 1);
    EXPECT_EQ(data.listenerCount(), 0U);
    EXPECT_EQ(*data.find(element("a")->id)->size, 3);
    EXPECT_EQ(data.find(element("c")->id), nullptr);
}

TEST_F(ResourceData, ARequestThatEndsAtOnceIsNotRegistered) {
    put("a", 1);
    heard[0].finishOnNext = true;
    listen(0);
    listen(1, "unknown");
    data.addListener(key(2), std::UUID{}, {}, support::record(heard[2]));  // the collection is not an element
    EXPECT_EQ(data.listenerCount(), 0U);
    EXPECT_THAT(sizes(heard[0]), ElementsAre(1));
    EXPECT_THAT(heard[0].ends(), IsEmpty());
    EXPECT_EQ(heard[1].ends(), Ends{"404 UNKNOWN"});
    EXPECT_EQ(heard[2].ends(), Ends{"404 UNKNOWN"});
    EXPECT_FALSE(std::ErrorStorage::hasError());
}

TEST_F(ResourceData, RequestsGetTheMembersTheyAskFor) {
    kelo::toluglobals::ToluParams params;
    params.fields = std::vector<std::string>{"colour"};
    data.put(element("a")->id, element("a", 1, std::string{"red"}));
    listen(0, "a", params);
    data.put(element("a")->id, element("a", 2, std::string{"red"}));  // changes nothing that was asked for
    data.put(element("a")->id, element("a", 2, std::string{"blue"}));
    ASSERT_EQ(heard[0].values.size(), 2U);
    EXPECT_FALSE(heard[0].values[1].size);
    EXPECT_EQ(*heard[0].values[1].colour, "blue");
    EXPECT_EQ(*data.find(element("a")->id)->size, 2) << "the selection is the request's, not the cache's";
}

TEST_F(ResourceData, TheCollectionHearsAfterTheElement) {
    using Objects = ToluResourceData<Element>::Objects;
    std::vector<std::string> order;
    Heard<Objects> all, late;
    all.then = [&] {
        order.push_back(data.isNotifyingCollection() ? "collection" : "first");
        if (data.isNotifyingCollection() && late.values.empty()) data.addCollectionListener(&late, support::record(late));
    };
    heard[0].then = [&] { order.push_back(data.isNotifyingCollection() ? "wrong" : "element"); };
    put("a", 1);
    data.addCollectionListener(&all, support::record(all));
    listen(0);
    put("a", 2);
    EXPECT_EQ(late.values.size(), 1U) << "who comes during a notification has the objects already";
    put("b", 1);
    data.cancel(&all);
    data.cancel(&late);
    put("a", 3);
    EXPECT_THAT(order, ElementsAre("first", "element", "element", "collection", "collection", "element"));
    EXPECT_EQ(all.values.back().size(), 2U);
    EXPECT_EQ(all.destroyed, 1);
}

TEST_F(ResourceData, CancellingDropsTheHandlerWithoutAnEvent) {
    put("a", 1);
    listen(0);
    listen(1);
    data.addListener(nullptr, element("a")->id, {}, support::record(heard[2]));
    data.cancel(key(3));
    data.cancel(nullptr);
    EXPECT_EQ(data.listenerCount(), 3U);
    data.cancel(key(0));
    data.cancel(key(0));
    EXPECT_EQ(heard[0].destroyed, 1);
    listen(1, "a");  // ends the earlier request with this key
    EXPECT_EQ(heard[1].destroyed, 1);
    put("a", 2);
    EXPECT_THAT(sizes(heard[0]), ElementsAre(1));
    EXPECT_THAT(sizes(heard[1]), ElementsAre(1, 1, 2));
    EXPECT_THAT(sizes(heard[2]), ElementsAre(1, 2));
    for (const auto& request : heard) EXPECT_THAT(request.ends(), IsEmpty());
}

// What handlers may do from inside an event. Requests 0, 1 and 2 listen to "a"; 1 acts once, while size 2 is delivered.
TEST_F(ResourceData, HandlersMayCallBackDuringANotification) {
    struct Case {
        const char* name;
        std::function<void()> act;
        std::vector<std::vector<int>> sizes;  // by request, after "a" had the sizes 1, 2 and 3
    };
    const Case cases[] = {
        {"finishes", [&] { heard[1].finishOnNext = true; }, {{1, 2, 3}, {1, 2}, {1, 2, 3}, {}}},
        {"cancels itself", [&] { data.cancel(key(1)); }, {{1, 2, 3}, {1, 2}, {1, 2, 3}, {}}},
        {"cancels one before", [&] { data.cancel(key(0)); }, {{1, 2}, {1, 2, 3}, {1, 2, 3}, {}}},
        {"cancels one behind", [&] { data.cancel(key(2)); }, {{1, 2, 3}, {1, 2, 3}, {1}, {}}},
        {"adds one", [&] { listen(3); }, {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {2, 3}}},
        {"adds and cancels one",
         [&] {
             listen(3);
             data.cancel(key(3));
         },
         {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {2}}},
        {"takes its own key anew", [&] { listen(1); }, {{1, 2, 3}, {1, 2, 2, 3}, {1, 2, 3}, {}}},
        {"changes the element", [&] { put("a", 9); }, {{1, 2, 9, 3}, {1, 2, 9, 3}, {1, 9, 3}, {}}},
        {"erases the element", [&] { data.erase(element("a")->id); }, {{1, 2}, {1, 2}, {1}, {}}},
        {"ends all",
         [&] {
             for (auto& request : heard) data.cancel(&request);
         },
         {{1, 2}, {1, 2}, {1}, {}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        heard = {};
        put("a", 1);
        for (const std::size_t request : {0U, 1U, 2U}) listen(request);
        heard[1].then = [&] {
            heard[1].then = nullptr;
            const int destroyed = heard[1].destroyed;
            c.act();
            EXPECT_EQ(heard[1].destroyed, destroyed) << "destroyed below its own feet";
        };
        put("a", 2);
        put("a", 3);
        for (std::size_t request = 0; request < heard.size(); ++request) {
            EXPECT_EQ(sizes(heard[request]), c.sizes[request]) << "request " << request;
        }
        for (auto& request : heard) data.cancel(&request);
        EXPECT_EQ(data.listenerCount(), 0U);
        EXPECT_EQ(heard[1].destroyed, c.name == std::string{"takes its own key anew"} ? 2 : 1);
    }
}

TEST_F(ResourceData, AHandlerThatThrowsIsDroppedAndKeepsNothingFromTheOthers) {
    const auto fault = [] { throw std::runtime_error{"fault"}; };
    Heard<ToluResourceData<Element>::Objects> all;
    put("a", 1);
    heard[0].then = fault;
    EXPECT_THROW(listen(0), std::runtime_error);
    EXPECT_EQ(heard[0].destroyed, 1);
    EXPECT_EQ(data.listenerCount(), 0U);
    for (const std::size_t request : {1U, 2U}) listen(request);
    data.addCollectionListener(&all, support::record(all));
    heard[1].then = fault;
    EXPECT_THROW(put("a", 2), std::runtime_error);
    all.then = fault;
    EXPECT_THROW(put("a", 3), std::runtime_error);
    EXPECT_FALSE(data.isNotifyingCollection());
    put("a", 4);
    EXPECT_THAT(sizes(heard[1]), ElementsAre(1, 2));
    EXPECT_THAT(sizes(heard[2]), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(all.values.size(), 3U);
    EXPECT_EQ(heard[1].destroyed + all.destroyed, 2);
}

// A handler that cancels another one and adds one when it is destroyed, like a handler of a bridge that owns a request.
class MeddlingHandler final : public kelo::IResponseHandler<Element> {
public:
    explicit MeddlingHandler(std::function<void()> atEnd) : atEnd_{std::move(atEnd)} {}
    ~MeddlingHandler() override { atEnd_(); }
    bool onNext(const Element&) override { return false; }
    void onError(const kelo::Response&) override {}
    void onCompleted() override {}

private:
    std::function<void()> atEnd_;
};

TEST_F(ResourceData, HandlersMayCallBackWhenTheyAreDestroyed) {
    for (const bool dataGoes : {false, true}) {
        heard = {};
        int meddled = 0;
        auto cache = std::make_unique<ToluResourceData<Element>>();
        cache->put(element("a")->id, element("a", 1));
        cache->addListener(key(0), element("a")->id, {}, support::record(heard[0]));
        cache->addListener(&meddled, element("a")->id, {}, std::make_unique<MeddlingHandler>([&, data = cache.get()] {
            ++meddled;
            data->cancel(key(0));
            data->cancel(&meddled);
        }));
        dataGoes ? cache.reset() : cache->cancel(&meddled);
        EXPECT_EQ(meddled, 1);
        EXPECT_EQ(heard[0].destroyed, 1);
    }
}

TEST_F(ResourceData, AListenerIsThereWithAllThatBelongsToItOrNotAtAll) {
    put("a", 1);
    bool isThere = false;
    for (int allocations = 0; !isThere; ++allocations) {
        heard = {};
        auto handler = support::record(heard[0]);
        allocationsLeft = allocations;
        try {
            data.addListener(key(0), element("a")->id, {}, std::move(handler));
            isThere = true;
        } catch (const std::bad_alloc&) {
            allocationsLeft = unlimited;
            handler.reset();
            EXPECT_EQ(data.listenerCount(), 0U) << allocations;
            EXPECT_EQ(heard[0].destroyed, 1) << allocations;
        }
    }
    allocationsLeft = 0;
    data.cancel(key(0));
    allocationsLeft = unlimited;
    EXPECT_EQ(heard[0].destroyed, 1);
    EXPECT_EQ(data.listenerCount(), 0U);
}

}  // namespace
