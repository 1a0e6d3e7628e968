// A runtime that only records what it is asked; the test makes its callbacks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo/runtime/kelo_runtime.h"

namespace support {

// Thread: one at a time; the test calls the callbacks on threads of its choice.
class FakeRuntime final : public kelo::runtime::IKeloRuntime {
public:
    static constexpr std::uint64_t trackHandle = 11;
    static constexpr std::uint64_t resolveHandle = 22;
    static constexpr std::uint64_t registerHandle = 33;

    bool start(int) override { return true; }
    void stop() override {}
    std::uint64_t trackService(std::string_view path, IKeloServiceTracker& newTracker, int flags) override {
        note("track " + std::string{path} + " " + std::to_string(flags));
        tracker = &newTracker;
        return trackHandle;
    }
    void untrackService(std::uint64_t handle) override { note("untrack " + std::to_string(handle)); }
    void releaseService(std::uint64_t handle) override { note("release " + std::to_string(handle)); }
    std::uint64_t openResolver(const kelo::runtime::KeloServiceTrackerInfo& info, IKeloServiceResolver& newResolver,
                               comm::ActiveObject* newReader) override {
        note("resolve " + info.servicePath + " " + std::to_string(info.incarnation));
        resolver = &newResolver;
        reader = newReader;
        return refuseResolver ? UNDEFINED_RESOLVER_HANDLE : resolveHandle;
    }
    void closeResolver(std::uint64_t handle) override { note("close " + std::to_string(handle)); }
    std::uint64_t registerService(std::string_view path, kelo::SimpleComposedKeloService& newService,
                                  IKeloServiceTracker* newTracker) override {
        note("register " + std::string{path});
        service = &newService;
        tracker = newTracker;
        return registerHandle;
    }
    void unregisterService(std::uint64_t handle) override { note("unregister " + std::to_string(handle)); }

    std::vector<std::string> calls;  // e.g. "track /hmx 0", "release 11"
    IKeloServiceTracker* tracker = nullptr;
    IKeloServiceResolver* resolver = nullptr;
    comm::ActiveObject* reader = nullptr;
    kelo::SimpleComposedKeloService* service = nullptr;
    bool refuseResolver = false;

private:
    void note(std::string call) { calls.push_back(std::move(call)); }
};

}  // namespace support
