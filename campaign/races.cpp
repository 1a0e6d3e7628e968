// Races the cancellation of each of 200,000 requests against its answer, with consumer and provider in one process, so that a
// sanitizer sees both. Then does the same while the provider dies 1,000 times and the connection is moved from reader to reader.
// Prints one line for each. Exit status 0 if every request ended correctly. Arguments: races, seed, deaths.
//
// What is checked: a handler gets at most one end and nothing after it, is destroyed once, and, if its cancellation came first,
// gets at most the answer that was being delivered. The tracker is told of every death, strictly in turn. Opening and closing
// resolvers returns on every thread.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
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
    std::atomic<std::uint64_t> silent{0};  // destroyed without an event: it was cancelled first
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

// Answers at once, later on a thread of its own, or never; streams get more values than they want.
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
        turns_.change([](auto& turns) { turns.isWrong = turns.isWrong || turns.added++ != turns.removed; });
        if (resolver_ == 0) resolver_ = runtime_.openResolver(info, *this, reader_);
    }
    void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
    void removed() override {
        turns_.change([](auto& turns) { turns.isWrong = turns.isWrong || ++turns.removed != turns.added; });
    }
    void resolved(std::uint64_t, kelo::IKeloApi* api) override {
        api_.change([&](auto& value) { value = api; });
    }
    void gone() override {}
    kelo::IKeloApi& api() {
        if (!api_.waitFor([](kelo::IKeloApi* api) { return api != nullptr; })) std::abort();
        return *api_.get();
    }
    // Waits until the service has appeared and disappeared so many times. False if that does not happen, or not in turn.
    bool waitFor(std::uint64_t added, std::uint64_t removed) {
        const auto arrived = [=](const Turns& turns) { return turns.added == added && turns.removed == removed; };
        return turns_.waitFor(arrived) && !turns_.get().isWrong;
    }

private:
    struct Turns {
        std::uint64_t added = 0;
        std::uint64_t removed = 0;
        bool isWrong = false;
    };

    kelo::runtime::IKeloRuntime& runtime_;
    comm::ActiveObject* const reader_;
    std::uint64_t resolver_ = 0;
    Watched<kelo::IKeloApi*> api_;
    Watched<Turns> turns_;
};

// Opens and closes resolvers with readers: on the caller's thread, on the readers, and in the resolvers' own callbacks.
class Mover final : public kelo::runtime::IKeloRuntime::IKeloServiceResolver {
public:
    Mover(kelo::runtime::IKeloRuntime& runtime, std::vector<comm::ActiveObject*> readers, std::uint64_t seed)
        : runtime_{runtime}, readers_{std::move(readers)}, random_{seed} {
        info_.servicePath = servicePath;
    }

    void move() {
        comm::ActiveObject* const reader = any();
        const std::uint64_t draw = below(8);
        if (draw < 3) return open();
        if (draw < 6) return closeOne();
        kelo::post(*reader, [this, draw] { draw == 6 ? open() : closeOne(); });
    }
    std::uint64_t moves() const noexcept { return moves_; }

    void resolved(std::uint64_t handle, kelo::IKeloApi*) override {
        const std::uint64_t draw = below(4);
        if (draw > 1) return;
        // Runs in the reader's place, if the reader sleeps.
        kelo::postBrief(*any(), [] {});
        runtime_.closeResolver(handle);
    }
    void gone() override {
        if (below(4) == 0) closeOne();
    }

private:
    std::uint64_t below(std::uint64_t end) {
        const std::lock_guard lock{mutex_};
        return random_.below(end);
    }
    comm::ActiveObject* any() { return readers_[below(readers_.size())]; }
    void open() {
        const std::uint64_t handle = runtime_.openResolver(info_, *this, any());
        ++moves_;
        const std::lock_guard lock{mutex_};
        open_.push_back(handle);
    }
    void closeOne() {
        std::uint64_t handle = 0;
        {
            const std::lock_guard lock{mutex_};
            if (open_.empty()) return;
            std::swap(open_[random_.below(open_.size())], open_.back());
            handle = open_.back();
            open_.pop_back();
        }
        runtime_.closeResolver(handle);
        ++moves_;
    }

