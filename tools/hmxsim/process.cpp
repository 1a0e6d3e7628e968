#include "process.h"

#include <csignal>

#include <exception>
#include <filesystem>
#include <iostream>

#include "command_line.h"
#include "kelo/mimetypes.h"
#include "kelo/runtime/domain_view.h"
#include "make_world.h"
#include "osal/osal.h"
#include "server.h"
#include "util/util.h"
#include "world_file.h"

namespace {

constexpr const char* name = "hmxsim";

int printWorld(const hmxsim::CommandLine& line) {
    hmxsim::WorldSize size;
    (void)hmxsim::readWorldSize(line.worldSize, size);  // the command line has checked it
    hmxsim::World world = hmxsim::makeWorld(size, line.seed.value_or(hmxsim::usualSeed));
    std::cout << hmxsim::writeWorld(world, true) << std::endl;
    return std::cout ? 0 : 1;
}

void waitForSignal() {
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    int signal = 0;
    while (sigwait(&ending, &signal) != 0) {
    }
}

int serve(const hmxsim::CommandLine& line) {
    hmxsim::ServerOptions options;
    std::string file = line.replay.file;
    if (file.empty()) {
        const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
        file = hmxsim::findWorld(line.world, hmxsim::worldFolders(program));
        options.world = hmxsim::readWorld(hmxsim::Document::fromFile(file));
    } else {
        options.replay = hmxsim::planReplay(line.replay);
        for (const std::string& complaint : options.replay->complaints) std::cerr << name << ": " << complaint << '\n';
    }
    if (!line.scenarioFile.empty()) {
        options.scenario = hmxsim::readPlan(hmxsim::Document::fromFile(line.scenarioFile), hmxsim::usualSeed, line.seed);
    }
    options.managers = line.managers;
    options.seed = line.seed.value_or(hmxsim::usualSeed);
    options.recordFile = line.recordFile;
    options.runtime.applicationName = name;
    options.runtime.domain = kelo::runtime::domainName(kelo::runtime::usualDomain);
    if (!line.mimeType.empty()) {
        auto& types = options.runtime.mimeTypes;
        const std::string preferred{kelo::mimetypes::id2typename(kelo::mimetypes::typename2id(line.mimeType))};
        types.erase(std::remove(types.begin(), types.end(), preferred), types.end());
        types.insert(types.begin(), preferred);
    }
    std::string serving;
    if (options.replay) {
        std::erase_if(options.managers, [&](hmxsim::ManagerId id) {
            const auto& held = options.replay->managers;
            return std::find(held.begin(), held.end(), id) == held.end();
        });
    }
    for (const hmxsim::ManagerId id : options.managers) (serving += hmxsim::servicePathOf(id)) += ", ";
    options.onServing = [=] {
        std::cerr << std::string{name} + ": serving " + serving + std::string{hmxsim::controlPath} + " from " + file + "\n"
                  << std::flush;
    };
    hmxsim::Server server{std::move(options)};
    if (const std::string failure = server.start(); !failure.empty()) {
        std::cerr << name << ": " << failure << std::endl;
        return 1;
    }
    waitForSignal();
    return 0;
}

}  // namespace

namespace hmxsim {

int runProcess(int argc, char** argv) {
    const osal::Osal osal{true, true};
    const auto utilities = util::Util::init(name, true, false, true, false);
    hmxsim::CommandLine line;
    if (const auto status = hmxsim::readCommandLine(argc, argv, line, std::cout, std::cerr)) return *status;
    try {
        return line.worldSize.empty() ? serve(line) : printWorld(line);
    } catch (const hmx::client::Error& error) {
        std::cerr << name << ": " << error.what() << (error.hint().empty() ? "" : "\n" + std::string{name} + ": " + error.hint())
                  << std::endl;
        return error.kind() == hmx::client::Error::Kind::invalid ? 2 : 1;
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << std::endl;
        return 1;
    }
}

}  // namespace hmxsim
