// A waiting client, against a service that answers, refuses, does not answer, starts late and disappears.
#include "core/blocking_client.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "core/element.h"
#include "core/list_page.h"
#include "kelo/composed_service.h"
#include "kelo/resource_handler.h"
#include "support/temporary_directory.h"

namespace {

using namespace std::chrono_literals;

// Answers with the text after the status in its path: "/r/200/{...}"; "/r/silent" is never answered.
class Resource final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        const std::string& path = request.path();
        if (path == "/r/silent") {
            silent_ = std::move(responder);
        } else if (path == "/r/nothing") {
            responder->completed();
        } else if (path == "/r/page") {
            EXPECT_TRUE(request.isOneShot());
            const std::string_view page =
                R"({"total":1,"totalPages":1,"data":[{"id":"19243473-0126-5f4b-b1bf-4879152c72e5","name":"one","uri":"/r/1"}]})";
            responder->next(kelo::Response{200, kelo::Payload::copyOf(page, kelo::MimeType{"application/json"})});
        } else {
            responder->error(kelo::Response::createErrorResponse(404, "no such thing"));
        }
        return nullptr;
    }
    void cancelRequest(void* /*handle*/) override {}

private:
    std::unique_ptr<kelo::IResponder> silent_;
};

struct Provider {
    explicit Provider(const kelo::runtime::RuntimeOptions& options) : runtime{kelo::runtime::createRuntime(options)} {
        service.registerService("/r", &resource);
        runtime->start(0);
        runtime->registerService("/service", service, nullptr);
    }
    ~Provider() { runtime->stop(); }

    Resource resource;
    kelo::SimpleComposedKeloService service;
    std::unique_ptr<kelo::runtime::IKeloRuntime> runtime;
};

struct BlockingClientTest : testing::Test {
    BlockingClientTest() { options.directory = directory / "domain"; }

    testing_support::TemporaryDirectory directory;
    kelo::runtime::RuntimeOptions options;
};

TEST_F(BlockingClientTest, SaysHowEveryRequestEnded) {
    const Provider provider{options};
    kelo::BlockingClient client{"/service", 10s, options};
    kelo::tolu::ListPage<support::Element> page;
    EXPECT_EQ(client.retrieve("/r/page", page).status(), 200);
    ASSERT_EQ(page.data.size(), 1U);
    EXPECT_EQ(client.retrieve("/r/missing", page).toString(), "404 no such thing");
    EXPECT_EQ(client.request(kelo::Request{"retrieve", "/r/nothing"}).status(), 204);
    kelo::BlockingClient hasty{"/service", 300ms, options};
    EXPECT_EQ(hasty.request(kelo::Request{"retrieve", "/r/page"}).status(), 200);
    EXPECT_EQ(hasty.request(kelo::Request{"retrieve", "/r/silent"}).toString(), "504 /service gave no answer in time");
    int number = 0;
    EXPECT_EQ(client.retrieve("/r/page", number).status(), 500) << "an answer of another type";
}

TEST_F(BlockingClientTest, WaitsForAServiceThatIsAway) {
    kelo::BlockingClient hasty{"/service", 1ms, options};
    EXPECT_EQ(hasty.request(kelo::Request{"retrieve", "/r/page"}).toString(), "503 no service /service was found in time");
    kelo::BlockingClient client{"/service", 10s, options};
    kelo::Response answer;
    std::thread asking{[&] { answer = client.request(kelo::Request{"retrieve", "/r/page"}); }};
    auto provider = std::make_unique<Provider>(options);
    asking.join();
    EXPECT_EQ(answer.status(), 200);
    provider = nullptr;
    provider = std::make_unique<Provider>(options);
    // The old provider may still be asked here; in either case, the next request must reach the new one.
    const std::uint16_t between = client.request(kelo::Request{"retrieve", "/r/page"}).status();
    EXPECT_TRUE(between == 200 || between == 503) << between;
    EXPECT_EQ(client.request(kelo::Request{"retrieve", "/r/page"}).status(), 200);
}

TEST_F(BlockingClientTest, SaysWhyThereIsNoDomain) {
    std::filesystem::create_directory_symlink(directory.path(), options.directory);
    kelo::BlockingClient client{"/service", 10s, options};
    const kelo::Response answer = client.request(kelo::Request{"retrieve", "/r/page"});
    EXPECT_EQ(answer.status(), 503);
    EXPECT_NE(answer.reason().find("is a symbolic link"), std::string_view::npos) << answer.reason();
}

}  // namespace
