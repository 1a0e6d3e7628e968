// The whole process on real sockets, taken down while clients send requests: nothing may be used after it has been destroyed.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kelo/composed_service.h"
#include "kelo/resource_handler.h"
#include "kelo/runtime/kelo_runtime.h"
#include "startup.h"
#include "support/eventually.h"
#include "support/temporary_directory.h"
#include "support/traced_lines.h"

namespace {

using kelo::runtime::IKeloRuntime;
using testing_support::Watched;

std::unique_ptr<IKeloRuntime> startRuntime(const std::string& directory) {
    kelo::runtime::RuntimeOptions options;
    options.directory = directory;
    auto runtime = kelo::runtime::createRuntime(options);
    EXPECT_TRUE(runtime->start(0));
    return runtime;
}

// The three upstream services: answers every request with something empty and keeps streams open.
class Upstream final : public kelo::IResourceHandler {
public:
    explicit Upstream(const std::string& directory) : runtime_{startRuntime(directory)} {
        for (const char* root : {"/displays", "/displayables", "/layerConfig", "/D", "/Driver_Display"})
            service_.registerService(root, this);
        for (const char* path : {"/hmxdisplaymanager", "/hmxinputmanager", "/hmxpopupmanager"})
            runtime_->registerService(path, service_, nullptr);
    }
    ~Upstream() override { runtime_->stop(); }

    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        const bool isList = request.path() == "/D" || request.path() == "/layerConfig";
        const kelo::MimeType json{"application/json"};
        if (!responder->next(kelo::Response{200, kelo::Payload::copyOf(isList ? "[]" : "{}", json)}))
            open_.push_back(std::move(responder));
        return nullptr;
    }
    void cancelRequest(void*) override {}

private:
    std::vector<std::unique_ptr<kelo::IResponder>> open_;
    kelo::SimpleComposedKeloService service_;
    std::unique_ptr<IKeloRuntime> runtime_;
};

// Repeatedly asks "/hmx" for everything, whether or not it is there.
class Client final : IKeloRuntime::IKeloServiceTracker, IKeloRuntime::IKeloServiceResolver {
public:
    explicit Client(const std::string& directory) : runtime_{startRuntime(directory)} {
        runtime_->trackService("/hmx", *this, 0);
        thread_ = std::thread{[this] { askUntilDone(); }};
    }
    ~Client() override {
        done_ = true;
        thread_.join();
        runtime_->stop();
    }

    std::atomic<int> answers = 0;

private:
    struct Handler final : kelo::IResponseHandler<kelo::Response> {
        Handler(Client& owner, bool wantsOne) : client{owner}, oneShot{wantsOne} {}
        ~Handler() override {
            if (oneShot) client.pending_.change([](int& count) { --count; });
        }
        bool onNext(const kelo::Response&) override {
            ++client.answers;
            return oneShot;
        }
        void onError(const kelo::Response&) override {}
        void onCompleted() override {}
        bool isOneShot() const override { return oneShot; }

        Client& client;
        const bool oneShot;
    };

    void added(const kelo::runtime::KeloServiceTrackerInfo& info) override {
        if (!std::exchange(isResolving_, true)) runtime_->openResolver(info, *this);
    }
    void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
    void removed() override {}
    void resolved(std::uint64_t, kelo::IKeloApi* api) override { api_ = api; }
    void gone() override {}

    void askUntilDone() {
        const kelo::MimeType json{"application/json"};
        const struct {
            const char* command;
            const char* path;
            const char* body;
        } requests[] = {
            {"retrieve", "/displays", ""},
            {"retrieve", "/displayables", ""},
            {"retrieve", "/layerconfigurations", ""},
            {"retrieve", "/popups", R"({"display":"D"})"},
            {"insert", "/regionconfigurations", R"({"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","regions":{}})"},
        };
        for (int round = 0; !done_; ++round) {
            for (const auto& [command, path, body] : requests) {
                kelo::IKeloApi* const api = api_;
                if (api == nullptr) continue;
                const bool oneShot = round % 16 != 0;
                if (oneShot) pending_.change([](int& count) { ++count; });
                const kelo::Request request{command, path, kelo::Payload::copyOf(body, json)};
                api->request(request, std::make_unique<Handler>(*this, oneShot));
            }
            pending_.waitFor([](int count) { return count < 20; });
        }
    }

    Watched<int> pending_;
    std::unique_ptr<IKeloRuntime> runtime_;
    bool isResolving_ = false;
    std::atomic<kelo::IKeloApi*> api_ = nullptr;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

TEST(TakingDown, WhileClientsAskIsSafeAndServesThemAgainAfterwards) {
    const support::TracedLines quiet{""};
    const testing_support::TemporaryDirectory directory;
    const Upstream upstream{directory.path()};
    Client client{directory.path()};
    for (int life = 0; life < 5; ++life) {
        const auto runtime = startRuntime(directory.path());
        hmx::serve(*runtime, [&] {
            const int before = client.answers;
            EXPECT_TRUE(testing_support::eventually([&] { return client.answers > before + 100; }));
        });
    }
}

}  // namespace
