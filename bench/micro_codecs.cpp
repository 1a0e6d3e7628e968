// The work on an answer in the bridge: the upstream list is read and turned into a page, and the page is written.
#include <benchmark/benchmark.h>

#include "core/documents.h"
#include "micro_samples.h"

namespace {

using benchmark::State;
using kelo::MimeType;
using kelo::hmx::displaymanager::DisplaysInfo;

// One row for each encoding and size, and the slope over the sizes.
void sizes(benchmark::internal::Benchmark* family) {
    family->Arg(4)->RangeMultiplier(10)->Range(10, 10'000)->Complexity(benchmark::oN);
}

void finish(State& state, std::size_t bytes) {
    state.SetComplexityN(state.range(0));
    state.counters["bytes"] = static_cast<double>(bytes);
}

void readList(State& state, std::string_view encoding) {
    const MimeType mimeType{encoding};
    const DisplaysInfo list = samples::displays(static_cast<std::size_t>(state.range(0)));
    util::ByteBufferWriter document;
    bool failed = kelo::writeDocument(document, mimeType, kelo::BodyView::of(list));
    for (auto _ : state) {
        DisplaysInfo read;
        failed = kelo::readDocument(document.bytes(), mimeType, kelo::ResultView::of(read)) || failed;
        benchmark::DoNotOptimize(read);
    }
    if (failed) state.SkipWithError("the list does not read");
    finish(state, document.size());
}
BENCHMARK_CAPTURE(readList, json, "application/json")->Apply(sizes);
BENCHMARK_CAPTURE(readList, msgpack, "application/vnd.msgpack")->Apply(sizes);
BENCHMARK_CAPTURE(readList, cbor, "application/vnd.ixobin")->Apply(sizes);

void makePage(State& state) {
    const DisplaysInfo list = samples::displays(static_cast<std::size_t>(state.range(0)));
    samples::PageMaker pages;
    for (auto _ : state) {
        auto page = pages.page(list);
        benchmark::DoNotOptimize(page);
        pages.keep(std::move(page));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(makePage)->Apply(sizes);

void writePage(State& state, std::string_view encoding) {
    const MimeType mimeType{encoding};
    const auto page = samples::PageMaker{}.page(samples::displays(static_cast<std::size_t>(state.range(0))));
    util::ByteBufferWriter document;
    bool failed = false;
    for (auto _ : state) {
        document.clear();
        failed = kelo::writeDocument(document, mimeType, kelo::BodyView::of(page)) || failed;
        benchmark::DoNotOptimize(document.bytes().data());
    }
    if (failed) state.SkipWithError("the page is not written");
    finish(state, document.size());
}
BENCHMARK_CAPTURE(writePage, json, "application/json")->Apply(sizes);
BENCHMARK_CAPTURE(writePage, msgpack, "application/vnd.msgpack")->Apply(sizes);
BENCHMARK_CAPTURE(writePage, cbor, "application/vnd.ixobin")->Apply(sizes);

}  // namespace
