// Handing work to a worker: the cost of posting and running an event, and of a wake-up.
#include <benchmark/benchmark.h>

#include <semaphore>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"

namespace {

using benchmark::State;

// Without another thread: only the queue.
void postAndRun(State& state) {
    comm::ActiveObject worker{"bench", comm::ActiveObject::ByHand{}};
    std::size_t count = 0;
    for (auto _ : state) {
        kelo::post(worker, [&count] { ++count; });
        worker.runPending();
    }
    benchmark::DoNotOptimize(count);
}
BENCHMARK(postAndRun);

// A busy worker, which is rarely woken.
void postMany(State& state) {
    constexpr int batch = 1'000;
    comm::ActiveObject worker{"bench"};
    std::binary_semaphore done{0};
    std::size_t count = 0;
    for (auto _ : state) {
        for (int i = 1; i < batch; ++i) kelo::post(worker, [&count] { ++count; });
        kelo::post(worker, [&done] { done.release(); });
        done.acquire();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(postMany)->UseRealTime();

// A sleeping worker: two wake-ups, there and back.
void postAndWait(State& state) {
    comm::ActiveObject worker{"bench"};
    std::binary_semaphore done{0};
    for (auto _ : state) {
        kelo::post(worker, [&done] { done.release(); });
        done.acquire();
    }
}
BENCHMARK(postAndWait)->UseRealTime();

}  // namespace
