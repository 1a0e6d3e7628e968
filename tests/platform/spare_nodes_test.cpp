#include "util/spare_nodes.h"

#include <gtest/gtest.h>

#include <string>
#include <unordered_map>

namespace {

TEST(SpareNodes, AnEntryThatIsUsedAgainHoldsNothingOfTheOneBefore) {
    std::unordered_map<int, std::string> map;
    util::SpareNodes<std::unordered_map<int, std::string>> spare;
    for (int round = 0; round < 100; ++round) {
        for (int key = 0; key < round; ++key) {
            const auto [entry, isNew] = spare.enter(map, key);
            ASSERT_TRUE(isNew);
            ASSERT_EQ(entry->second, "");
            entry->second = "of round " + std::to_string(round);
        }
        // A key that is there keeps what it has, and costs none of the spare ones.
        for (int key = 0; key < round; ++key) ASSERT_FALSE(spare.enter(map, key).second);
        for (int key = 0; key < round; ++key) ASSERT_EQ(spare.take(map, map.find(key)), "of round " + std::to_string(round));
        ASSERT_TRUE(map.empty());
    }
}

}  // namespace
