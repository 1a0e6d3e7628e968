// Providers and consumers over real sockets: how requests end, how services come and go, and what misbehaving peers must not be
// able to do.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo/account.h"
#include "kelo/errors.h"
#include "kelo/func_call_event.h"
#include "kelo/resource_handler.h"
#include "kelo/runtime/kelo_runtime.h"
#include "support/as_user.h"
#include "support/eventually.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using kelo::Response;
using kelo::runtime::IKeloRuntime;
using kelo::runtime::KeloServiceTrackerInfo;
using kelo::runtime::RuntimeOptions;
using testing_support::asUser;
using testing_support::Bytes;
using testing_support::eventually;
using testing_support::RawPeer;
using testing_support::User;
using testing_support::Watched;

constexpr const char* servicePath = "/provider";
constexpr const char* socketFile = "%2Fprovider.sock";

kelo::Payload text(std::string_view content) {
    return kelo::Payload::copyOf(content, kelo::MimeType{"plain/text"});
}

// Answers by path: "/r/echo" with the payload, "/r/much" with 20 kB, "/r/slow" never, "/r/drop" by destroying the responder,
// "/r/fail" with an error, "/r/open" with what the test sends later through `responders`.
class Resource final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder,
                        const std::string& tag) override {
        lastTag.change([&](auto& value) { value = tag; });
        if (request.path() == "/r/echo" || request.path() == "/r/much") {
            kelo::Payload payload =
                request.path() == "/r/much" ? text(std::string(20'000, 'x')) : kelo::Payload{request.payload()};
            if (!responder->next(Response{200, std::move(payload)})) responder->completed();
            return nullptr;
        }
        if (request.path() == "/r/fail") {
            responder->error(Response::createErrorResponse(418, "refused"));
            return nullptr;
        }
        if (request.path() == "/r/drop") return nullptr;
        if (request.path() == "/r/throw") throw std::runtime_error{"handler broke"};
        void* const handle = reinterpret_cast<void*>(++serial_);
        responders.change([&](auto& all) { all.push_back(std::move(responder)); });
        return handle;
    }
    void cancelRequest(void* handle) override {
        cancelled.change([&](auto& all) { all.push_back(handle); });
    }

    Watched<std::string> lastTag;
    struct Responders {
        std::vector<std::shared_ptr<kelo::IResponder>> all;
        void push_back(std::unique_ptr<kelo::IResponder> responder) { all.push_back(std::move(responder)); }
        std::size_t size() const { return all.size(); }
    };
    Watched<Responders> responders;
    Watched<std::vector<void*>> cancelled;

private:
    std::uintptr_t serial_ = 0;
};

// Like a provider process, but in this process.
struct Provider {
    explicit Provider(const std::string& directory, kelo::Limits limits = {}) {
        RuntimeOptions options;
        options.directory = directory;
        options.applicationName = "provider";
        options.limits = limits;
        service.registerService("/r", &resource);
        runtime = kelo::runtime::createRuntime(options);
        started = runtime->start(0);
        runtime->registerService(servicePath, service, &published);
    }
    ~Provider() { runtime->stop(); }

    struct Published final : IKeloRuntime::IKeloServiceTracker {
        void added(const KeloServiceTrackerInfo&) override {
            count.change([](int& n) { ++n; });
        }
        void modified(const KeloServiceTrackerInfo&) override {}
        void removed() override {
            count.change([](int& n) { --n; });
            removals.change([](int& n) { ++n; });
        }
        Watched<int> count;
        Watched<int> removals;
    };

    Resource resource;
    kelo::SimpleComposedKeloService service;
    Published published;
    std::unique_ptr<IKeloRuntime> runtime;
    bool started = false;
};

// What a handler received, as text: "next:hello", "error:503 …", "completed".
struct Events {
    std::vector<std::string> told;
    bool destroyed = false;
    std::thread::id thread;
};

class Handler final : public kelo::IResponseHandler<Response> {
public:
    Handler(std::shared_ptr<Watched<Events>> events, bool oneShot, std::size_t wanted, kelo::Account* account = nullptr)
        : events_{std::move(events)}, oneShot_{oneShot}, wanted_{wanted}, account_{account} {}
    ~Handler() override {
        events_->change([](Events& events) { events.destroyed = true; });
    }
    bool onNext(const Response& value) override {
        tell("next:" + std::string{value.payload().text()});
        return ++taken_ >= wanted_;
    }
    void onError(const Response& response) override { tell("error:" + response.toString()); }
    void onCompleted() override { tell("completed"); }
    bool isOneShot() const override { return oneShot_; }
    kelo::Account* account() const override { return account_; }

private:
    void tell(const std::string& what) {
        events_->change([&](Events& events) {
            events.told.push_back(what);
            events.thread = std::this_thread::get_id();
        });
    }
    std::shared_ptr<Watched<Events>> events_;
    bool oneShot_;
    std::size_t wanted_;
    kelo::Account* account_;
    std::size_t taken_ = 0;
};

// Like a consumer process, but in this process: tracks the provider and records what it receives.
class Consumer final : public IKeloRuntime::IKeloServiceTracker, public IKeloRuntime::IKeloServiceResolver {
public:
    explicit Consumer(const std::string& directory, comm::ActiveObject* reader = nullptr, kelo::Limits limits = {})
        : reader_{reader} {
        RuntimeOptions options;
        options.directory = directory;
        options.limits = limits;
        options.applicationName = "consumer";
        runtime = kelo::runtime::createRuntime(options);
        runtime->start(0);
        tracker = runtime->trackService(servicePath, *this, 0);
    }
    ~Consumer() override { runtime->stop(); }

    void added(const KeloServiceTrackerInfo& found) override {
        heard.change([&](auto& all) { all.push_back("added " + std::to_string(found.incarnation)); });
        info.change([&](auto& value) { value = found; });
        if (resolver == IKeloRuntime::UNDEFINED_RESOLVER_HANDLE) resolver = runtime->openResolver(found, *this, reader_);
    }
    void modified(const KeloServiceTrackerInfo&) override {}
    void removed() override {
        heard.change([](auto& all) { all.emplace_back("removed"); });
    }
    void resolved(std::uint64_t, kelo::IKeloApi* resolvedApi) override {
        api.change([&](auto& value) { value = resolvedApi; });
        heard.change([](auto& all) { all.emplace_back("resolved"); });
    }
    void gone() override {
        heard.change([](auto& all) { all.emplace_back("gone"); });
    }

    kelo::IKeloApi* waitForApi() {
        api.waitFor([](kelo::IKeloApi* value) { return value != nullptr; });
        return api.get();
    }
    std::shared_ptr<Watched<Events>> ask(const std::string& path, bool oneShot = true, std::size_t wanted = 1,
                                         std::string_view payload = {}, int deadline = 10'000) {
        auto events = std::make_shared<Watched<Events>>();
        kelo::Request request{"retrieve", path, text(payload)};
        handle = waitForApi()->request(request, std::make_unique<Handler>(events, oneShot, wanted, onBehalfOf),
                                       {std::chrono::milliseconds{deadline}});
        return events;
    }

    Watched<std::vector<std::string>> heard;
    Watched<kelo::IKeloApi*> api;
    Watched<KeloServiceTrackerInfo> info;
    std::unique_ptr<IKeloRuntime> runtime;
    std::uint64_t tracker = 0;
    std::uint64_t resolver = IKeloRuntime::UNDEFINED_RESOLVER_HANDLE;
    void* handle = nullptr;
    kelo::Account* onBehalfOf = nullptr;

private:
    comm::ActiveObject* reader_;
};

std::vector<std::string> ended(Watched<Events>& events) {
    EXPECT_TRUE(events.waitFor([](const Events& e) { return e.destroyed; })) << "the request never ended";
    return events.get().told;
}

using Told = std::vector<std::string>;

class RuntimeTest : public testing::Test {
protected:
    testing_support::TemporaryDirectory directory;
};

TEST_F(RuntimeTest, EveryWayInWhichARequestEnds) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "hello")), (Told{"next:hello"}));
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 9, "hello")), (Told{"next:hello", "completed"}))
        << "a one-shot answer ends the request";
    EXPECT_EQ(ended(*consumer.ask("/r/echo", false, 9, "hello")), (Told{"next:hello", "completed"}));
    EXPECT_EQ(ended(*consumer.ask("/r/fail")), (Told{"error:418 refused"}));
    EXPECT_EQ(ended(*consumer.ask("/r/drop")), (Told{"error:503 /provider: no answer, outcome unknown"}));
    EXPECT_EQ(ended(*consumer.ask("/r/throw")), (Told{"error:503 /provider: no answer, outcome unknown"}));
    EXPECT_EQ(ended(*consumer.ask("/none/x")), (Told{"error:404 /provider has no resource for the path '/none/x'"}));
    EXPECT_EQ(ended(*consumer.ask("/r/slow", true, 1, {}, 30)),
              (Told{"error:504 /provider: no answer within 30 ms, outcome unknown"}));
    EXPECT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 1; }))
        << "a request given up is cancelled";
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, std::string(2U << 20U, 'x'))),
              (Told{"error:413 /provider: request larger than a frame may be, not sent"}));
    EXPECT_EQ(provider.resource.lastTag.get(), "consumer");
    const auto info = consumer.info.get();
    EXPECT_EQ(info.applicationName, "provider");
    EXPECT_EQ(info.pid, ::getpid());
    EXPECT_EQ(kelo::runtime::getMimeType(info), "application/json");
}

