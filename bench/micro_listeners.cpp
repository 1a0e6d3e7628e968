// The cache of region configurations: the cost of a change with many listeners, and with many other configurations stored.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "core/resource_data.h"
#include "hmx/regionconfiguration_object.h"
#include "kelo/uuid.h"

namespace {

using benchmark::State;
using kelo::hmx::RegionconfigurationObject;

class Counter final : public kelo::IResponseHandler<RegionconfigurationObject> {
public:
    explicit Counter(std::size_t& count) : count_{count} {}
    bool onNext(const RegionconfigurationObject&) override {
        ++count_;
        return false;
    }
    void onError(const kelo::Response&) override {}
    void onCompleted() override {}
    bool isOneShot() const override { return false; }

private:
    std::size_t& count_;
};

std::shared_ptr<RegionconfigurationObject> configuration(int number, const std::string& subComponent) {
    const std::UUID id = kelo::uuid::createFromName("configuration" + std::to_string(number));
    auto object = std::make_shared<RegionconfigurationObject>(id, RegionconfigurationObject::elementUri(id));
    object->subComponent = subComponent;
    return object;
}

// Changes one of `stored` configurations back and forth, with `listeners` listening to it.
void change(State& state, int stored, std::size_t listeners) {
    kelo::tolu::ToluResourceData<RegionconfigurationObject> cache;
    for (int i = 1; i < stored; ++i) {
        const auto other = configuration(i, "map");
        cache.put(other->id, other);
    }
    const std::shared_ptr<RegionconfigurationObject> states[] = {configuration(0, "map"), configuration(0, "menu")};
    cache.put(states[0]->id, states[0]);
    std::size_t heard = 0;
    for (std::size_t i = 0; i < listeners; ++i) cache.addListener(nullptr, states[0]->id, {}, std::make_unique<Counter>(heard));
    std::size_t changes = 0;
    heard = 0;
    for (auto _ : state) cache.put(states[0]->id, states[++changes % 2]);
    if (heard != changes * listeners) state.SkipWithError("a change was not heard");
    state.SetComplexityN(state.range(0));
}

void notifyListeners(State& state) {
    change(state, 1, static_cast<std::size_t>(state.range(0)));
}
BENCHMARK(notifyListeners)->RangeMultiplier(10)->Range(1, 1'000)->Complexity(benchmark::oN);

void changeOneOfMany(State& state) {
    change(state, static_cast<int>(state.range(0)), 1);
}
BENCHMARK(changeOneOfMany)->RangeMultiplier(10)->Range(1, 1'000)->Complexity(benchmark::oLogN);

}  // namespace
