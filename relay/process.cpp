// The dispatcher is shared: the runtime's thread answers what comes in on the sockets, the engine's receiving thread hands on
// what has changed, and the process's own thread does the rest. Each time it is only one of them. So a change passes through as
// few threads as possible, and nothing needs a lock.
#include "process.h"

#include <malloc.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <exception>
#include <iostream>
#include <optional>

#include "exporter.h"
#include "hmx/client/client.h"
#include "importer.h"
#include "kelo/runtime/kelo_runtime.h"
#include "kelo/std/error_storage.h"
#include "options.h"
#include "osal/osal.h"
#include "osal/signal_queue.h"
#include "util/util.h"

namespace hmxrelay {
namespace {

constexpr const char* name = "hmxrelay";

// The end of the process, when something else than a signal brings it about. Thread: any (a value).
class StartFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Until a signal, or until `failure` is set.
void loop(hmx::client::Client& client, const osal::SignalQueue& signals, const std::optional<std::string>& failure) {
    using Clock = std::chrono::steady_clock;
    const hmx::client::Dispatcher::Sharing sharing{client.dispatcher()};
    while (!failure) {
        client.dispatch();
        int timeout = -1;
        if (const auto timer = client.nextTimer()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*timer - Clock::now());
            timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
        }
        std::array<pollfd, 2> watched{{{client.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
        if (::poll(watched.data(), watched.size(), timeout) > 0 && watched[1].revents != 0) return;
    }
    throw StartFailure{*failure};
}

void runExport(const Options& options, hmx::client::Client& client, const osal::SignalQueue& signals) {
    const Participant participant{options.network};
    std::optional<std::string> failure;
    Exporter exporter{client, participant, ExportOptions{options.name, std::string{programVersion()}, options.isReadOnly},
                      [&](const std::string& why) { failure = why; },
                      [&] {
                          std::cerr << std::string{name} + ": exporting /hmx as '" + options.name + "' on " +
                                           options.network.interface + "\n"
                                    << std::flush;
                      }};
    loop(client, signals, failure);
}

// What would be published under the bridge's own paths must not wait there until the bridge ends, and then take its place.
void checkFree(hmx::client::Client& client, const std::string& path) {
    try {
        for (const hmx::client::ServiceState& state : client.run(client.domain().list(client.deadline()))) {
            if (state.path != path || state.life != hmx::client::Life::alive) continue;
            throw StartFailure{path + " is served here already, by " + state.application + " with the process id " +
                               std::to_string(state.pid)};
        }
    } catch (const hmx::client::Error&) {  // no domain yet
    }
}

void runImport(const Options& options, hmx::client::Client& client, const osal::SignalQueue& signals) {
    if (options.suffix.find("ORIGIN") == std::string::npos) checkFree(client, "/hmx" + options.suffix);
    const Participant participant{options.network};
    kelo::runtime::RuntimeOptions access;
    access.directory = options.runtimeDirectory.empty() ? "" : options.runtimeDirectory + "/" + options.domain;
    access.domain = options.domain;
    access.applicationName = name;
    const auto runtime = kelo::runtime::createRuntime(access);
    if (!runtime->start(0)) throw std::runtime_error{std::ErrorStorage::takeReason()};
    Surroundings surroundings{client.dispatcher(), participant, *runtime, options.isReadOnly};
    Importer importer{surroundings, ImportOptions{options.suffix, options.origins}};
    std::cerr << std::string{name} + ": importing " +
                     (options.origins.empty() ? std::string{"every origin"}
                                              : std::to_string(options.origins.size()) + " origin(s)") +
                     " on " + options.network.interface + "\n"
              << std::flush;
    loop(client, signals, {});
}

}  // namespace

int runProcess(int argc, char** argv) {
    // The engine's threads would each have a heap of their own, most of it unused.
    (void)::mallopt(M_ARENA_MAX, 2);
    const osal::Osal osal{true, true};
    const auto utilities = util::Util::init(name, true, false, true, false);
    Options options;
    if (const auto status = readCommandLine(argc, argv, options, std::cout, std::cerr)) return *status;
    try {
        const osal::SignalQueue signals{SIGINT, SIGTERM};
        hmx::client::ClientOptions access;
        access.domain.applicationName = name;
        access.domain.domain = options.domain;
        access.domain.runtimeDirectory = options.runtimeDirectory;
        access.style.patient = false;
        hmx::client::Client client{access};
        (options.isExport ? runExport : runImport)(options, client, signals);
        return exitOk;
    } catch (const StartFailure& failure) {
        std::cerr << name << ": " << failure.what() << std::endl;
        return exitTaken;
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << std::endl;
        return exitUnexpected;
    }
}

}  // namespace hmxrelay