TEST_F(RuntimeTest, AStreamGoesOnUntilItsConsumerHasEnough) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    const auto events = consumer.ask("/r/open", false, 3);
    ASSERT_TRUE(provider.resource.responders.waitFor([](const auto& all) { return all.size() == 1; }));
    const auto responder = provider.resource.responders.get().all[0];
    EXPECT_FALSE(responder->next(Response{200, text("one")}));
    EXPECT_FALSE(responder->next(Response{200, text("two")}));
    EXPECT_FALSE(responder->next(Response{200, text("three")}));
    EXPECT_EQ(ended(*events), (Told{"next:one", "next:two", "next:three"}));
    ASSERT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 1; }));
    EXPECT_TRUE(responder->next(Response{200, text("four")})) << "the client wants no more";
}

TEST_F(RuntimeTest, CancellingIsSilentAndRepeatsAreIgnored) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    const auto events = consumer.ask("/r/open", false, 3);
    kelo::IKeloApi* const api = consumer.waitForApi();
    api->cancel(consumer.handle);
    api->cancel(consumer.handle);
    api->cancel(reinterpret_cast<void*>(std::uintptr_t{0x123456789}));
    EXPECT_EQ(ended(*events), Told{});
    EXPECT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 1; }));
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "still here")), (Told{"next:still here"}));
}

TEST_F(RuntimeTest, LosingTheProviderEndsWhatIsOpenAndTrackingGoesOn) {
    Consumer consumer{directory.path()};
    for (int round = 1; round <= 10; ++round) {
        std::shared_ptr<Watched<Events>> open;
        {
            Provider provider{directory.path()};
            ASSERT_TRUE(
                consumer.heard.waitFor([&](const auto& all) { return all.size() == static_cast<std::size_t>(round) * 4 - 2; }));
            open = consumer.ask("/r/open", false, 3);
            ASSERT_TRUE(provider.resource.responders.waitFor([](const auto& all) { return all.size() == 1; }));
        }
        EXPECT_EQ(ended(*open), (Told{"error:503 /provider: connection lost, outcome unknown"}));
        ASSERT_TRUE(consumer.heard.waitFor([&](const auto& all) { return all.size() == static_cast<std::size_t>(round) * 4; }));
        EXPECT_EQ(ended(*consumer.ask("/r/echo")), (Told{"error:503 /provider: service not available, request not sent"}));
    }
    const Told heard = consumer.heard.get();
    for (std::size_t i = 0; i < heard.size(); i += 4) {
        EXPECT_EQ(heard[i], "added " + std::to_string(i / 4 + 1));
        EXPECT_EQ(heard[i + 1], "resolved");
        EXPECT_EQ(heard[i + 2], "removed");
        EXPECT_EQ(heard[i + 3], "gone");
    }
}

TEST_F(RuntimeTest, AProviderThatGreetsAndHangsUpIsTriedAgainWithGrowingPauses) {
    using Clock = std::chrono::steady_clock;
    Consumer consumer{directory.path()};
    {
        testing_support::RawListener listener{directory / socketFile};
        Clock::time_point begin;
        for (int i = 0; i < 5; ++i) {
            RawPeer caller = listener.accept();
            if (i == 1) begin = Clock::now();  // the first two may follow at once, because the socket has just appeared
            ASSERT_TRUE(caller.receive());
            caller.send(testing_support::helloFrame(servicePath));
        }
        EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds{10 + 20 + 40});
    }
    Provider successor{directory.path()};  // noticed because it appears, not because of the next try
    EXPECT_TRUE(consumer.info.waitFor([](const auto& found) { return found.applicationName == "provider"; }));
    EXPECT_TRUE(consumer.heard.waitFor([](const auto& all) { return all.back() == "resolved"; }));
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "x")), (Told{"next:x"}));
}

TEST_F(RuntimeTest, AReaderIsCalledOnItsOwnThreadAndMayBeGivenUp) {
    Provider provider{directory.path()};
    comm::ActiveObject reader{"reader"};
    Watched<std::thread::id> readerThread;
    kelo::post(reader, [&] { readerThread.change([](auto& id) { id = std::this_thread::get_id(); }); });
    readerThread.waitFor([](auto id) { return id != std::thread::id{}; });
    Consumer consumer{directory.path(), &reader};
    const auto echo = consumer.ask("/r/echo", true, 1, "a");
    EXPECT_EQ(ended(*echo), (Told{"next:a"}));
    EXPECT_EQ(echo->get().thread, readerThread.get());
    const auto late = consumer.ask("/r/slow", true, 1, {}, 200);
    consumer.runtime->closeResolver(consumer.resolver);
    EXPECT_EQ(ended(*late), (Told{"error:504 /provider: no answer within 200 ms, outcome unknown"}))
        << "deadlines move with the connection";
    EXPECT_NE(late->get().thread, readerThread.get());
}

TEST_F(RuntimeTest, AReaderReadsEachIncarnation) {
    comm::ActiveObject reader{"reader"};
    Watched<std::thread::id> readerThread;
    kelo::post(reader, [&] { readerThread.change([](auto& id) { id = std::this_thread::get_id(); }); });
    Consumer consumer{directory.path(), &reader};
    for (std::size_t round = 1; round <= 3; ++round) {
        Provider provider{directory.path()};
        ASSERT_TRUE(consumer.heard.waitFor([&](const auto& all) { return all.size() == round * 4 - 2; }));
        const auto echo = consumer.ask("/r/echo", true, 1, "a");
        EXPECT_EQ(ended(*echo), (Told{"next:a"}));
        EXPECT_EQ(echo->get().thread, readerThread.get()) << round;
        provider.runtime->stop();
        ASSERT_TRUE(consumer.heard.waitFor([&](const auto& all) { return all.size() == round * 4; }));
    }
}

// A provider made of bytes, and a consumer with a reader of its own.
class CarriedReader : public RuntimeTest {
protected:
    // Accepts the consumer and sends a hello, followed by `more`.
    RawPeer greet(const Bytes& more = {}) {
        RawPeer peer = listener_.accept();
        EXPECT_TRUE(peer.receive());
        Bytes bytes = testing_support::helloFrame(servicePath);
        bytes.insert(bytes.end(), more.begin(), more.end());
        EXPECT_TRUE(peer.send(bytes));
        return peer;
    }
    static Bytes answers(std::uint64_t id, int first, int count) {
        Bytes all;
        for (int i = first; i < first + count; ++i) {
            Bytes body;
            testing_support::appendCborHead(body, 5, 2);
            testing_support::appendCborText(body, "$status");
            testing_support::appendCborHead(body, 0, 200);
            testing_support::appendCborText(body, "$mime-type");
            testing_support::appendCborText(body, "plain/text");
            const std::string value = std::to_string(i);
            body.insert(body.end(), value.begin(), value.end());
            const Bytes next = testing_support::frame(3, 0, id, body);
            all.insert(all.end(), next.begin(), next.end());
        }
        return all;
    }
    bool hears(const std::string& what) {
        return consumer.heard.waitFor([&](const auto& all) { return std::count(all.begin(), all.end(), what) > 0; });
    }

