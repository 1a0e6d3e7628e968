// A request's path through its resource service: route, id, parameters, handler.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "hmx/displays_service.h"

namespace {

using benchmark::State;
using kelo::hmx::DisplayObject;
using kelo::hmx::DisplayObjectListPage;
using Params = kelo::optional<kelo::toluglobals::ToluParams>;

// A bridge that does not answer.
struct Silent final : kelo::hmx::IDisplays {
    void* retrieveDisplayObject(std::unique_ptr<kelo::IResponseHandler<DisplayObject>>&& handler, const std::UUID&,
                                const Params&) override {
        return take(std::move(handler));
    }
    void* retrieveDisplayObjects(std::unique_ptr<kelo::IResponseHandler<DisplayObjectListPage>>&& handler,
                                 const Params&) override {
        return take(std::move(handler));
    }
    void cancelRequest(void*) override {}

    template <class T>
    void* take(std::unique_ptr<kelo::IResponseHandler<T>> handler) {
        handler.reset();
        return this;
    }
};

struct Deaf final : kelo::IResponder {
    bool next(const kelo::Response&) override { return true; }
    void error(const kelo::Response&) override {}
    void completed() override {}
};

void dispatch(State& state, const std::string& path, const std::string& parameters) {
    Silent bridge;
    kelo::hmx::DisplaysService service{&bridge};
    const kelo::Request request{"retrieve", path, kelo::Payload::copyOf(parameters, kelo::MimeType{"application/json"})};
    for (auto _ : state) {
        if (service.actionRequest(request, std::make_unique<Deaf>(), "tag") != &bridge) {
            state.SkipWithError("not dispatched");
            break;
        }
    }
}
BENCHMARK_CAPTURE(dispatch, list, "/displays", "");
BENCHMARK_CAPTURE(dispatch, element, "/displays/19243473-0126-5f4b-b1bf-4879152c72e5", "");
BENCHMARK_CAPTURE(dispatch, parameters, "/displays", R"({"name":"Driver_Display","fields":["terminal"],"limit":2})");

}  // namespace
