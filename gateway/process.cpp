#include "process.h"

#include <sys/epoll.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>

#include "event_loop.h"
#include "gateway.h"
#include "hmx/client/client.h"
#include "hmx/client/resources.h"
#include "listening.h"
#include "options.h"
#include "osal/osal.h"
#include "osal/signal_queue.h"
#include "page.h"
#include "tracing/levels.h"
#include "util/util.h"

namespace hmxgateway {
namespace {

constexpr const char* name = "hmxgateway";

void obey(const osal::SignalQueue& signals, EventLoop& loop) {
    while (const std::optional<int> signal = signals.take()) {
        if (*signal == SIGHUP) {
            tracing::reloadThresholds();
        } else {
            loop.stop();
        }
    }
}

GatewayOptions gatewayOptions(const Options& options, const Listening& listening) {
    GatewayOptions made;
    made.allowChanges = options.allowChanges;
    made.admission.hosts = options.hosts;
    made.admission.origins = options.origins;
    made.admission.anyHost = listening.isUnix();
    if (!listening.isUnix()) made.admission.hosts.push_back(listening.host());
    if (!options.tokenFile.empty()) made.admission.token = readToken(options.tokenFile);
    if (made.admission.token.empty() && !listening.isLocal()) {
        throw StartFailure{exitUsage,
                           "--listen " + options.listen +
                               " can be reached from other machines: that needs --token-file, with a secret that every "
                               "request brings"};
    }
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string page = options.page.empty() ? usualPage(program) : options.page;
    if (!page.empty()) made.page = Page{page};
    if (!options.recordings.empty()) made.recordings = Recordings{options.recordings};
    return made;
}

// So that the first request does not have to. A bridge that is not there is waited for no longer than this.
void findBridge(hmx::client::Client& client) {
    try {
        (void)client.run(client.domain().attach(client.options().service, hmx::client::Deadline{std::chrono::seconds{1}}));
    } catch (const hmx::client::Error&) {  // whoever asks is told
    }
}

int serve(const Options& options) {
    const osal::SignalQueue signals{SIGINT, SIGTERM, SIGHUP};
    tracing::reloadThresholds();
    Listening listening{options.listen};
    GatewayOptions made = gatewayOptions(options, listening);
    const bool hasPage = made.page.size() > 0;

    hmx::client::ClientOptions access;
    access.domain.applicationName = name;
    access.domain.domain = options.domain;
    access.domain.runtimeDirectory = options.runtimeDirectory;
    access.service = options.service;
    access.style.patient = false;  // an HTTP client is told at once, and decides itself whether to ask again
    access.appearance = std::chrono::milliseconds{250};
    hmx::client::Client client{access};
    findBridge(client);

    EventLoop loop;
    loop.watch(signals.descriptor(), EPOLLIN, [&] { obey(signals, loop); });
    Gateway gateway{loop, client, std::move(made), listening.takeSocket()};
    std::cout << name << ": " << listening.url() << std::endl;
    if (!hasPage) std::cerr << name << ": the inspector's page is not there; only the API is served\n";
    loop.run();
    return exitOk;
}

}  // namespace

int runProcess(int argc, char** argv) {
    // Each connection takes a descriptor, and the usual limit is smaller than ours.
    const osal::Osal osal{true, true};
    const auto utilities = util::Util::init(name, true, false, true, false);
    Options options;
    if (const auto status = readCommandLine(argc, argv, options, std::cout, std::cerr)) return *status;
    try {
        return serve(options);
    } catch (const StartFailure& failure) {
        std::cerr << name << ": " << failure.what() << std::endl;
        return failure.exitCode();
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << std::endl;
        return exitUnexpected;
    }
}

}  // namespace hmxgateway