    testing_support::RawListener listener_{directory / socketFile};
    comm::ActiveObject reader{"reader"};
    Consumer consumer{directory.path(), &reader};
};

TEST_F(CarriedReader, ALossIsSeenHoweverMuchWasSaidBefore) {
    for (const int strays : {0, 1, 31, 32, 33, 500}) {
        consumer.heard.change([](auto& all) { all.clear(); });
        greet(answers(99, 0, strays)).close();
        EXPECT_TRUE(hears("removed")) << strays;
    }
}

TEST_F(CarriedReader, WhatWasReceivedMovesWithTheConnection) {
    constexpr int values = 400;
    RawPeer peer = greet();
    const auto events = consumer.ask("/r/open", false, values);
    const std::uint64_t id = peer.receive().value().id;
    // The end of a frame arrives after the move, and during it more frames wait than are handled at a time.
    const Bytes all = answers(id, 0, values);
    const auto half = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2 + 5);
    ASSERT_TRUE(peer.send(Bytes(all.begin(), half)));
    consumer.runtime->closeResolver(consumer.resolver);
    ASSERT_TRUE(peer.send(Bytes(half, all.end())));
    const Told told = ended(*events);
    ASSERT_EQ(told.size(), values);
    for (int i = 0; i < values; ++i) EXPECT_EQ(told[static_cast<std::size_t>(i)], "next:" + std::to_string(i));
    peer.close();
    EXPECT_TRUE(hears("removed"));
}

TEST_F(CarriedReader, WhatIsBlockedIsSentAfterTheMoveToo) {
    RawPeer peer = greet();
    constexpr int requests = 3;
    for (int i = 0; i < requests; ++i) consumer.ask("/r/open", true, 1, std::string(600'000, 'x'));
    consumer.runtime->closeResolver(consumer.resolver);
    for (int i = 0; i < requests; ++i) EXPECT_TRUE(peer.receive()) << i;
}

TEST_F(CarriedReader, WhoWaitsForAMoveIsToldThatItIsNotWantedAnyMore) {
    const RawPeer peer = greet();
    ASSERT_NE(consumer.waitForApi(), nullptr);
    std::promise<void> isIdle;
    kelo::post(reader, [&] { isIdle.get_future().wait(); });
    const auto closing = std::async(std::launch::async, [&] { consumer.runtime->closeResolver(consumer.resolver); });
    std::this_thread::sleep_for(std::chrono::milliseconds{50});  // until it waits for the reader
    const std::uint64_t again = consumer.runtime->openResolver(consumer.info.get(), consumer, &reader);
    EXPECT_EQ(closing.wait_for(std::chrono::seconds{5}), std::future_status::ready);
    isIdle.set_value();
    consumer.runtime->closeResolver(again);
}

TEST_F(CarriedReader, AResolverMayBeClosedAndReopenedInItsOwnCallbacks) {
    // Closed while the thread that calls back has just taken hold of the reader, and on the reader itself.
    struct Closing final : IKeloRuntime::IKeloServiceResolver {
        Closing(Consumer& owner, comm::ActiveObject& worker) : consumer{owner}, reader{worker} {}
        void resolved(std::uint64_t handle, kelo::IKeloApi*) override {
            kelo::postBrief(reader, [] {});
            consumer.runtime->closeResolver(handle);
            if (++rounds < 50) {
                consumer.runtime->openResolver(consumer.info.get(), *this, &reader);
                kelo::post(reader, [this] {
                    consumer.runtime->closeResolver(consumer.runtime->openResolver(consumer.info.get(), *this, &reader));
                });
            } else {
                done.change([](bool& value) { value = true; });
            }
        }
        void gone() override {}
        Consumer& consumer;
        comm::ActiveObject& reader;
        int rounds = 0;
        Watched<bool> done;
    };
    RawPeer peer = greet();
    ASSERT_NE(consumer.waitForApi(), nullptr);
    Closing closing{consumer, reader};
    consumer.runtime->openResolver(consumer.info.get(), closing, &reader);
    ASSERT_TRUE(closing.done.waitFor([](bool value) { return value; }));
    const auto events = consumer.ask("/r/open", false, 1);
    ASSERT_TRUE(peer.send(answers(peer.receive().value().id, 0, 1)));
    EXPECT_EQ(ended(*events), Told{"next:0"});
    consumer.runtime->stop();
}

TEST_F(RuntimeTest, APathHasOneOwnerAndIsTakenOverWhenThatEnds) {
    auto first = std::make_unique<Provider>(directory.path());
    ASSERT_TRUE(first->published.count.waitFor([](int n) { return n == 1; }));
    Provider second{directory.path()};
    Consumer consumer{directory.path()};
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "x")), (Told{"next:x"}));
    EXPECT_EQ(second.published.count.get(), 0);
    first.reset();
    EXPECT_TRUE(second.published.count.waitFor([](int n) { return n == 1; }));
    ASSERT_TRUE(consumer.heard.waitFor([](const auto& all) { return all.size() == 6; }));
    EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "y")), (Told{"next:y"}));
}

TEST_F(RuntimeTest, ADirectoryThatIsRemovedIsMadeAgainAndServicesReturn) {
    const std::string inner = directory / "domain";
    Provider provider{inner};
    Consumer before{inner};
    ASSERT_NE(before.waitForApi(), nullptr);
    // A live connection keeps the removed directory alive in the kernel, which then does not report its removal. Twice, because
    // the new directory must be watched too.
    for (int round = 0; round < 2; ++round) {
        std::error_code error;
        EXPECT_TRUE(testing_support::eventually([&] { return std::filesystem::remove_all(inner, error) > 0 && !error; }))
            << round;
        EXPECT_TRUE(testing_support::eventually([&] { return RawPeer{inner + "/" + socketFile}.isOpen(); })) << round;
        EXPECT_TRUE(provider.published.removals.waitFor([&](int n) { return n == round + 1; })) << round;
    }
    Consumer after{inner};
    EXPECT_EQ(ended(*after.ask("/r/echo", true, 1, "again")), (Told{"next:again"}));
    EXPECT_EQ(ended(*before.ask("/r/echo", true, 1, "still")), (Told{"next:still"})) << "a live connection needs no directory";
}

TEST_F(RuntimeTest, ADirectoryThatIsReplacedByAnUnsafeOneIsNotUsed) {
    const std::string inner = directory / "domain";
    fs::create_directory(directory / "elsewhere");
    Provider provider{inner};
    const Consumer consumer{inner};
    EXPECT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    std::error_code error;
    EXPECT_TRUE(testing_support::eventually([&] {
        fs::remove_all(inner, error);
        fs::create_directory_symlink(directory / "elsewhere", inner, error);
        return !error;
    }));
    // Longer than any pause between two tries.
    std::this_thread::sleep_for(std::chrono::milliseconds{400});
    EXPECT_TRUE(fs::is_empty(directory / "elsewhere"));
    fs::remove(inner);
    EXPECT_TRUE(testing_support::eventually([&] { return RawPeer{inner + "/" + socketFile}.isOpen(); }));
}

TEST_F(RuntimeTest, ADirectoryMayHaveALongerNameThanASocketsAddress) {
    for (const std::size_t length : {40U, 60U, 75U, 100U, 250U}) {
        Provider provider{directory / std::string(length, 'd')};
        Consumer consumer{directory / std::string(length, 'd')};
        EXPECT_EQ(ended(*consumer.ask("/r/echo", true, 1, "x")), (Told{"next:x"})) << length;
    }
}

