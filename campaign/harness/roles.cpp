#include "harness/roles.h"

#include <unistd.h>

#include <string_view>
#include <utility>

#include "harness/client.h"
#include "harness/scripted_provider.h"
#include "kelo/resource_handler.h"
#include "kelo/runtime/kelo_runtime.h"

namespace campaign {
namespace {

class Echo final : public kelo::IResourceHandler {
public:
    void* actionRequest(const kelo::Request& request, std::unique_ptr<kelo::IResponder> responder, const std::string&) override {
        if (!responder->next(kelo::Response{200, kelo::Payload{request.payload()}})) responder->completed();
        return nullptr;
    }
    void cancelRequest(void*) override {}
};

class Published final : public kelo::runtime::IKeloRuntime::IKeloServiceTracker {
public:
    void added(const kelo::runtime::KeloServiceTrackerInfo&) override { tell("published"); }
    void modified(const kelo::runtime::KeloServiceTrackerInfo&) override {}
    void removed() override { tell("withdrawn"); }

private:
    static void tell(const char* what) {
        const std::string line = std::to_string(::getpid()) + " " + what + "\n";
        [[maybe_unused]] const auto written = ::write(STDOUT_FILENO, line.data(), line.size());
    }
};

}  // namespace

int provide(const std::string& servicePath) {
    Echo echo;
    Published published;
    kelo::SimpleComposedKeloService service;
    service.registerService("/r", &echo);
    kelo::runtime::RuntimeOptions options;
    options.applicationName = "provider";
    const auto runtime = kelo::runtime::createRuntime(options);
    if (!runtime->start(0)) return 1;
    runtime->registerService(servicePath, service, &published);
    for (;;) ::pause();
}

int ask(const std::string& socket) {
    try {
        Client client{socket};
        return client.call("retrieve", "/displays", {}, milliseconds{3000}).status == 200 ? 0 : 1;
    } catch (const Failure&) {
        return 1;
    }
}

int pose(const std::string& socket) {
    const ScriptedProvider provider{socket, [](const Frame&, const ScriptedProvider::Send&) {}};
    for (;;) ::pause();
}

int play(int argc, const char* const* argv) {
    constexpr std::pair<std::string_view, int (*)(const std::string&)> roles[] = {
        {"--provide", &provide}, {"--ask", &ask}, {"--pose", &pose}};
    for (const auto& [name, role] : roles) {
        if (argc == 3 && argv[1] == name) return role(argv[2]);
    }
    return -1;
}

}  // namespace campaign
