// A domain of its own with the programs under test.
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

namespace campaign {

// Thread: one at a time.
class Stage {
public:
    explicit Stage(const Scope& scope);
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    const std::string& folder() const noexcept { return folder_; }  // for whatever files a driver needs
    std::string domain() const { return folder_ + "/run/local"; }
    std::string socket(std::string_view servicePath) const;

    // Each starts a program in this domain; `environment` in addition; `log`: the file for its output, named after the program if
    // empty; `uid`: as whom, if not as ourselves.
    std::unique_ptr<Process> start(std::vector<std::string> command, std::vector<std::string> environment = {},
                                   const std::string& log = {}, uid_t uid = 0) const;
    std::unique_ptr<Process> startBridge(std::vector<std::string> environment = {}) const;
    std::unique_ptr<Process> startSim(std::vector<std::string> arguments = {}, std::vector<std::string> environment = {}) const;

    // A provider of one service that echoes: see roles.h.
    std::unique_ptr<Process> startProvider(const std::string& servicePath) const;

    // Whether the bridge knows of all upstream services, and answers what it has to ask them for.
    bool isServing() const;
    void awaitServing(milliseconds patience = milliseconds{10'000}) const;
    // A client of a service, as soon as it is there.
    std::unique_ptr<Client> connect(std::string_view service = "/hmx") const;
    // Sets a fault rule of the simulator's for every manager.
    void setFaults(std::string_view rule) const;
    // The bridge's own word on itself, over a new connection.
    nlohmann::json status(std::string_view service = "/hmx") const;
    // A counter of that word.
    static double counter(const nlohmann::json& status, const char* name) { return status.at("counters").at(name); }

    // What the programs wrote lately.
    std::string log() const;
    static std::string read(const std::string& file);

private:
    const Scope& scope_;
    std::string folder_;
};

using testing_support::eventually;

}  // namespace campaign