TEST_F(RuntimeTest, UnsafeDirectoriesAreRefusedWithTheReason) {
    fs::create_directory(directory / "target");
    fs::create_symlink(directory / "target", directory / "link");
    fs::create_directory(directory / "open");
    ::chmod((directory / "open").c_str(), 0777);
    fs::create_directory(directory / "group");
    ::chmod((directory / "group").c_str(), 0770);
    fs::create_directory(directory / "sticky");
    ::chmod((directory / "sticky").c_str(), 01777);
    fs::create_directory(directory / "open/inner");
    { const RawPeer file{::open((directory / "file").c_str(), O_CREAT | O_RDWR, 0600)}; }
    struct Case {
        const char* name;
        const char* reason;  // null: accepted
    };
    std::vector<Case> cases{
        {"fresh/with/parents", nullptr},
        {"sticky", nullptr},
        {"link", "is a symbolic link"},
        {"open", "may be written to by others"},
        {"group", "may be written to by others"},
        {"open/inner", "the directory above"},
        {"file", "Not a directory"},
    };
    if (::geteuid() == 0) {
        fs::create_directory(directory / "foreign");
        ASSERT_EQ(::chown((directory / "foreign").c_str(), 12345, 12345), 0);
        cases.push_back({"foreign", "belongs to uid 12345"});
    }
    for (const auto& [name, reason] : cases) {
        std::ErrorStorage::ack();
        const Provider provider{directory / name};
        EXPECT_EQ(provider.started, reason == nullptr) << name;
        const std::string said = std::ErrorStorage::reason();
        if (reason != nullptr) {
            EXPECT_NE(said.find(reason), std::string::npos) << name << " said: " << said;
        }
    }
    std::ErrorStorage::ack();
}

TEST_F(RuntimeTest, WhatAPeerGarblesEndsItsOwnConnectionAlone) {
    kelo::Limits limits;
    limits.incompleteFrame = std::chrono::milliseconds{100};
    Provider provider{directory.path(), limits};
    Consumer witness{directory.path()};
    ASSERT_NE(witness.waitForApi(), nullptr);
    const Bytes hello = testing_support::helloFrame(servicePath);
    const auto after = [&](Bytes more) {
        Bytes all = hello;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    const Bytes request = testing_support::requestFrame(1, "retrieve", "/r/open");
    Bytes twice = request;
    twice.insert(twice.end(), request.begin(), request.end());
    Bytes huge = testing_support::frame(2, 1, 1, {});
    huge[3] = 0x10;
    const std::vector<std::pair<const char*, Bytes>> cases{
        {"noise", Bytes(64, 0xee)},
        {"a request before the hello", request},
        {"another version", testing_support::helloFrame(servicePath, 2)},
        {"a hello to another service", testing_support::helloFrame("/other")},
        {"a second hello", after(hello)},
        {"a frame beyond the limit", after(huge)},
        {"an id used twice", after(twice)},
        {"an answer", after(testing_support::frame(5, 0, 1, {0xa0}))},
        {"a cancel with a body", after(testing_support::frame(6, 0, 1, {0xa1}))},
        {"a header map that is none", after(testing_support::frame(2, 1, 1, {0x01}))},
        {"a frame that is not completed in time", after({request.begin(), request.end() - 1})},
    };
    for (const auto& [what, bytes] : cases) {
        RawPeer peer{directory / socketFile};
        ASSERT_TRUE(peer.send(bytes)) << what;
        EXPECT_TRUE(peer.seesEnd()) << what;
        EXPECT_EQ(ended(*witness.ask("/r/echo", true, 1, what)), (Told{std::string{"next:"} + what}));
    }
}

TEST_F(RuntimeTest, FramesMayArriveInAnyPieces) {
    Provider provider{directory.path()};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    RawPeer peer{directory / socketFile};
    Bytes bytes = testing_support::helloFrame(servicePath);
    const Bytes request = testing_support::requestFrame(5, "retrieve", "/r/echo", true, "piecewise");
    bytes.insert(bytes.end(), request.begin(), request.end());
    for (const std::uint8_t byte : bytes) ASSERT_TRUE(peer.send({byte}));
    ASSERT_EQ(peer.receive().value().type, 1);
    const auto answer = peer.receive();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->type, 3);
    EXPECT_EQ(answer->flags, 2);
    EXPECT_EQ(answer->id, 5U);
    EXPECT_TRUE(answer->bodyContains("piecewise"));
}

TEST_F(RuntimeTest, RequestsBeyondTheLimitAreRefusedAndCancelledOnesStillCount) {
    kelo::Limits limits;
    limits.oneShotRequests = 4;
    limits.openRequests = 16;  // of all clients, which is less than are asked one after the other below
    Provider provider{directory.path(), limits};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    RawPeer peer{directory / socketFile};
    Bytes bytes = testing_support::helloFrame(servicePath);
    const auto add = [&](const Bytes& frame) { bytes.insert(bytes.end(), frame.begin(), frame.end()); };
    for (std::uint64_t id = 1; id <= 4; ++id) add(testing_support::requestFrame(id, "retrieve", "/r/open"));
    for (std::uint64_t id = 1; id <= 4; ++id) add(testing_support::frame(6, 0, id, {}));
    add(testing_support::requestFrame(5, "retrieve", "/r/open"));
    ASSERT_TRUE(peer.send(bytes));
    ASSERT_EQ(peer.receive().value().type, 1);
    const auto refusal = peer.receive();
    ASSERT_TRUE(refusal.has_value());
    EXPECT_EQ(refusal->type, 4);
    EXPECT_TRUE(refusal->bodyContains("too many requests in flight"));
    provider.resource.responders.change([](auto& all) { all.all.clear(); });
    for (std::uint64_t id = 6; id <= 40; ++id) {
        ASSERT_TRUE(peer.send(testing_support::requestFrame(id, "retrieve", "/r/echo", true, "room again")));
        ASSERT_TRUE(peer.receive().value().bodyContains("room again")) << id;
    }
}

// Calls `onValue` for a value; records other events as Handler does.
class Meddling final : public kelo::IResponseHandler<Response> {
public:
    Meddling(std::shared_ptr<Watched<Events>> events, bool oneShot, std::function<void()> onValue)
        : inner_{std::move(events), oneShot, 9}, onValue_{std::move(onValue)} {}
    bool onNext(const Response&) override {
        onValue_();
        return false;
    }
    void onError(const Response& response) override { inner_.onError(response); }
    void onCompleted() override { inner_.onCompleted(); }
    bool isOneShot() const override { return inner_.isOneShot(); }

private:
    Handler inner_;
    std::function<void()> onValue_;
};

TEST_F(RuntimeTest, AHandlerMayFailOrGiveUpWhileItHasAValue) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    kelo::IKeloApi* const api = consumer.waitForApi();
    void* handle = nullptr;  // written before the provider answers, and read after that
    const auto fail = [] { throw std::runtime_error{"broken"}; };
    const auto giveUp = [&] { api->cancel(handle); };
    std::size_t asked = 0;
    const auto toldOf = [&](bool oneShot, const std::function<void()>& onValue) {
        const auto events = std::make_shared<Watched<Events>>();
        handle = api->request(kelo::Request{"retrieve", "/r/open"}, std::make_unique<Meddling>(events, oneShot, onValue));
        ++asked;
        EXPECT_TRUE(provider.resource.responders.waitFor([&](const auto& all) { return all.size() == asked; }));
        EXPECT_EQ(provider.resource.responders.get().all.back()->next(Response{200, text("one")}), oneShot);
        return ended(*events);
    };
    for (const bool oneShot : {false, true}) {
        EXPECT_EQ(toldOf(oneShot, fail), (Told{"error:500 /provider: the answer could not be handled"}));
        EXPECT_EQ(toldOf(oneShot, giveUp), Told{});
    }
    EXPECT_EQ(toldOf(true, [] {}), Told{"completed"}) << "the last value came, but the handler would have taken more";
    EXPECT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 2; })) << "the two streams";
}

