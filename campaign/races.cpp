// Races the cancellation of each of 200,000 requests against its answer: a consumer and a provider in one process, so a
// sanitizer sees both. Prints one line. Exit status 0 if every request ended as it should.
//
// What is checked: a handler gets at most one end and nothing after it, is destroyed once, and, if its cancellation came first,
// gets at most the answer that was on its way.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "comm/active_object.h"
#include "kelo/func_call_event.h"
#include "kelo/resource_handler.h"
#include "kelo/response_handler.h"
#include "kelo/runtime/kelo_runtime.h"
#include "random.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"

namespace {

using kelo::Response;
using testing_support::Watched;

constexpr const char* servicePath = "/raced";

struct Tally {
    std::atomic<std::uint64_t> asked{0};
    std::atomic<std::uint64_t> answered{0};
    std::atomic<std::uint64_t> failed{0};
    std::atomic<std::uint64_t> silent{0};  // destroyed without an event: the cancellation won
    std::atomic<std::uint64_t> destroyed{0};
    std::atomic<std::uint64_t> wrong{0};
};

class Handler final : public kelo::IResponseHandler<Response> {
public:
    Handler(Tally& tally, bool oneShot) : tally_{tally}, oneShot_{oneShot} { ++tally_.asked; }
    ~Handler() override {
        if (!isOver_ && values_ == 0) ++tally_.silent;
        ++tally_.destroyed;
    }
    bool onNext(const Response&) override {
        if (isOver_) ++tally_.wrong;
        if (values_++ == 0) ++tally_.answered;
        return isOver_ = oneShot_ || values_ == 2;
    }
    void onError(const Response&) override {
        end();
        ++tally_.failed;
    }
    void onCompleted() override { end(); }
    bool isOneShot() const override { return oneShot_; }

private:
    void end() {
        if (isOver_) ++tally_.wrong;
        isOver_ = true;
    }

    Tally& tally_;
    const bool oneShot_;
    bool isOver_ = false;
    unsigned values_ = 0;
};

// Answers at once, later from a thread of its own, or never; streams get more values than they want.
class Resource final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        const auto answer = [](kelo::IResponder& to) {
            for (int i = 0; i < 3; ++i) {
                if (to.next(Response{200})) return;
            }
            to.completed();
        };
        if (request.path() == "/r/now") {
            answer(*responder);
        } else if (request.path() == "/r/later") {
            kelo::post(worker_, [answer, responder = std::move(responder)] { answer(*responder); });
        }
        return this;
    }
    void cancelRequest(void*) override {}

private:
    comm::ActiveObject worker_{"answers"};
};

class Consumer final : public kelo::runtime::IKeloRuntime::IKeloServiceTracker,
                       public kelo::runtime::IKeloRuntime::IKeloServiceResolver {
public:
    Consumer(kelo::runtime::IKeloRuntime& runtime, comm::ActiveObject* reader) : runtime_{runtime}, reader_{reader} {
        runtime_.trackService(servicePath, *this, 0);
    }
    void added(const kelo::runtime::KeloServiceTrackerInfo& info) override {
        if (resolver_ == 0) resolver_ = runtime_.openResolver(info, *this, reader_);
    }
    void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
    void removed() override {}
    void resolved(std::uint64_t, kelo::IKeloApi* api) override {
        api_.change([&](auto& value) { value = api; });
    }
    void gone() override {}
    kelo::IKeloApi& api() {
        if (!api_.waitFor([](kelo::IKeloApi* api) { return api != nullptr; })) std::abort();
        return *api_.get();
    }

private:
    kelo::runtime::IKeloRuntime& runtime_;
    comm::ActiveObject* const reader_;
    std::uint64_t resolver_ = 0;
    Watched<kelo::IKeloApi*> api_;
};

std::unique_ptr<kelo::runtime::IKeloRuntime> startRuntime(const std::string& directory, const char* name) {
    kelo::runtime::RuntimeOptions options;
    options.directory = directory;
    options.applicationName = name;
    auto runtime = kelo::runtime::createRuntime(options);
    if (!runtime->start(0)) std::abort();
    return runtime;
}

void spin(std::uint64_t turns) {
    for (std::atomic<std::uint64_t> i{0}; i < turns; ++i) {
    }
}

// Asks, and cancels a moment later, from one thread of several.
void race(kelo::IKeloApi& api, Tally& tally, std::uint64_t count, std::uint64_t seed) {
    hmxsim::Random random{seed};
    constexpr const char* paths[] = {"/r/now", "/r/later", "/r/now", "/r/never"};
    std::vector<void*> open;
    for (std::uint64_t i = 0; i < count; ++i) {
        const kelo::Request request{"retrieve", paths[random.below(4)]};
        void* const handle = api.request(request, std::make_unique<Handler>(tally, random.below(2) == 0));
        open.push_back(handle);
        spin(random.below(15000));
        // Now and then late, so that answers win too, and some twice.
        if (open.size() > random.below(8)) {
            for (void* each : open) api.cancel(each);
            if (random.below(4) == 0) api.cancel(open.front());
            open.clear();
        }
    }
    for (void* each : open) api.cancel(each);
}

}  // namespace

int main(int argc, char** argv) {
    ::setenv("KELO_TRACE", "*=5", 0);
    const std::uint64_t races = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200'000;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    constexpr std::uint64_t threadCount = 3;
    const testing_support::TemporaryDirectory directory;
    Tally tally;
    {
        Resource resource;
        kelo::SimpleComposedKeloService service;
        service.registerService("/r", &resource);
        const auto provider = startRuntime(directory.path(), "provider");
        provider->registerService(servicePath, service, nullptr);
        comm::ActiveObject reader{"reader"};
        const auto consuming = startRuntime(directory.path(), "consumer");
        Consumer consumer{*consuming, &reader};
        kelo::IKeloApi& api = consumer.api();
        std::vector<std::thread> threads;
        for (std::uint64_t i = 0; i < threadCount; ++i) {
            threads.emplace_back([&, i] { race(api, tally, (races + threadCount - 1) / threadCount, seed * 31 + i); });
        }
        for (auto& thread : threads) thread.join();
        if (!testing_support::eventually([&] { return tally.destroyed == tally.asked; })) ++tally.wrong;
        consuming->stop();
        provider->stop();
    }
    const bool held =
        tally.wrong == 0 && tally.destroyed == tally.asked && tally.asked >= races && tally.silent > 0 && tally.answered > 0;
    const auto number = [](const std::atomic<std::uint64_t>& value) { return static_cast<unsigned long long>(value); };
    std::printf(
        "%-6s %-12s a cancellation and an answer that meet leave one end: races %llu, answered first %llu, cancelled first %llu, "
        "refused %llu, wrong %llu (limit 0), never destroyed %llu (limit 0)\n",
        held ? "held" : "BROKEN", "races", number(tally.asked), number(tally.answered), number(tally.silent),
        number(tally.failed), number(tally.wrong), number(tally.asked) - number(tally.destroyed));
    return held ? 0 : 1;
}
