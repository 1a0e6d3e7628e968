#include "process.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>

#include "args.h"
#include "context.h"
#include "tracing/channel.h"

namespace {

// Nothing has to be tidied up, so an interruption may end the process wherever it stands.
extern "C" void onInterrupt(int /*signal*/) {
    std::_Exit(static_cast<int>(hmxctl::ExitCode::interrupted));
}

// A closed standard stream's number would be given to the next socket, and data printed into it. What takes its place still
// fails: data that cannot be written are an error.
void fillStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0) (void)::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

}  // namespace

namespace hmxctl {

int runProcess(int argc, char** argv) {
    fillStandardDescriptors();
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is an error like a full disk
    (void)std::signal(SIGINT, onInterrupt);
    const auto makeClient = [](const hmxctl::Arguments& arguments, hmx::client::ClientOptions options,
                               const hmx::client::Client::DomainMaker& domain) {
        // The platform's own lines are for services; here an error is said once, in the words of the command.
        if (!arguments.verbose && std::getenv("KELO_TRACE") == nullptr) {
            tracing::setSink([](const char*, int, const char*, void*) {}, nullptr);
        }
        return domain ? std::make_unique<hmx::client::Client>(std::move(options), domain)
                      : std::make_unique<hmx::client::Client>(std::move(options));
    };
    return static_cast<int>(hmxctl::runCommand(argc, argv, makeClient, STDOUT_FILENO, std::cerr));
}

}  // namespace hmxctl