// Each of so many clients may have two requests unanswered.
kelo::Limits roomForTwo(std::uint32_t clients) {
    kelo::Limits limits;
    limits.connections = clients;
    limits.awaitedBytes = clients * (std::size_t{512} << 10U);
    limits.oneShotRequests = clients * 2;
    return limits;
}

TEST_F(RuntimeTest, RequestsForWhichThereIsNoRoomWaitForTheirTurn) {
    auto provider = std::make_unique<Provider>(directory.path());
    kelo::Limits limits = roomForTwo(1);
    limits.heldRequests = 4;
    Consumer consumer{directory.path(), nullptr, limits};
    std::vector<std::shared_ptr<Watched<Events>>> asked;
    std::vector<void*> handles;
    for (int i = 0; i < 7; ++i) {
        asked.push_back(consumer.ask("/r/open", true, 1, std::to_string(i), i == 3 ? 50 : 10'000));
        handles.push_back(consumer.handle);
    }
    const auto& arrived = provider->resource.responders;
    const auto answer = [&](std::size_t index) { arrived.get().all[index]->next(Response{200, text("done")}); };
    EXPECT_EQ(ended(*asked[6]), (Told{"error:503 /provider: too many requests in flight, request not sent"}));
    EXPECT_EQ(ended(*asked[3]), (Told{"error:504 /provider: no answer within 50 ms, request not sent"}));
    consumer.waitForApi()->cancel(handles[2]);
    EXPECT_EQ(ended(*asked[2]), Told{});
    ASSERT_TRUE(provider->resource.responders.waitFor([](const auto& all) { return all.size() == 2; }));
    answer(0);
    EXPECT_EQ(ended(*asked[0]), (Told{"next:done"}));
    ASSERT_TRUE(provider->resource.responders.waitFor([](const auto& all) { return all.size() == 3; }));
    answer(2);
    EXPECT_EQ(ended(*asked[4]), (Told{"next:done"})) << "the oldest of those that still wait comes next";
    ASSERT_TRUE(provider->resource.responders.waitFor([](const auto& all) { return all.size() == 4; }));
    const auto waiting = consumer.ask("/r/open");
    provider.reset();
    EXPECT_EQ(ended(*asked[1]), (Told{"error:503 /provider: connection lost, outcome unknown"}));
    EXPECT_EQ(ended(*asked[5]), (Told{"error:503 /provider: connection lost, outcome unknown"}));
    EXPECT_EQ(ended(*waiting), (Told{"error:503 /provider: connection lost, request not sent"}));
}

TEST_F(RuntimeTest, WhateverEndsARequestMakesRoomForTheNext) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path(), nullptr, roomForTwo(1)};
    const auto other = consumer.ask("/r/slow");
    for (const bool isCancelled : {true, false}) {
        const auto first = consumer.ask("/r/slow", true, 1, {}, isCancelled ? 10'000 : 50);
        void* const handle = consumer.handle;
        const auto next = consumer.ask("/r/echo", true, 1, "its turn");
        if (isCancelled) consumer.waitForApi()->cancel(handle);
        EXPECT_EQ(ended(*next), (Told{"next:its turn"})) << isCancelled;
    }
}

TEST_F(RuntimeTest, AClientThatAsksForMuchLeavesRoomForAnother) {
    constexpr const char* refused = "error:503 /provider: too many requests in flight, request not sent";
    Provider provider{directory.path()};
    kelo::Limits limits = roomForTwo(2);
    limits.openStreams = 4;
    limits.heldRequests = 8;
    Consumer consumer{directory.path(), nullptr, limits};
    const auto greedy = std::make_shared<kelo::Account>(1, 0U);
    const auto polite = std::make_shared<kelo::Account>(2, 0U);
    std::vector<std::shared_ptr<Watched<Events>>> asked;
    const auto ask = [&](const std::shared_ptr<kelo::Account>& account, bool oneShot, const char* path) {
        consumer.onBehalfOf = account.get();
        asked.push_back(consumer.ask(path, oneShot));
    };
    auto& responders = provider.resource.responders;
    const auto arrive = [&](std::size_t count) {
        return responders.waitFor([count](const auto& all) { return all.size() == count; });
    };
    // Of each kind, half of the common half and the account's own part: two streams, which await an answer, and four held
    // requests.
    for (int i = 0; i < 3; ++i) ask(greedy, false, "/r/open");
    for (int i = 0; i < 5; ++i) ask(greedy, true, "/r/open");
    EXPECT_EQ(ended(*asked[2]), Told{refused});
    EXPECT_EQ(ended(*asked[7]), Told{refused});
    EXPECT_EQ(greedy->heldRequests, 4U);
    ask(polite, true, "/r/echo");
    EXPECT_EQ(ended(*asked.back()), Told{"next:"});
    ask(polite, false, "/r/open");
    ASSERT_TRUE(arrive(3));
    // No held request is forgotten. The first answer makes room, also that of a stream.
    std::size_t arrived = 3;
    for (const std::size_t index : {0U, 1U, 3U, 4U, 5U, 6U}) {
        responders.get().all[index]->next(Response{200, text("done")});
        arrived = std::min<std::size_t>(arrived + 1, 7);
        ASSERT_TRUE(arrive(arrived)) << index;
    }
    for (std::size_t i = 3; i < 7; ++i) EXPECT_EQ(ended(*asked[i]), Told{"next:done"}) << i;
    EXPECT_EQ(greedy->heldRequests + greedy->heldBytes, 0U);
}

TEST_F(RuntimeTest, WhatIsCalledNotSentNeverArrives) {
    testing_support::RawListener listener{directory / socketFile};
    kelo::Limits limits;
    limits.oneShotRequests = 1'000'000;  // so many wait in the queue
    Consumer consumer{directory.path(), nullptr, limits};
    RawPeer provider = listener.accept();
    ASSERT_TRUE(provider.receive());
    provider.send(testing_support::helloFrame(servicePath));
    // More than the socket and the queue can take, while the provider does not read.
    constexpr int count = 200;
    const std::string filling(4096, '.');
    std::vector<std::shared_ptr<Watched<Events>>> asked;
    std::set<int> cancelled;
    for (int i = 0; i < count; ++i) {
        asked.push_back(consumer.ask("/r/x", true, 1, filling + "#" + std::to_string(i) + ";", 500));
        if (i % 7 != 0) continue;
        cancelled.insert(i);
        consumer.waitForApi()->cancel(consumer.handle);
    }
    std::set<int> notSent;
    for (int i = 0; i < count; ++i) {
        const Told told = ended(*asked[static_cast<std::size_t>(i)]);
        ASSERT_EQ(told.empty(), cancelled.contains(i));
        if (!told.empty() && told[0].ends_with("request not sent")) notSent.insert(i);
    }
    EXPECT_GT(notSent.size(), 20U);
    EXPECT_FALSE(notSent.contains(1));
    const auto last = consumer.ask("/r/x", true, 1, "#" + std::to_string(count) + ";");
    std::set<std::uint64_t> ids;
    std::size_t cancelledBefore = 0;
    for (int number = 0; number != count;) {
        const auto frame = provider.receive();
        ASSERT_TRUE(frame.has_value());
        if (frame->type == 6) {
            EXPECT_TRUE(ids.contains(frame->id)) << "a cancel of what was never asked";
            continue;
        }
        const std::string body{frame->body.begin(), frame->body.end()};
        number = std::stoi(body.substr(body.rfind('#') + 1));
        ids.insert(frame->id);
        EXPECT_FALSE(notSent.contains(number)) << number;
        cancelledBefore += cancelled.contains(number) ? 1 : 0;
    }
    EXPECT_LT(cancelledBefore, cancelled.size()) << "what was cancelled before it was sent";
}

TEST_F(RuntimeTest, ConnectionsBeyondTheLimitMayAskAboutTheProcess) {
    kelo::Limits limits;
    limits.connections = 2;
    limits.reservedConnections = 1;
    Provider provider{directory.path(), limits};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    std::deque<RawPeer> peers;
    const auto connect = [&](bool greets) {
        peers.emplace_back(directory / socketFile);
        if (greets) peers.back().send(testing_support::helloFrame(servicePath, 1, std::string(300, 'n')));
        return !greets || peers.back().receive().has_value();
    };
    const auto answerTo = [](RawPeer& peer, std::uint64_t id, std::string_view path) {
        peer.send(testing_support::requestFrame(id, "retrieve", path, true, "heard"));
        return peer.receive().value();
    };
    connect(false);
    ASSERT_TRUE(connect(true));
    ASSERT_TRUE(connect(true));
    EXPECT_TRUE(peers[0].seesEnd()) << "it had not said hello when another one came";
    ASSERT_TRUE(connect(true));
    EXPECT_TRUE(answerTo(peers[3], 1, "/r/echo").bodyContains("too many clients are connected, request not sent"));
    EXPECT_TRUE(answerTo(peers[3], 2, "/$platform/status").bodyContains("\"reservedConnections\":1"));
    ASSERT_TRUE(connect(true));
    EXPECT_TRUE(peers[3].seesEnd()) << "the reserve is for whoever comes last";
    peers[1].close();
    EXPECT_TRUE(testing_support::eventually([&, id = std::uint64_t{2}]() mutable {
        return answerTo(peers[4], ++id, "/r/echo").bodyContains("heard");
    })) << "there is room now";
    EXPECT_EQ(provider.resource.lastTag.get(), std::string(limits.nameBytes, 'n'));
}

TEST_F(RuntimeTest, LargeRequestsAndLargeAnswersDoNotWaitForEachOther) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    const std::string large(100'000, 'x');
    std::vector<std::shared_ptr<Watched<Events>>> asked;
    for (int i = 0; i < 35; ++i) asked.push_back(consumer.ask("/r/echo", true, 1, large, 5000));
    for (const auto& events : asked) EXPECT_EQ(ended(*events), (Told{"next:" + large}));
}

TEST_F(RuntimeTest, ASlowReaderGetsTheNewestValueAndCostsNobodyMemory) {
    Provider provider{directory.path()};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    RawPeer peer{directory / socketFile};
    Bytes bytes = testing_support::helloFrame(servicePath);
    const Bytes open = testing_support::requestFrame(1, "retrieve", "/r/open", false);
    bytes.insert(bytes.end(), open.begin(), open.end());
    ASSERT_TRUE(peer.send(bytes));
    ASSERT_TRUE(provider.resource.responders.waitFor([](const auto& all) { return all.size() == 1; }));
    const auto responder = provider.resource.responders.get().all[0];
    constexpr int values = 20'000;
    const std::string filling(1000, '.');
    ASSERT_EQ(peer.receive().value().type, 1);
    int received = 0;
    int newest = 0;
    // False at the end of the stream. Each value must be newer than the last.
    const auto receiveOne = [&] {
        const auto next = peer.receive();
        if (!next || next->type != 3) return false;
        const std::string body{next->body.begin(), next->body.end()};
        const int value = std::stoi(body.substr(body.rfind(' ')));
        EXPECT_GT(value, newest);
        newest = value;
        return ++received > 0;
    };
    for (int i = 1; i <= values; ++i) {
        ASSERT_FALSE(responder->next(Response{200, text(filling + "value " + std::to_string(i))}));
        // Sometimes it reads a little, so that its queue is alternately too long and not.
        for (int j = 0; i % 100 == 0 && j < 20 && newest < i; ++j) ASSERT_TRUE(receiveOne());
    }
    responder->completed();
    while (receiveOne()) {
    }
    EXPECT_EQ(newest, values) << "the newest value never came; " << received << " did";
    EXPECT_LT(received, values / 2) << "values that nobody had read were kept";
}

// A provider that keeps little, and a client that sends many requests and reads only when the test says so.
class UnreadAnswers : public RuntimeTest {
protected:
    static constexpr std::uint64_t requests = 40;

    void ask(bool oneShot) {
        kelo::Limits limits;
        limits.queuedSoftBytes = 256U * 1024U;
        limits.queuedHardBytes = 1024U * 1024U;
        provider.emplace(directory.path(), limits);
        ASSERT_TRUE(provider->published.count.waitFor([](int n) { return n == 1; }));
        peer = std::make_unique<RawPeer>(directory / socketFile);
        peer->send(testing_support::helloFrame(servicePath));
        for (std::uint64_t id = 1; id <= requests; ++id)
            peer->send(testing_support::requestFrame(id, "retrieve", "/r/open", oneShot));
        ASSERT_TRUE(responders().waitFor([](const auto& all) { return all.size() == requests; }));
        EXPECT_EQ(peer->receive().value().type, 1);
    }
    Watched<Resource::Responders>& responders() { return provider->resource.responders; }
    bool answer(std::size_t index, const std::string& value) {
        return responders().get().all[index]->next(Response{200, text(value)});
    }
    // The client's next frame: its request, and the number of the frame's type with the end of its value or with the reason.
    std::pair<std::uint64_t, std::string> read() {
        const auto frame = peer->receive();
        if (!frame) return {};
        const std::string body{frame->body.begin(), frame->body.end()};
        const std::size_t reason = body.find(servicePath);
        return {frame->id, std::to_string(frame->type) + ":" +
                               body.substr(std::min(reason, body.size() - std::min<std::size_t>(1, body.size())))};
    }

    std::optional<Provider> provider;
    std::unique_ptr<RawPeer> peer;
};

constexpr const char* tooMuchUnread = "4:/provider: too much is left unread, outcome unknown";

TEST_F(UnreadAnswers, LargeOnesBeyondTheLimitAreRefusedAndSmallOnesAreNot) {
    ask(true);
    const std::string large(200'000, 'x');
    for (std::size_t i = 0; i + 1 < requests; ++i) EXPECT_TRUE(answer(i, large));
    answer(requests - 1, "small");
    std::size_t refused = 0;
    for (std::uint64_t id = 1; id < requests; ++id) refused += read().second == tooMuchUnread ? 1 : 0;
    EXPECT_GT(refused, requests / 2);
    EXPECT_LT(refused, requests - 3);
    EXPECT_EQ(read(), (std::pair{requests, std::string{"3:l"}}));
}

TEST_F(UnreadAnswers, TheLastLimitEndsTheConnection) {
    ask(true);
    for (std::size_t i = 0; i < requests; ++i) answer(i, std::string(60'000, 'x'));
    EXPECT_TRUE(peer->seesEnd());
}

TEST_F(UnreadAnswers, EqualValuesOfStreamsAreKeptOnceAndOthersEndTheirStreamAlone) {
    ask(false);
    const std::string large(200'000, 'x');
    for (const char last : {'1', '2'}) {
        for (std::size_t i = 0; i < requests; ++i) EXPECT_FALSE(answer(i, large + last)) << i;
    }
    std::size_t ended = 0;
    for (std::size_t i = 0; i < requests / 2; ++i) ended += answer(i, large + std::string(i, '.') + '3') ? 1 : 0;
    EXPECT_GT(ended, requests / 4);
    EXPECT_LT(ended, requests / 2);
    // A stream's end comes after its newest value, also if the client ends its side.
    responders().get().all[requests - 1]->completed();
    ::shutdown(peer->fd(), SHUT_WR);
    std::vector<std::string> newest(requests + 1);
    std::vector<std::string> ends(requests + 1);
    for (std::size_t open = requests; open > 0;) {
        const auto [id, told] = read();
        ASSERT_NE(id, 0U);
        ASSERT_EQ(ends[id], "");
        (told.starts_with("3") ? newest : ends)[id] = told;
        if (!told.starts_with("3")) --open;
    }
    EXPECT_TRUE(peer->seesEnd());
    for (std::uint64_t id = 1; id <= requests; ++id) {
        if (ends[id] == tooMuchUnread) {
            --ended;
        } else {
            EXPECT_EQ(newest[id], id <= requests / 2 ? "3:3" : "3:2") << id;
            EXPECT_TRUE(ends[id].starts_with("5")) << ends[id];
        }
    }
    EXPECT_EQ(ended, 0U);
}

TEST_F(RuntimeTest, AClientThatEndsItsSideIsAnsweredFirst) {
    kelo::Limits limits;
    limits.requestDeadline = std::chrono::milliseconds{500};
    Provider provider{directory.path(), limits};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    auto& responders = provider.resource.responders;
    std::size_t asked = 0;
    const auto ask = [&](bool oneShot) {
        RawPeer peer{directory / socketFile};
        peer.send(testing_support::helloFrame(servicePath));
        peer.send(testing_support::requestFrame(1, "retrieve", "/r/open", oneShot));
        EXPECT_TRUE(responders.waitFor([n = ++asked](const auto& all) { return all.size() == n; }));
        EXPECT_EQ(peer.receive().value().type, 1);
        return peer;
    };
    const auto answer = [&] { return responders.get().all.back()->next(Response{200, text("late")}); };
    const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds{50}); };
    for (const bool oneShot : {true, false}) {
        RawPeer peer = ask(oneShot);
        ::shutdown(peer.fd(), SHUT_WR);
        pause();
        EXPECT_TRUE(answer()) << "nothing further is wanted";
        EXPECT_TRUE(peer.receive().value().bodyContains("late"));
        EXPECT_TRUE(peer.seesEnd());
    }
    EXPECT_EQ(provider.resource.cancelled.get().size(), 0U);
    RawPeer watching = ask(false);
    EXPECT_FALSE(answer());
    EXPECT_TRUE(watching.receive().value().bodyContains("late"));
    ::shutdown(watching.fd(), SHUT_WR);
    EXPECT_EQ(watching.receive().value().type, 5) << "a stream that has had a value is completed";
    EXPECT_TRUE(watching.seesEnd());
    RawPeer unanswered = ask(true);
    ::shutdown(unanswered.fd(), SHUT_WR);
    EXPECT_TRUE(unanswered.seesEnd()) << "within the deadline of a request";
    RawPeer dying = ask(true);
    ::shutdown(dying.fd(), SHUT_WR);
    pause();
    dying.close();
    EXPECT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 3; }));
}

