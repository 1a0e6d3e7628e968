// Start-up is strictly sequential: an upstream service is looked for only after the previous one has delivered its API, and
// "/hmx" is published only after all three have. So a client that sees "/hmx" can rely on every resource having been attached. If
// an upstream service never appears, start-up waits at its step; the log shows which. Services that are lost later are detached
// and attached again by their tasks, while main is parked.
//
// Three workers do the work of the bridges. Each serves one upstream service: its manager and the bridges that use it. The
// manager of "/hmx" has little to do and shares the popup worker.
//
// What `serve` creates is on its stack in the order of use, except the resource services. So every object is destroyed before
// what it refers to, and the workers last. If that ever happens, the runtime is stopped and the workers are drained first, so no
// callback or event can find its object destroyed.
#include "startup.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "availability_tasks.h"
#include "bridge/display_bridge.h"
#include "bridge/displayable_bridge.h"
#include "bridge/input_bridge.h"
#include "bridge/layers_bridge.h"
#include "bridge/popup_bridge.h"
#include "comm/active_object.h"
#include "event_queue.h"
#include "hmx/displayables_service.h"
#include "hmx/displays_service.h"
#include "hmx/layerconfigurations_service.h"
#include "hmx/popups_service.h"
#include "hmx/regionconfigurations_service.h"
#include "kelo/func_call_event.h"
#include "kelo/std/error_storage.h"
#include "kelo/supervisor/kept_state.h"
#include "kelo/supervisor/notifier.h"
#include "kelo/supervisor/signals.h"
#include "osal/condition.h"
#include "osal/mutex.h"
#include "osal/osal.h"
#include "service_tracker.h"
#include "tracing/channel.h"
#include "tracing/client_helper.h"
#include "util/util.h"

namespace hmx {

using kelo::supervisor::KeptState;

namespace {

constexpr int progress = 2;
constexpr int failure = 4;

constexpr char applicationName[] = "hmx_tolubridge";
constexpr char version[] = HMX_VERSION;

void logProgress(const char* text) {
    tracing::logC(BENCH_Startup, progress, text);
}

// Creates an object that is never deleted: clients' requests may be inside it until the process ends.
template <class T, class... Arguments>
T* makeImmortal(Arguments&&... arguments) {
    static auto& immortals = *new std::vector<std::unique_ptr<T>>;
    return immortals.emplace_back(std::make_unique<T>(std::forward<Arguments>(arguments)...)).get();
}

void startRuntime(kelo::runtime::IKeloRuntime& runtime) {
    constexpr int noFlags = 0;
    if (runtime.start(noFlags)) return;
    const std::string reason = std::ErrorStorage::takeReason();
    throw std::runtime_error{"the runtime does not start: " + reason};
}

// Makes sure that nothing uses the objects declared before this one when they are destroyed: ends the runtime's callbacks, then
// lets the worker finish what is queued. The reason may be lack of memory. So its own memory is allocated in the constructor, and
// it waits until the runtime and the queue have theirs. Thread: main.
class ShutdownGuard {
public:
    ShutdownGuard(kelo::runtime::IKeloRuntime& runtime, comm::ActiveObject& worker)
        : runtime_{runtime}, worker_{worker}, idle_{promise_.get_future()}, event_{makeTask([this] {
              worker_.dropLater();
              promise_.set_value();
          })} {}
    ~ShutdownGuard() {
        insist([this] { runtime_.stop(); });
        insist([this] { worker_.enque(event_); });
        idle_.wait();
    }
    ShutdownGuard(const ShutdownGuard&) = delete;
    ShutdownGuard& operator=(const ShutdownGuard&) = delete;

private:
    template <class Step>
    static void insist(Step step) noexcept {
        for (;;) {
            try {
                step();
                return;
            } catch (const std::bad_alloc&) {
                sleepFor(std::chrono::milliseconds{10});
            }
        }
    }

