#include "harness/provider.h"

#include <unistd.h>

#include <cstdio>

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

}  // namespace campaign
