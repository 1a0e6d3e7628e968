#include "harness/stage.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "harness/questions.h"

namespace campaign {

Stage::Stage(const Scope& scope) : scope_{scope} {
    std::string name = std::filesystem::temp_directory_path() / "hmx-campaign-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw Failure{"cannot make a directory for the stage"};
    folder_ = name;
    std::filesystem::create_directories(domain());
}

Stage::~Stage() {
    std::error_code ignored;
    if (!scope_.keep) std::filesystem::remove_all(folder_, ignored);
}

std::string Stage::socket(std::string_view servicePath) const {
    return domain() + "/%2F" + std::string{servicePath.substr(1)} + ".sock";
}

Process::Start Stage::prepared(std::vector<std::string> command, std::vector<std::string> environment, const std::string& log,
                               uid_t uid) const {
    Process::Start start;
    start.uid = uid;
    start.log = folder_ + "/" + (log.empty() ? std::filesystem::path{command.at(0)}.filename().string() + ".log" : log);
    start.command = std::move(command);
    start.environment = {"KELO_RUNTIME_DIR=" + folder_ + "/run", "KELO_TRACE=*=3"};
    start.environment.insert(start.environment.end(), environment.begin(), environment.end());
    return start;
}

std::unique_ptr<Process> Stage::start(std::vector<std::string> command, std::vector<std::string> environment,
                                      const std::string& log, uid_t uid) const {
    return std::make_unique<Process>(prepared(std::move(command), std::move(environment), log, uid));
}

std::unique_ptr<Process> Stage::startBridge(std::vector<std::string> environment) const {
    return start({scope_.programs + "/hmxtolubridge"}, std::move(environment));
}

std::unique_ptr<Process> Stage::startBridge(const Supervisor& supervisor) const {
    Process::Start start = prepared({scope_.programs + "/hmxtolubridge"}, {"NOTIFY_SOCKET=" + notifyAddress()}, {}, 0);
    start.descriptors = supervisor.kept;
    return std::make_unique<Process>(start);
}

std::unique_ptr<Process> Stage::startSim(std::vector<std::string> arguments, std::vector<std::string> environment) const {
    arguments.insert(arguments.begin(), scope_.programs + "/hmxsim");
    return start(std::move(arguments), std::move(environment));
}

std::unique_ptr<Process> Stage::startProvider(const std::string& servicePath) const {
    return start({scope_.programs + "/hmxcampaign", "--provide", servicePath}, {"KELO_TRACE=*=4"});
}

std::unique_ptr<Client> Stage::connect(std::string_view service) const {
    std::unique_ptr<Client> client;
    const bool isThere = eventually([&] {
        try {
            client = std::make_unique<Client>(socket(service), service);
            return true;
        } catch (const Failure&) {
            return false;
        }
    });
    if (!isThere) throw Failure{"no service " + std::string{service} + ":\n" + log()};
    return client;
}

void Stage::setFaults(std::string_view rule) const {
    const auto control = connect("/hmxsim");
    for (const std::string_view manager : managers) control->call("update", "/faults/" + std::string{manager}, rule);
}

nlohmann::json Stage::status(std::string_view service) const {
    Client client{socket(service), service};
    return nlohmann::json::parse(client.get("/$platform/status"));
}

bool Stage::isServing() const {
    try {
        Client client{socket("/hmx")};
        const auto status = nlohmann::json::parse(client.get("/$platform/status"));
        for (const auto& tracked : status.at("tracked")) {
            // The bridge may still believe that a process is alive which has just been killed.
            if (!tracked.at("alive") || ::kill(tracked.at("pid"), 0) != 0) return false;
        }
        return client.call("retrieve", "/displays").status == 200 &&
               client.call("retrieve", "/popups", R"({"display":"Driver_Display"})").status == 200;
    } catch (const Failure&) {
        return false;
    }
}

void Stage::awaitServing(milliseconds patience) const {
    patience *= static_cast<int>(Scope::slowness);
    if (!eventually([&] { return isServing(); }, patience)) throw Failure{"the bridge does not come to serve:\n" + log()};
}

std::string Stage::read(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream{file}.rdbuf();
    return text.str();
}

std::string Stage::log() const {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator{folder_}) {
        if (entry.path().extension() == ".log") all += read(entry.path());
    }
    constexpr std::size_t most = 4000;
    if (all.size() > most) all.erase(0, all.size() - most);
    return all;
}

}  // namespace campaign
