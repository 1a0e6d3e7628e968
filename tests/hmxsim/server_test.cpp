// The simulator over real sockets.
#include "server.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/eventually.h"
#include "support/temporary_directory.h"
#include "world_file.h"

namespace {

using kelo::Response;
using kelo::runtime::IKeloRuntime;
using kelo::runtime::KeloServiceTrackerInfo;
using testing_support::Watched;

using Told = std::vector<std::string>;  // "200", "503", "completed"

class Handler final : public kelo::IResponseHandler<Response> {
public:
    explicit Handler(Watched<Told>& told) : told_{told} {}
    bool onNext(const Response& response) override {
        tell(std::to_string(response.status()));
        return false;
    }
    void onError(const Response& response) override { tell(std::to_string(response.status())); }
    void onCompleted() override { tell("completed"); }

private:
    void tell(const std::string& event) {
        told_.change([&](Told& told) { told.push_back(event); });
    }
    Watched<Told>& told_;
};

// One service as a client sees it.
class Consumer final : public IKeloRuntime::IKeloServiceTracker, public IKeloRuntime::IKeloServiceResolver {
public:
    struct Seen {
        int resolved = 0;
        int gone = 0;
        std::vector<std::string> mimeTypes;
        kelo::IKeloApi* api = nullptr;
    };

    Consumer(IKeloRuntime& runtime, std::string_view path) : runtime_{runtime}, handle_{runtime.trackService(path, *this, 0)} {}
    void added(const KeloServiceTrackerInfo& info) override {
        seen.change([&](Seen& value) { value.mimeTypes = info.mimeTypes; });
        if (!isOpen_.exchange(true)) runtime_.openResolver(info, *this);
    }
    void modified(const KeloServiceTrackerInfo&) override {}
    void removed() override { runtime_.releaseService(handle_); }
    void resolved(std::uint64_t, kelo::IKeloApi* api) override {
        seen.change([&](Seen& value) {
            ++value.resolved;
            value.api = api;
        });
    }
    void gone() override {
        seen.change([](Seen& value) { ++value.gone; });
    }
    void send(Watched<Told>& told, const char* command, const char* path, std::string_view body = "") {
        const kelo::Request request{command, path, kelo::Payload::copyOf(body, kelo::MimeType{"application/json"})};
        seen.get().api->request(request, std::make_unique<Handler>(told));
    }

    Watched<Seen> seen;

private:
    IKeloRuntime& runtime_;
    std::atomic<bool> isOpen_{false};
    const std::uint64_t handle_;
};

TEST(Server, ServesClosesReopensAndEndsInTheMiddleOfRequests) {
    const testing_support::TemporaryDirectory directory;
    kelo::runtime::RuntimeOptions runtimeOptions;
    runtimeOptions.directory = directory.path();
    hmxsim::ServerOptions options;
    options.world = hmxsim::readWorld(hmxsim::Document{"w", R"({"displaymanager": {"displays": [{"id": 1, "name": "Left"}]}})"});
    options.managers = {hmxsim::ManagerId::display};
    options.runtime = runtimeOptions;
    options.runtime.applicationName = "hmxsim";
    options.runtime.mimeTypes = {"application/vnd.msgpack", "application/json"};
    options.scenario = {{std::chrono::milliseconds{1}, "update", "/state/displaymanager/displays/Left", R"({"terminal": 3})"}};

    const std::unique_ptr<IKeloRuntime> runtime = kelo::runtime::createRuntime(runtimeOptions);
    ASSERT_TRUE(runtime->start(0));
    // Handlers may write here until the runtime has stopped.
    Watched<Told> watcher;
    Watched<Told> control;
    Watched<Told> last;
    Consumer displays{*runtime, "/hmxdisplaymanager"};
    Consumer simulator{*runtime, "/hmxsim"};
    Watched<int> serving;
    Watched<int> servingLater;
    const auto increase = [](int& times) { ++times; };
    options.onServing = [&] { serving.change(increase); };
    hmxsim::ServerOptions successor;
    successor.managers = options.managers;
    successor.runtime = runtimeOptions;
    successor.onServing = [&] { servingLater.change(increase); };
    std::optional<hmxsim::Server> second;
    {
        hmxsim::Server server{std::move(options)};
        ASSERT_EQ(server.start(), "");
        EXPECT_TRUE(serving.waitFor([](int times) { return times == 1; }));
        ASSERT_TRUE(displays.seen.waitFor([](const auto& seen) { return seen.resolved == 1; }));
        ASSERT_TRUE(simulator.seen.waitFor([](const auto& seen) { return seen.resolved == 1; }));
        EXPECT_EQ(displays.seen.get().mimeTypes.front(), "application/vnd.msgpack");
        bool failed = false;
        EXPECT_EQ(kelo::runtime::listServices(runtimeOptions, failed),
                  (std::vector<std::string>{"/hmxdisplaymanager", "/hmxsim"}));

        displays.send(watcher, "retrieve", "/displays");
        EXPECT_TRUE(watcher.waitFor([](const Told& told) { return !told.empty(); }));
        simulator.send(control, "update", "/faults/displaymanager", R"({"close": true, "now": true, "reopen_ms": 1})");
        EXPECT_TRUE(control.waitFor([](const Told& told) { return told == Told{"204", "completed"}; }));
        EXPECT_TRUE(watcher.waitFor([](const Told& told) { return told.back() == "503"; }));
        EXPECT_TRUE(displays.seen.waitFor([](const auto& seen) { return seen.gone == 1 && seen.resolved == 2; }));
        for (int i = 0; i < 200; ++i) displays.send(last, "retrieve", i % 2 == 0 ? "/displays" : "/displays/Left");
        EXPECT_TRUE(last.waitFor([](const Told& told) { return !told.empty(); }));
        second.emplace(std::move(successor));
        ASSERT_EQ(second->start(), "");
        EXPECT_EQ(servingLater.get(), 0) << "the paths are taken";
    }
    EXPECT_TRUE(servingLater.waitFor([](int times) { return times == 1; }));
    // Each of the open retrieves has had its one end.
    EXPECT_TRUE(last.waitFor([](const Told& told) { return std::count(told.begin(), told.end(), "503") == 200; }));
    EXPECT_TRUE(displays.seen.waitFor([](const auto& seen) { return seen.gone == 2; }));
    runtime->stop();
}

}  // namespace
