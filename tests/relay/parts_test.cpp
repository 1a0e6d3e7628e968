// How the documents of /hmx become samples: cut into elements, put in order.
#include <gtest/gtest.h>

#include <random>

#include "list_text.h"
#include "order.h"

namespace hmxrelay {
namespace {

TEST(ListText, FindsElementsAsTheyWereSent) {
    struct Case {
        std::string_view document;
        std::optional<std::vector<std::string_view>> texts;
    };
    const std::vector<Case> cases{
        {R"({"data":[],"total":0})", {{}}},
        {R"( { "total" : 2 , "data" : [ {"a":"]}\"\\"} , {"id":1,"x":[{},[]]} ] } )",
         {{R"({"a":"]}\"\\"})", R"({"id":1,"x":[{},[]]})"}}},
        {R"({"id":"x","data":7})", {{R"({"id":"x","data":7})"}}},  // an element: it has no list
        {R"({"data":[1]})", std::nullopt},
        {R"({"data":[{}]}x)", std::nullopt},
        {R"({"data":[{})", std::nullopt},
        {R"({"data":[{"a":"])", std::nullopt},
        {R"(["data"])", std::nullopt},
        {R"({"a" 1})", std::nullopt},
        {"", std::nullopt},
    };
    for (const Case& each : cases) {
        const auto found = elementTexts(each.document);
        ASSERT_EQ(found.has_value(), each.texts.has_value()) << each.document;
        if (!found) continue;
        std::vector<std::string_view> texts;
        for (const ElementText& element : *found) texts.push_back(element.text);
        EXPECT_EQ(texts, *each.texts) << each.document;
    }
    // Two elements with one id are told apart.
    const std::string id = R"({"id":"19243473-0126-5f4b-b1bf-4879152c72e5"})";
    const std::string twice = "{\"data\":[" + id + "," + id + "]}";
    const auto found = elementTexts(twice);
    ASSERT_TRUE(found);
    EXPECT_EQ((*found)[0].key.id, (*found)[1].key.id);
    EXPECT_EQ((*found)[1].key.occurrence, 1U);
}

TEST(Order, MovesAsFewElementsAsPossible) {
    std::mt19937 random{7};  // NOLINT: the same each time
    std::vector<std::uint64_t> now = positionsFor(std::vector<std::optional<std::uint64_t>>(20));
    for (int round = 0; round < 2000; ++round) {
        std::vector<std::optional<std::uint64_t>> before(now.begin(), now.end());
        const std::size_t at = random() % before.size();
        std::size_t mostMoved = 1;
        switch (random() % 3) {
            case 0:
                before.insert(before.begin() + static_cast<std::ptrdiff_t>(at), std::nullopt);
                break;
            case 1:
                if (before.size() > 5) before.erase(before.begin() + static_cast<std::ptrdiff_t>(at));
                mostMoved = 0;
                break;
            default:
                std::swap(before[at], before[random() % before.size()]);
                mostMoved = 2;
        }
        now = positionsFor(before);
        ASSERT_EQ(now.size(), before.size());
        std::size_t moved = 0;
        for (std::size_t i = 0; i < now.size(); ++i) {
            ASSERT_TRUE(i == 0 || now[i - 1] < now[i]);
            if (!before[i] || *before[i] != now[i]) ++moved;
        }
        // Where there is no room, all get new ones.
        ASSERT_TRUE(moved <= mostMoved || now.front() == std::uint64_t{1} << 24U) << round;
    }
}

}  // namespace
}  // namespace hmxrelay
