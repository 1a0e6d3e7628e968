#include "startup.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <map>
#include <stdexcept>
#include <thread>

#include "kelo/func_call_event.h"
#include "support/eventually.h"
#include "support/fake_kelo_api.h"
#include "support/redirect.h"
#include "support/traced_lines.h"

namespace {

using Lines = std::vector<std::string>;
using testing_support::Watched;

// A runtime whose services appear when the test says so, with callbacks on a thread of its own.
class PlayedRuntime final : public kelo::runtime::IKeloRuntime {
public:
    bool start(int) override { return true; }
    std::uint64_t trackService(std::string_view path, IKeloServiceTracker& tracker, int) override {
        if (path == failAt) throw std::runtime_error{"no tracker for you"};
        note("track " + std::string{path});
        kelo::post(thread_, [this, path = std::string{path}, &tracker] {
            trackers_[path] = &tracker;
            if (present_.contains(path)) tracker.added(infoOf(path));
        });
        return 1;
    }
    std::uint64_t openResolver(const kelo::runtime::KeloServiceTrackerInfo& info, IKeloServiceResolver& resolver,
                               comm::ActiveObject* reader) override {
        readers[info.servicePath] = reader->name();
        kelo::post(thread_, [this, &resolver] { resolver.resolved(2, &api_); });
        return 2;
    }
    std::uint64_t registerService(std::string_view path, kelo::SimpleComposedKeloService& service,
                                  IKeloServiceTracker* tracker) override {
        std::string call = "register " + std::string{path};
        for (const char* root :
             {"/popups", "/regionconfigurations", "/displays", "/displayables", "/layerconfigurations", "/others"}) {
            if (service.find(root) != nullptr) call += std::string{" "} + root;
        }
        note(call);
        kelo::post(thread_, [tracker] { tracker->added(infoOf("/hmx")); });
        return 3;
    }
    void stop() override {
        note("stop");
        std::promise<void> promise;
        const std::future<void> idle = promise.get_future();
        kelo::post(thread_, [promise = std::move(promise)]() mutable { promise.set_value(); });
        idle.wait();
    }
    void untrackService(std::uint64_t) override {}
    void releaseService(std::uint64_t) override {}
    void closeResolver(std::uint64_t) override {}
    void unregisterService(std::uint64_t) override {}

    void come(const std::string& path) {
        kelo::post(thread_, [this, path] {
            present_[path] = true;
            if (trackers_.contains(path)) trackers_[path]->added(infoOf(path));
        });
    }

    Watched<Lines> calls;
    std::map<std::string, std::string> readers;  // the worker of each service's manager
    std::string failAt;                          // the path that cannot be tracked

private:
    static kelo::runtime::KeloServiceTrackerInfo infoOf(const std::string& path) {
        kelo::runtime::KeloServiceTrackerInfo info;
        info.servicePath = path;
        return info;
    }
    void note(const std::string& call) {
        calls.change([&](Lines& all) { all.push_back(call); });
    }