TEST_F(RuntimeTest, AClientThatWasNotReadForAWhileIsReadAgain) {
    kelo::Limits limits;
    limits.queuedSoftBytes = 256U * 1024U;
    Provider provider{directory.path(), limits};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    constexpr std::uint64_t requests = 64;
    struct Case {
        const char* path;
        std::string body;
    };
    // Large requests wait in the socket, and small ones have all been received when the first answers do not fit.
    for (const Case& each : {Case{"/r/echo", std::string(20'000, 'x')}, Case{"/r/much", ""}}) {
        RawPeer peer{directory / socketFile};
        ASSERT_TRUE(peer.send(testing_support::helloFrame(servicePath)));
        ASSERT_TRUE(peer.receive());
        Bytes bytes;
        for (std::uint64_t id = 1; id <= requests; ++id) {
            const Bytes request = testing_support::requestFrame(id, "retrieve", each.path, true, each.body);
            bytes.insert(bytes.end(), request.begin(), request.end());
        }
        std::thread sender{[&] { EXPECT_TRUE(peer.send(bytes)); }};
        std::this_thread::sleep_for(std::chrono::milliseconds{50});  // until everything has settled
        for (std::uint64_t id = 1; id <= requests; ++id) {
            const auto answer = peer.receive();
            EXPECT_TRUE(answer && answer->id == id) << each.path << id;
            if (!answer) break;
        }
        sender.join();
    }
}

TEST_F(RuntimeTest, AClientThatGoesAwayCancelsWhatItHadOpen) {
    Provider provider{directory.path()};
    {
        Consumer consumer{directory.path()};
        consumer.ask("/r/open", false, 3);
        consumer.ask("/r/slow");
        ASSERT_TRUE(provider.resource.responders.waitFor([](const auto& all) { return all.size() == 2; }));
    }
    EXPECT_TRUE(provider.resource.cancelled.waitFor([](const auto& all) { return all.size() == 2; }));
    for (const auto& responder : provider.resource.responders.get().all) EXPECT_TRUE(responder->next(Response{200}));
}

TEST_F(RuntimeTest, ThousandsOfRequestsFromManyThreadsEachEndOnce) {
    Provider provider{directory.path()};
    Consumer consumer{directory.path()};
    kelo::IKeloApi* const api = consumer.waitForApi();
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            std::deque<std::pair<std::string, std::shared_ptr<Watched<Events>>>> open;
            const auto finish = [&] {
                if (ended(*open.front().second) == Told{"next:" + open.front().first}) ++right;
                open.pop_front();
            };
            for (int i = 0; i < 1000; ++i) {
                auto events = std::make_shared<Watched<Events>>();
                const std::string content = std::to_string(thread) + "/" + std::to_string(i);
                api->request(kelo::Request{"retrieve", "/r/echo", text(content)}, std::make_unique<Handler>(events, true, 1));
                open.emplace_back(content, events);
                if (open.size() > 16) finish();
            }
            while (!open.empty()) finish();
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(right, 4000);
}

// A domain of several users: the provider is root, 61001 a member of the directory's group 62000, 61002 a stranger to everything.
class SeveralUsersTest : public RuntimeTest {
protected:
    void SetUp() override {
        if (!testing_support::canBeOthers()) GTEST_SKIP() << "only root can become somebody else";
        ::chmod(directory.path().c_str(), 0755);
        fs::create_directory(domain);
        ASSERT_EQ(::chown(domain.c_str(), 0, 62000), 0);
        ASSERT_EQ(::chmod(domain.c_str(), 02770), 0);
        ASSERT_EQ(::setenv("KELO_POLICY_DIR", policies.c_str(), 1), 0);
    }
    void TearDown() override { ::unsetenv("KELO_POLICY_DIR"); }

    // Replaces the policy as an editor would.
    void write(const std::string& rules) const {
        fs::create_directories(policies);
        std::ofstream{policies + "/.new"} << rules;
        fs::rename(policies + "/.new", policies + "/a.toml");
    }
    // The answer's status for a request of that user; 0 if the provider hangs up.
    int ask(const User& user, const std::string& command, const std::string& path) const {
        RawPeer peer = asUser(user, [&] { return RawPeer{domain + "/" + socketFile}; });
        if (!peer.isOpen()) return -1;
        peer.send(testing_support::helloFrame(servicePath));
        if (!peer.receive()) return 0;
        peer.send(testing_support::requestFrame(1, command, path, true, "x"));
        const auto answer = peer.receive();
        return !answer ? 0 : answer->bodyContains("a.toml:") || answer->bodyContains("no rule allows it") ? 403 : 200;
    }
    nlohmann::json status() {
        Consumer consumer{domain};
        const auto events = consumer.ask("/$platform/status");
        const Told told = ended(*events);
        return nlohmann::json::parse(told.at(0).substr(5));
    }
    double counted(const char* name) { return status().at("counters").at(name); }

    const std::string domain = directory / "domain";
    const std::string policies = directory / "policy.d";
    const User member{61001, 61001, {62000}};
    const User other{61003, 61003, {62000}};
    const User stranger{61002, 61002, {}};
};

constexpr const char* memberMayRetrieve =
    "[[allow]]\nuser = 61001\nservice = \"/provider\"\ncommand = \"retrieve\"\n"
    "[[deny]]\ngroup = 62000\nservice = \"/provider\"\npath = \"/r/fail\"\n";

TEST_F(SeveralUsersTest, WhoMayDoWhatIsDecidedByTheKernelsWord) {
    write(memberMayRetrieve);
    Provider provider{domain};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    const struct {
        User user;
        const char *command, *path;
        int status;
    } cases[] = {
        {member, "retrieve", "/r/echo", 200},
        {member, "update", "/r/echo", 403},
        {member, "retrieve", "/r/fail", 403},
        {member, "retrieve", "/r/%66ail", 403},
        {member, "retrieve", "/$platform/status", 200},
        {other, "retrieve", "/r/echo", 403},                  // a rule is about its group, so it may connect
        {User{61004, 61004, {}}, "retrieve", "/r/echo", -1},  // the file system refuses who is not in the group
        {User{0, 0, {}}, "update", "/r/echo", 200},
        {User{0, 0, {62000}}, "update", "/r/fail", 403},
    };
    for (const auto& [user, command, path, status] : cases)
        EXPECT_EQ(ask(user, command, path), status) << user.uid << command << path;
    EXPECT_EQ(counted("requestsForbidden"), 5);
    ASSERT_EQ(::chmod((domain + "/" + socketFile).c_str(), 0666), 0);
    ASSERT_EQ(::chmod(domain.c_str(), 02775), 0);
    EXPECT_EQ(ask(stranger, "retrieve", "/r/echo"), 0) << "no rule is about it";
    write("audit = true\n" + std::string{memberMayRetrieve});
    EXPECT_TRUE(eventually([&] { return ask(member, "update", "/r/echo") == 200; }));
    ::chmod((domain + "/" + socketFile).c_str(), 0666);
    EXPECT_EQ(ask(stranger, "retrieve", "/r/echo"), 200) << "audit lets pass";
    EXPECT_GE(counted("requestsAudited"), 2);
    EXPECT_GE(counted("peersAudited"), 1);
}

TEST_F(SeveralUsersTest, AChangedPolicyHoldsAtOnceAndABrokenOneChangesNothing) {
    Provider provider{domain};
    EXPECT_FALSE(provider.started) << "without a policy, a directory that a group may write to is refused";
    ASSERT_EQ(::chmod(domain.c_str(), 02750), 0);
    Provider again{domain};
    ASSERT_TRUE(again.published.count.waitFor([](int n) { return n == 1; }));
    EXPECT_EQ(ask(member, "retrieve", "/r/echo"), -1);
    write(memberMayRetrieve);
    EXPECT_TRUE(eventually([&] { return ask(member, "retrieve", "/r/echo") == 200; }))
        << "its directory was made after the start";
    RawPeer watcher = asUser(member, [&] { return RawPeer{domain + "/" + socketFile}; });
    watcher.send(testing_support::helloFrame(servicePath));
    watcher.send(testing_support::requestFrame(7, "retrieve", "/r/open", false));
    ASSERT_TRUE(watcher.receive());
    ASSERT_TRUE(again.resource.responders.waitFor([](const auto& all) { return all.size() == 1; }));
    for (const char* broken : {"[[deny]]\nuser = 61001", "nonsense", "[[allow]]\nuser = 'no such user'\nservice = '/provider'"}) {
        write(broken);
        again.runtime->reloadPolicy();
        EXPECT_EQ(ask(member, "retrieve", "/r/echo"), 200) << broken;
    }
    write("[[allow]]\nuser = 61001\nservice = \"/provider\"\npath = \"/r/echo\"\n");
    const auto end = watcher.receive();
    ASSERT_TRUE(end);
    EXPECT_EQ(end->type, testing_support::error);
    EXPECT_TRUE(end->bodyContains("no rule allows it"));
    EXPECT_TRUE(again.resource.cancelled.waitFor([](const auto& all) { return all.size() == 1; }));
    EXPECT_EQ(ask(member, "retrieve", "/r/echo"), 200);
    fs::remove_all(policies);
    EXPECT_TRUE(watcher.seesEnd()) << "without a policy, only the provider's own user and root are served";
    EXPECT_TRUE(again.resource.responders.get().all[0]->next(Response{200}));
}

// One user may have more than half of all streams, over all of its connections, and nothing that others need.
TEST_F(SeveralUsersTest, StreamsAreDividedAmongUsers) {
    write("[[allow]]\nuser = [61001, 61003]\nservice = \"/provider\"\n");
    kelo::Limits limits;
    limits.userStreams = 128;
    constexpr std::size_t most = 73;  // an equal part of 1, and three quarters of the common 96
    Provider provider{domain, limits};
    ASSERT_TRUE(provider.published.count.waitFor([](int n) { return n == 1; }));
    const auto open = [&](const User& user, std::size_t count) {
        RawPeer peer = asUser(user, [&] { return RawPeer{domain + "/" + socketFile}; });
        peer.send(testing_support::helloFrame(servicePath, 1, "somebody else"));
        EXPECT_TRUE(peer.receive());
        for (std::size_t i = 1; i <= count; ++i) peer.send(testing_support::requestFrame(i, "retrieve", "/r/open", false));
        peer.send(testing_support::requestFrame(count + 1, "retrieve", "/r/echo", true, "heard"));
        return peer;
    };
    // How many are refused before the one-shot request is answered.
    const auto refusals = [](RawPeer& peer) {
        std::size_t count = 0;
        for (auto answer = peer.receive(); answer && answer->type == testing_support::error; answer = peer.receive()) ++count;
        return count;
    };
    auto first = std::make_unique<RawPeer>(open(member, 50));
    EXPECT_EQ(refusals(*first), 0U);
    RawPeer second = open(member, 50);
    EXPECT_EQ(refusals(second), 100 - most);
    RawPeer others = open(other, 5);
    EXPECT_EQ(refusals(others), 0U);
    const nlohmann::json said = status();
    EXPECT_EQ(said["limits"]["userStreams"], 128);
    const nlohmann::json& users = said["users"];
    ASSERT_EQ(users.size(), 3U) << users;
    EXPECT_EQ(users[1], (nlohmann::json{{"uid", 61001},
                                        {"connections", 2},
                                        {"requests", most},
                                        {"streams", most},
                                        {"unreadBytes", 0},
                                        {"incompleteBytes", 0}}));
    EXPECT_EQ(said["published"][0]["clients"][0]["application"], "somebody else");
    EXPECT_EQ(said["published"][0]["clients"][0]["program"], fs::read_symlink("/proc/self/exe").string());
    first.reset();
    provider.resource.responders.change([](auto& arrived) { arrived.all.clear(); });
    EXPECT_TRUE(eventually([&] { return status()["users"][1]["requests"] == 0; }));
    RawPeer third = open(member, 50);
    EXPECT_EQ(refusals(third), 0U) << "what is closed is free again";
}

// A client trusts a provider that may publish the path, whoever owns the socket or the directory.
TEST_F(SeveralUsersTest, AProviderIsTrustedIfItMayPublish) {
    write("[[allow]]\nuser = 61001\npublish = \"/provider\"\n[[deny]]\nuser = [0, 61002]\npublish = \"/provider\"\n");
    const struct {
        User user;
        bool isTrusted;
    } cases[] = {{stranger, false}, {member, true}, {other, false}};
    ASSERT_EQ(::chown(domain.c_str(), 61001, 62000), 0);
    ASSERT_EQ(::chmod(domain.c_str(), 03777), 0);
    for (const auto& [user, isTrusted] : cases) {
        const std::string socket = domain + "/" + socketFile;
        fs::remove(socket);
        const auto listener = asUser(user, [&] { return std::make_unique<testing_support::RawListener>(socket); });
        Consumer consumer{domain};
        RawPeer peer = listener->accept();
        peer.send(testing_support::helloAnswer());
        EXPECT_EQ(consumer.heard.waitFor([](const auto& all) { return !all.empty(); },
                                         std::chrono::milliseconds{isTrusted ? 10'000 : 200}),
                  isTrusted)
            << user.uid;
        EXPECT_EQ(peer.receive().has_value(), isTrusted) << "who is not trusted is told nothing";
    }
    fs::remove(domain + "/" + socketFile);
    Provider denied{domain};
    EXPECT_FALSE(denied.published.count.waitFor([](int n) { return n == 1; }, std::chrono::milliseconds{100}));
    write("[[allow]]\nuser = 0\npublish = \"/provider\"\n");
    EXPECT_TRUE(denied.published.count.waitFor([](int n) { return n == 1; }));
    write("[[deny]]\nuser = 0\npublish = \"/provider\"\n");
    EXPECT_TRUE(denied.published.count.waitFor([](int n) { return n == 0; }));
    EXPECT_FALSE(fs::exists(domain + "/" + socketFile));
}

}  // namespace