    kelo::runtime::IKeloRuntime& runtime_;
    const std::vector<comm::ActiveObject*> readers_;
    kelo::runtime::KeloServiceTrackerInfo info_;
    std::mutex mutex_;
    hmxsim::Random random_;
    std::vector<std::uint64_t> open_;
    std::atomic<std::uint64_t> moves_{0};
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

// Sends requests and cancels them a moment later; run by several threads.
void race(kelo::IKeloApi& api, Tally& tally, std::uint64_t count, std::uint64_t seed) {
    hmxsim::Random random{seed};
    constexpr const char* paths[] = {"/r/now", "/r/later", "/r/now", "/r/never"};
    std::vector<void*> open;
    for (std::uint64_t i = 0; i < count; ++i) {
        const kelo::Request request{"retrieve", paths[random.below(4)]};
        void* const handle = api.request(request, std::make_unique<Handler>(tally, random.below(2) == 0));
        open.push_back(handle);
        spin(random.below(15000));
        // Sometimes late, so that answers win too, and some twice.
        if (open.size() > random.below(8)) {
            for (void* each : open) api.cancel(each);
            if (random.below(4) == 0) api.cancel(open.front());
            open.clear();
        }
    }
    for (void* each : open) api.cancel(each);
}

bool report(const Tally& tally, bool isRight, const char* what) {
    const bool held = isRight && tally.wrong == 0 && tally.destroyed == tally.asked && tally.silent > 0 && tally.answered > 0;
    const auto number = [](const std::atomic<std::uint64_t>& value) { return static_cast<unsigned long long>(value); };
    std::printf(
        "%-6s %-12s %s: races %llu, answered first %llu, cancelled first %llu, refused or lost %llu, wrong %llu (limit 0), never "
        "destroyed %llu (limit 0)\n",
        held ? "held" : "BROKEN", "races", what, number(tally.asked), number(tally.answered), number(tally.silent),
        number(tally.failed), number(tally.wrong), number(tally.asked) - number(tally.destroyed));
    return held;
}

// Sends requests while the provider dies and the connection moves.
bool moveAndDie(const std::string& directory, std::uint64_t deaths, std::uint64_t seed) {
    Tally tally;
    bool isRight = true;
    std::uint64_t moves = 0;
    std::uint64_t lives = 0;
    {
        Resource resource;
        kelo::SimpleComposedKeloService service;
        service.registerService("/r", &resource);
        comm::ActiveObject first{"first"};
        comm::ActiveObject second{"second"};
        const auto consuming = startRuntime(directory, "consumer");
        Consumer consumer{*consuming, nullptr};
        Mover mover{*consuming, {&first, &second}, seed};
        std::unique_ptr<kelo::runtime::IKeloRuntime> provider;
        const auto live = [&] {
            provider = startRuntime(directory, "provider");
            provider->registerService(servicePath, service, nullptr);
        };
        live();
        kelo::IKeloApi& api = consumer.api();
        std::atomic<bool> isOver{false};
        std::vector<std::thread> threads;
        for (std::uint64_t i = 0; i < 2; ++i) {
            threads.emplace_back([&, i] {
                for (std::uint64_t round = 0; !isOver; ++round) race(api, tally, 10, (seed + round) * 31 + i);
            });
            threads.emplace_back([&] {
                while (!isOver) {
                    mover.move();
                    std::this_thread::sleep_for(std::chrono::microseconds{50});
                }
            });
        }
        hmxsim::Random random{seed};
        for (std::uint64_t death = 1; death <= deaths && isRight; ++death) {
            spin(random.below(100'000));
            provider.reset();
            isRight = consumer.waitFor(death, death);
            live();
            const std::uint64_t answered = tally.answered;
            isRight = isRight && consumer.waitFor(death + 1, death) &&
                      testing_support::eventually([&] { return tally.answered > answered; });
            if (isRight) ++lives;
        }
        isOver = true;
        for (auto& thread : threads) thread.join();
        for (comm::ActiveObject* reader : {&first, &second}) {
            std::promise<void> through;
            kelo::post(*reader, [&] { through.set_value(); });
            through.get_future().get();
        }
        moves = mover.moves();
        consuming->stop();
        provider->stop();
    }
    const std::string what = "a provider that dies and a reader that changes leave one end: deaths " + std::to_string(lives) +
                             " of " + std::to_string(deaths) + ", moves " + std::to_string(moves);
    return report(tally, isRight && moves > 0, what.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    ::setenv("KELO_TRACE", "*=5", 0);
    const std::uint64_t races = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200'000;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    const std::uint64_t deaths = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1'000;
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
    const bool held = report(tally, tally.asked >= races, "a cancellation and an answer that meet leave one end");
    return moveAndDie(directory.path(), deaths, seed) && held ? 0 : 1;
}