    kelo::runtime::IKeloRuntime& runtime_;
    comm::ActiveObject& worker_;
    std::promise<void> promise_;
    const std::future<void> idle_;
    const util::SharedPtr<comm::ActiveObjectEvent> event_;
};

// What to print instead of serving, and where.
struct Reply {
    std::FILE* stream;
    std::string text;
    ExitStatus status;
};

Reply replyTo(std::string_view argument) {
    constexpr char usage[] =
        "usage: hmxtolubridge [--help | --version]\n"
        "Connects the display, input and popup managers to the resource service \"/hmx\" until it is killed.\n";
    if (argument == "--help") return {stdout, usage, exitOk};
    if (argument == "--version") return {stdout, std::string{"hmxtolubridge "} + version + "\n", exitOk};
    return {stderr, "hmxtolubridge: takes no argument \"" + std::string{argument} + "\"\n" + usage, exitUsage};
}

}  // namespace

void serve(kelo::runtime::IKeloRuntime& runtime, const std::function<void()>& park) {
    const auto inputThread = std::make_shared<comm::ActiveObject>("hmxtolubridge.inputthread");
    const auto displayThread = std::make_shared<comm::ActiveObject>("hmxtolubridge.displaythread");
    const auto popupThread = std::make_shared<comm::ActiveObject>("hmxtolubridge.popupthread");
    CEventQueue<EEventID> queue;

    ServiceManager displayManager{&runtime, displayThread, "/hmxdisplaymanager"};
    DisplayBridge displayBridge{displayThread};
    DisplayableBridge displayableBridge{displayThread};
    LayersBridge layersBridge{displayThread};
    const ShutdownGuard displayShutdownGuard{runtime, *displayThread};
    trackDMService(displayManager, displayBridge, displayableBridge, layersBridge, queue);
    logProgress("Service hmxtolubridge wait for dm service available started ");
    queue.waitFor(EVENT_DM_AVAILABLE);
    logProgress("Servicehmxtolubridge wait for dm service available finished");

    ServiceManager inputManager{&runtime, inputThread, "/hmxinputmanager"};
    InputBridge inputBridge{inputThread, {}, KeptState::open(kelo::supervisor::Notifier{}, InputBridge::keptForm())};
    const ShutdownGuard inputShutdownGuard{runtime, *inputThread};
    trackInputService(inputManager, inputBridge, queue);
    logProgress("Service hmxtolubridge wait for input service available started ");
    queue.waitFor(EVENT_INPUT_AVAILABLE);
    logProgress("Service hmxtolubridge wait for input service available finished");

    ServiceManager popupManager{&runtime, popupThread, "/hmxpopupmanager"};
    PopupBridge popupBridge{popupThread};
    const ShutdownGuard popupShutdownGuard{runtime, *popupThread};
    trackPopupService(popupManager, popupBridge, queue);
    logProgress("Service hmxtolubridge wait for popup service available started ");
    queue.waitFor(EVENT_POPUP_AVAILABLE);
    logProgress("Servicehmxtolubridge hmxtolubridge wait for popup service available finished");

    auto* const popups = makeImmortal<kelo::hmx::PopupsService>(&popupBridge);
    auto* const regionconfigurations = makeImmortal<kelo::hmx::RegionconfigurationsService>(&inputBridge);
    auto* const displays = makeImmortal<kelo::hmx::DisplaysService>(&displayBridge);
    auto* const displayables = makeImmortal<kelo::hmx::DisplayablesService>(&displayableBridge);
    auto* const layerconfigurations = makeImmortal<kelo::hmx::LayerconfigurationsService>(&layersBridge);

    ServiceManager hmxManager{&runtime, popupThread, "/hmx"};
    const ShutdownGuard shutdownGuard{runtime, *popupThread};
    hmxManager.registerResource("/popups", popups);
    hmxManager.registerResource("/regionconfigurations", regionconfigurations);
    hmxManager.registerResource("/displays", displays);
    hmxManager.registerResource("/displayables", displayables);
    hmxManager.registerResource("/layerconfigurations", layerconfigurations);
    hmxManager.registerService(makeTask([&queue] {
        logProgress("HMX_STARTUP Servicehmxtolubridge: hmx RSI available");
        queue.post(CEvent{.id = EVENT_HMX_RSI_AVAILABLE});
    }));
    queue.waitFor(EVENT_HMX_RSI_AVAILABLE);

    park();
}

void parkForEver() {
    osal::Mutex mutex;
    osal::Condition condition;
    mutex.lock();
    condition.bind(mutex);
    condition.wait();  // for ever: nobody signals it
    mutex.unlock();
}

void sleepFor(std::chrono::milliseconds duration) noexcept {
    const auto ms = duration.count();
    timespec rest{.tv_sec = ms / 1000, .tv_nsec = ms % 1000 * 1'000'000};
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

int guarded(const std::function<void()>& body, std::chrono::milliseconds pause) noexcept {
    try {
        body();
        return exitOk;
    } catch (const std::exception& exception) {
        tracing::logCV(BENCH_Startup, failure, "hmxtolubridge:main caught exception: %s ", exception.what());
    } catch (...) {
        tracing::logC(BENCH_Startup, failure, "hmxtolubridge:main unknown exception occured");
    }
    tracing::client_helper::getClient().flush(true);
    sleepFor(pause);
    return exitFailure;
}

int run(int argc, const char* const* argv) noexcept {
    if (argc > 1) {
        const Reply reply = replyTo(argv[1]);
        std::fputs(reply.text.c_str(), reply.stream);
        return reply.status;
    }
    return guarded([&] {
        kelo::supervisor::leaveSignalsToRuntime();
        const std::ErrorStorage errorStorage{&std::ErrorStorage::action_dump_to_stdout};
        const osal::Osal osal{true, false};
        const auto util = util::Util::init(applicationName, true, false, true, false);
        logProgress("HMX_STARTUP hmxtolubridge: initializing started");
        kelo::runtime::KeloRuntime::setup("local", applicationName);
        kelo::runtime::IKeloRuntime& runtime = *kelo::runtime::KeloRuntime::getInstance();
        startRuntime(runtime);
        serve(runtime, &parkForEver);
    });
}

}  // namespace hmx
