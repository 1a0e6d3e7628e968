// Following a real service through its life with nothing but the descriptor and the next timer.

#include "hmx/client/domain.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <filesystem>

#include "hmx/client/subscription.h"
#include "kelo/composed_service.h"
#include "kelo/resource_handler.h"
#include "kelo/runtime/kelo_runtime.h"
#include "support/temporary_directory.h"

namespace hmx::client {
namespace {

using namespace std::chrono_literals;

// Shows one display. Thread: its runtime's.
class Displays final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        const std::string_view page = R"({"total":1,"totalPages":1,"data":[{"id":"1","name":"one","uri":"u"}]})";
        responder->next(kelo::Response{200, kelo::Payload::copyOf(page, kelo::MimeType{std::string_view{"application/json"}})});
        if (!request.isOneShot()) open_.push_back(std::move(responder));
        return nullptr;
    }
    void cancelRequest(void* /*handle*/) override {}

private:
    std::vector<std::unique_ptr<kelo::IResponder>> open_;
};

struct Bridge {
    explicit Bridge(const std::string& directory) {
        kelo::runtime::RuntimeOptions options;
        options.directory = directory;
        runtime = kelo::runtime::createRuntime(options);
        service.registerService("/displays", &displays);
        runtime->start(0);
        runtime->registerService("/hmx", service, nullptr);
    }
    ~Bridge() { runtime->stop(); }

    Displays displays;
    kelo::SimpleComposedKeloService service;
    std::unique_ptr<kelo::runtime::IKeloRuntime> runtime;
};

TEST(Domain, ServiceThatComesGoesAndReturns) {
    const testing_support::TemporaryDirectory directory;
    Client client{{.domain = {.runtimeDirectory = directory.path(), .domain = "here"}, .appearance = 50ms}};
    Subscription displays{client, {.target = parseTarget("displays")}};
    std::string seen;
    std::optional<Error> lost;
    const auto see = [&](const std::string& wanted) {
        for (const Deadline patience{20s}; seen != wanted && !patience.passed();) {
            const auto timer = client.nextTimer().value_or(patience.at());
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(timer - Deadline::Clock::now()).count();
            pollfd wait{client.descriptor(), POLLIN, 0};
            ::poll(&wait, 1, static_cast<int>(std::max<std::int64_t>(0, left)));
            client.dispatch();
            while (const std::optional<Update> update = displays.tryNext()) {
                if (update->kind == Update::Kind::snapshot) seen += update->isBack ? "back " : "there ";
                if (update->kind == Update::Kind::lost && !update->isRepeated) seen += "lost ";
                lost = update->error;
            }
        }
        EXPECT_EQ(seen, wanted);
    };
    see("lost ");
    EXPECT_EQ(lost->kind(), Error::Kind::noDomain);
    std::filesystem::create_directory(directory / "here");
    std::optional<Bridge> bridge{std::in_place, directory / "here"};
    see("lost back ");
    bridge.reset();
    see("lost back lost ");
    bridge.emplace(directory / "here");
    see("lost back lost back ");
    const std::vector<ServiceState> services = client.run(client.domain().list(client.deadline()));
    ASSERT_EQ(services.size(), 1U);
    EXPECT_EQ(services[0].life, Life::alive);
}

}  // namespace
}  // namespace hmx::client
