// A domain of its own, with the programs under test.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "harness/client.h"
#include "harness/process.h"
#include "harness/scope.h"
#include "support/eventually.h"
#include "support/notify_socket.h"

namespace campaign {

using Supervisor = testing_support::NotifySocket;

// Thread: one at a time.
class Stage {
public:
    explicit Stage(const Scope& scope);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    const std::string& folder() const noexcept { return folder_; }  // for any files that a driver needs
    std::string domain() const { return folder_ + "/run/local"; }
    std::string socket(std::string_view servicePath) const;

    // Each starts a program in this domain. `environment`: additions. `log`: the file for its output; if empty, named after the
    // program. `uid`: the user to run as; 0: unchanged.
    std::unique_ptr<Process> start(std::vector<std::string> command, std::vector<std::string> environment = {},
                                   const std::string& log = {}, uid_t uid = 0) const;
    std::unique_ptr<Process> startBridge(std::vector<std::string> environment = {}) const;
    // Under a supervisor, with what that has kept.
    std::unique_ptr<Process> startBridge(const Supervisor& supervisor) const;
    std::unique_ptr<Process> startSim(std::vector<std::string> arguments = {}, std::vector<std::string> environment = {}) const;

    // A provider of one service that echoes: see roles.h.
    std::unique_ptr<Process> startProvider(const std::string& servicePath) const;

    // Whether the bridge has all upstream services and answers questions that need them.
    bool isServing() const;
    void awaitServing(milliseconds patience = milliseconds{10'000}) const;
    // Connects to a service as soon as it exists.
    std::unique_ptr<Client> connect(std::string_view service = "/hmx") const;
    // Sets a fault rule of the simulator for every manager.
    void setFaults(std::string_view rule) const;
    // The bridge's own status, over a new connection.
    nlohmann::json status(std::string_view service = "/hmx") const;
    // A counter from a status.
    static double counter(const nlohmann::json& status, const char* name) { return status.at("counters").at(name); }

    // The address of a supervisor of this stage.
    std::string notifyAddress() const { return folder_ + "/notify"; }

    // The most recent output of the programs.
    std::string log() const;
    static std::string read(const std::string& file);

private:
    Process::Start prepared(std::vector<std::string> command, std::vector<std::string> environment, const std::string& log,
                            uid_t uid) const;

    const Scope& scope_;
    std::string folder_;
};

using testing_support::eventually;

}  // namespace campaign