    support::FakeKeloApi api_;
    std::map<std::string, IKeloServiceTracker*> trackers_;
    std::map<std::string, bool> present_;
    comm::ActiveObject thread_{"played-runtime"};
};

// Only main's own lines, in order; those of the workers may come in between at any time.
Lines ofMain(const Lines& all) {
    Lines result;
    std::copy_if(all.begin(), all.end(), std::back_inserter(result), [](const std::string& line) {
        return line.rfind("2 Service hmx", 0) == 0 || line.rfind("2 Servicehmx", 0) == 0 ||
               line.find("registerResource") != std::string::npos;
    });
    return result;
}

TEST(StartUp, TakesOneServiceAfterTheOtherInWhateverOrderTheyCome) {
    const std::string dm = "/hmxdisplaymanager";
    const std::string input = "/hmxinputmanager";
    const std::string popup = "/hmxpopupmanager";
    const Lines tracked{"track " + dm, "track " + input, "track " + popup};
    const std::string resource = "2 ServiceManager::registerResource with rootPath: ";
    Lines order{dm, input, popup};
    do {
        support::TracedLines lines{"BENCH_Startup"};
        PlayedRuntime runtime;
        Watched<bool> parked;
        Watched<bool> released;
        std::thread main{[&] {
            hmx::serve(runtime, [&] {
                parked.change([](bool& is) { is = true; });
                released.waitFor([](bool is) { return is; });
            });
        }};
        std::vector<std::string> come;
        for (const std::string& path : order) {
            // Start-up must not go further than the first service that is missing.
            std::size_t reached = 0;
            while (reached < 3 && std::count(come.begin(), come.end(), tracked[reached].substr(6)) != 0) ++reached;
            EXPECT_TRUE(runtime.calls.waitFor([&](const Lines& calls) { return calls.size() > reached; }));
            EXPECT_EQ(runtime.calls.get(), Lines(tracked.begin(), tracked.begin() + static_cast<std::ptrdiff_t>(reached) + 1));
            runtime.come(path);
            come.push_back(path);
        }
        EXPECT_TRUE(parked.waitFor([](bool is) { return is; }));
        EXPECT_EQ(runtime.calls.get().back(),
                  "register /hmx /popups /regionconfigurations /displays /displayables /layerconfigurations");
        EXPECT_EQ(runtime.readers, (std::map<std::string, std::string>{{dm, "hmxtolubridge.displaythread"},
                                                                       {input, "hmxtolubridge.inputthread"},
                                                                       {popup, "hmxtolubridge.popupthread"}}));
        const Lines all = lines.take();
        EXPECT_EQ(ofMain(all),
                  (Lines{"2 Service hmxtolubridge wait for dm service available started ",
                         "2 Servicehmxtolubridge wait for dm service available finished",
                         "2 Service hmxtolubridge wait for input service available started ",
                         "2 Service hmxtolubridge wait for input service available finished",
                         "2 Service hmxtolubridge wait for popup service available started ",
                         "2 Servicehmxtolubridge hmxtolubridge wait for popup service available finished",
                         resource + "/popups started", resource + "/regionconfigurations started", resource + "/displays started",
                         resource + "/displayables started", resource + "/layerconfigurations started"}));
        const auto place = [&](const char* line) { return std::find(all.begin(), all.end(), line) - all.begin(); };
        EXPECT_LT(place("2 HMX_STARTUP hmxtolubridge: got dm api"),
                  place("2 Servicehmxtolubridge wait for dm service available finished"));
        EXPECT_EQ(std::count(all.begin(), all.end(), "2 HMX_STARTUP Servicehmxtolubridge: hmx RSI available"), 1);
        released.change([](bool& is) { is = true; });
        main.join();
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(StartUp, AThrowOnTheWayTakesEverythingDownAndIsTold) {
    support::TracedLines lines{"BENCH_Startup"};
    PlayedRuntime runtime;
    runtime.failAt = "/hmxinputmanager";
    runtime.come("/hmxdisplaymanager");
    EXPECT_EQ(hmx::guarded([&] { hmx::serve(runtime, [] { FAIL() << "parked"; }); }, {}), hmx::exitFailure);
    EXPECT_EQ(lines.take().back(), "4 hmxtolubridge:main caught exception: no tracker for you ");
    const auto thrown = std::chrono::steady_clock::now();
    EXPECT_EQ(hmx::guarded([] { throw 7; }), hmx::exitFailure);
    EXPECT_GE(std::chrono::steady_clock::now() - thrown, std::chrono::seconds{1});
    EXPECT_EQ(lines.take(), Lines{"4 hmxtolubridge:main unknown exception occured"});
    EXPECT_EQ(hmx::guarded([] {}), hmx::exitOk);
}

TEST(StartUp, ThatLinesWereLostIsTheLastThatIsTold) {
    bool isTold = false;
    // The reader is stuck for a moment, which a busy machine may make too long.
    for (int attempt = 0; attempt < 50 && !isTold; ++attempt) {
        support::Redirect output{STDERR_FILENO};
        output.fill();
        std::thread reader{[&] {
            hmx::sleepFor(std::chrono::milliseconds{20});
            isTold = output.take().find(" lines lost) \n") != std::string::npos;
        }};
        hmx::guarded([] { throw 7; }, {});
        reader.join();
        isTold = isTold || output.take().find(" lines lost) \n") != std::string::npos;
    }
    EXPECT_TRUE(isTold);
}

TEST(StartUp, TheLastSleepIsNotCutShortBySignals) {
    using Clock = std::chrono::steady_clock;
    struct sigaction nothing {};
    nothing.sa_handler = [](int) {};
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGALRM, &nothing, &before), 0);
    const itimerval often{{0, 2'000}, {0, 2'000}};
    const auto begin = Clock::now();
    setitimer(ITIMER_REAL, &often, nullptr);
    hmx::sleepFor(std::chrono::milliseconds{50});
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds{50});
    sigaction(SIGALRM, &before, nullptr);
}

TEST(StartUp, ArgumentsAreAnsweredBeforeAnythingStarts) {
    const struct {
        const char* argument;
        int status;
        const char* out;  // how each stream begins
        const char* error;
    } cases[] = {
        {"--help", hmx::exitOk, "usage: hmxtolubridge", ""},
        {"--version", hmx::exitOk, "hmxtolubridge ", ""},
        {"--domain=x", hmx::exitUsage, "", "hmxtolubridge: takes no argument \"--domain=x\"\nusage: "},
        {"", hmx::exitUsage, "", "hmxtolubridge: takes no argument \"\"\n"},
    };
    for (const auto& [argument, status, out, error] : cases) {
        const char* const arguments[] = {"hmxtolubridge", argument, nullptr};
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(hmx::run(2, arguments), status) << argument;
        const std::string written = testing::internal::GetCapturedStdout();
        const std::string complained = testing::internal::GetCapturedStderr();
        EXPECT_EQ(written.rfind(out, 0), 0U) << written;
        EXPECT_EQ(complained.rfind(error, 0), 0U) << complained;
        EXPECT_EQ(written.empty(), *out == '\0');
        EXPECT_EQ(complained.empty(), *error == '\0');
    }
}

}  // namespace
