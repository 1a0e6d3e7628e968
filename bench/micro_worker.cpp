// The hand-over to a worker: what posting and running an event costs, and what a wake-up adds.
#include <benchmark/benchmark.h>

#include <semaphore>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"

namespace {

using benchmark::State;

// No other thread: the queue alone.
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

// A worker that is kept busy: it is rarely woken.
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

// A worker that sleeps: to it and back, two wake-ups.
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
