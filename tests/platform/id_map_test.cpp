#include "util/id_map.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

TEST(IdMap, HoldsWhatAnOrderedMapHoldsWhateverTheOrderOfComingAndGoing) {
    std::mt19937_64 random{7};
    // Sequential ids; ids in steps, like a connection's; ids that all have the same home in a small table.
    for (const std::uint64_t step : {std::uint64_t{1}, std::uint64_t{1} << 16U, std::uint64_t{1} << 36U}) {
        util::IdMap<std::string> map;
        std::map<std::uint64_t, std::string> model;
        for (int i = 0; i < 20'000; ++i) {
            const std::uint64_t id = random() % 200 * step;
            const auto known = model.find(id);
            // Alternately crowded and nearly empty.
            const bool coming = random() % 100 < (i / 2000 % 2 == 0 ? 70U : 20U);
            if (coming) {
                const std::string text = "value " + std::to_string(i) + " of an entry, too long to be held without memory";
                const std::string* const entered = map.put(id, std::make_unique<std::string>(text));
                ASSERT_EQ(entered != nullptr, known == model.end());
                if (entered != nullptr) model[id] = text;
            } else if (known != model.end()) {
                ASSERT_EQ(*map.take(id), known->second);
                model.erase(known);
            } else {
                ASSERT_EQ(map.take(id), nullptr);
            }
            ASSERT_EQ(map.size(), model.size());
        }
        for (std::uint64_t id = 0; id < 200; ++id) {
            const auto known = model.find(id * step);
            const std::string* const found = map.find(id * step);
            ASSERT_EQ(found != nullptr, known != model.end());
            if (found != nullptr) {
                ASSERT_EQ(*found, known->second);
            }
        }
        std::size_t visited = 0;
        map.forEach([&](std::uint64_t, const std::string&) { ++visited; });
        ASSERT_EQ(visited, model.size());
    }
}

}  // namespace
