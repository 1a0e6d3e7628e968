// Clients that watch a resource: one made of raw bytes, and the command-line client.
#pragma once

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "harness/stage.h"

namespace campaign {

using Json = nlohmann::json;
// The elements of a list, by id.
using Elements = std::map<std::string, Json>;

// Sets `distinct` to false if an id occurs twice.
Elements elementsOf(const Json& list, bool& distinct);

// Keeps a retrieve open and repeats it whenever it has ended. Thread: one at a time.
class RawWatcher {
public:
    RawWatcher(const Stage& stage, std::string path, std::string payload = {});

    // Reads what has arrived; connects and asks again if necessary.
    void serve();
    // Disconnects without notice; the next `serve` connects again.
    void restart() { client_.reset(); }

    const std::optional<Elements>& state() const noexcept { return state_; }
    unsigned duplicates() const noexcept { return duplicates_; }  // lists that contained an element twice
    unsigned repeats() const noexcept { return repeats_; }        // states that equal the previous one
    unsigned values() const noexcept { return values_; }

private:
    const Stage& stage_;
    const std::string path_;
    const std::string payload_;
    std::unique_ptr<Client> client_;
    std::uint64_t id_ = 0;
    Clock::time_point nextTry_;
    std::string last_;
    std::optional<Elements> state_;
    unsigned duplicates_ = 0;
    unsigned repeats_ = 0;
    unsigned values_ = 0;
};

// `hmxctl watch … -o jsonl`; its events are applied to the previous state. Thread: one at a time.
class ProgramWatcher {
public:
    ProgramWatcher(const Stage& stage, std::string name, std::vector<std::string> arguments);

    void serve();
    void restart();

    bool isRunning() { return process_->isRunning(); }
    // The state according to its events; none while its source is down.
    const std::optional<Elements>& state() const noexcept { return state_; }
    unsigned duplicates() const noexcept { return duplicates_; }  // changes that change nothing, removals of unknown elements
    unsigned outOfTurn() const noexcept { return outOfTurn_; }    // down while down, up while up, changes without a snapshot
    unsigned events() const noexcept { return events_; }

private:
    void start();
    void apply(const Json& event);

    const Stage& stage_;
    const std::string name_;
    const std::vector<std::string> arguments_;
    std::unique_ptr<Process> process_;
    unsigned generation_ = 0;
    std::size_t read_ = 0;
    bool isDown_ = false;
    std::optional<Elements> state_;
    unsigned duplicates_ = 0;
    unsigned outOfTurn_ = 0;
    unsigned events_ = 0;
};

}  // namespace campaign
