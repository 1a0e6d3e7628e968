#include "command_line.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include "kelo/mimetypes.h"
#include "make_world.h"
#include "program_options.h"

namespace hmxsim {

namespace {

constexpr const char* version = "hmxsim " HMX_VERSION;

constexpr const char* description =
    "Simulates the display manager, the input manager and the popup manager that hmxtolubridge\n"
    "connects to, with a world from a file. Runs until interrupted; `hmxctl sim` changes the world\n"
    "and injects faults meanwhile.";

constexpr const char* examples =
    "Examples:\n"
    "  hmxsim                                         the standard cockpit, all three managers\n"
    "  hmxsim --world one_screen popupmanager         another sample, the popup manager alone\n"
    "  hmxsim --world ./my.json --mime application/vnd.ixobin\n"
    "  hmxsim --scenario calls.json --seed 7          changes at set times, the same for the same seed\n"
    "  hmxsim --replay drive.jsonl --speed 4         what the managers said in a recording, four times as fast\n"
    "  hmxsim --record-requests - | grep popup        watch what arrives\n"
    "  hmxsim --make-world displays=4,popups=500 --seed 3 > big.json\n"
    "\n"
    "Exit status: 0 when interrupted, 2 for wrong usage, 1 for any other failure.";

int usageError(std::ostream& err, const std::string& what) {
    err << "hmxsim: " << what << "\nTry 'hmxsim --help'.\n";
    return 2;
}

}  // namespace

std::optional<int> readCommandLine(int argc, const char* const* argv, CommandLine& line, std::ostream& out, std::ostream& err) {
    options::Command program{description, "hmxsim"};
    program.footer(examples);
    program.versionFlag("--version", version);
    std::vector<std::string> managers;
    std::string seed;
    std::string speed;
    program.value("--world", line.world, "World to simulate: a file, or a sample's name (default: cockpit)", "FILE");
    program.value("--mime", line.mimeType, "Preferred mime type, which clients then use", "TYPE");
    program.value("--record-requests", line.recordFile, "Write each request, one JSON object per line; - is standard output",
                  "FILE");
    program.value("--scenario", line.scenarioFile, "Changes and faults at set times", "FILE");
    program.value("--make-world", line.worldSize,
                  "Print a world of this size and end; SIZE is displays=N,displayables=N,popups=N,regions=N", "SIZE");
    program.value("--replay", line.replay.file,
                  "Replay what the managers said in a recording, in place of a world; - is standard input", "FILE");
    program.value("--speed", speed, "Of the replay: a factor, or max (1)", "N");
    program.flag("--loop", line.replay.loops, "Begin the replay again at its end");
    program.value("--start", line.replay.start, "Where the replay begins: 12.5s, -3s (before the end), 12:34:56", "TIME");
    program.value("--end", line.replay.end, "Where it ends", "TIME");
    program.flag("--paused", line.replay.isPaused, "Wait at the start, until `hmxctl sim replay run`");
    program.value("--seed", seed, "Seed of all random choices: faults, scenarios, generated worlds (1, or the scenario's own)",
                  "N");
    program.values("MANAGER", managers, "displaymanager, inputmanager or popupmanager (default: all three)", "");
    try {
        if (const std::optional<int> status = program.parse(argc, argv, out)) return status;
    } catch (const options::UsageError& error) {
        return usageError(err, error.what());
    }
    if (!line.mimeType.empty() && !kelo::mimetypes::isStructured(kelo::mimetypes::typename2id(line.mimeType))) {
        return usageError(err, "--mime: \"" + line.mimeType +
                                   "\" is none of application/json, application/vnd.msgpack, application/vnd.ixobin");
    }
    const bool replays = program.isGiven("--replay");
    if (replays && (program.isGiven("--world") || program.isGiven("--make-world"))) {
        return usageError(err, "--replay: the world is the recording's");
    }
    for (const char* option : {"--speed", "--loop", "--start", "--end", "--paused"}) {
        if (!replays && program.isGiven(option)) return usageError(err, std::string{option} + " is of a --replay");
    }
    if (replays && line.replay.file.empty()) return usageError(err, "--replay: which recording?");
    if (speed == "max") {
        line.replay.speed.reset();
    } else if (!speed.empty()) {
        const auto end = std::from_chars(speed.data(), speed.data() + speed.size(), line.replay.speed.emplace());
        if (end.ec != std::errc{} || end.ptr != speed.data() + speed.size() || !(*line.replay.speed >= 0.001) ||
            !(*line.replay.speed <= 1e6)) {
            return usageError(err, "--speed: \"" + speed + "\" is neither max nor a factor from 0.001 to 1000000");
        }
    }
    if (!seed.empty()) {
        const auto end = std::from_chars(seed.data(), seed.data() + seed.size(), line.seed.emplace());
        if (end.ec != std::errc{} || end.ptr != seed.data() + seed.size()) {
            return usageError(err, "--seed: \"" + seed + "\" is not a number from 0");
        }
    }
    if (program.isGiven("--make-world") && line.worldSize.empty()) {
        return usageError(err, "--make-world: the size is missing, for example displays=4,popups=500");
    }
    WorldSize size;
    if (const std::string complaint = readWorldSize(line.worldSize, size); !complaint.empty()) {
        return usageError(err, "--make-world: " + complaint);
    }
    for (const std::string& manager : managers) {
        const bool known =
            std::any_of(allManagers.begin(), allManagers.end(), [&](ManagerId id) { return nameOf(id) == manager; });
        if (!known) return usageError(err, "\"" + manager + "\" is none of displaymanager, inputmanager, popupmanager");
    }
    for (const ManagerId id : allManagers) {
        const bool isNamed = std::find(managers.begin(), managers.end(), nameOf(id)) != managers.end();
        if (managers.empty() || isNamed) line.managers.push_back(id);
    }
    return std::nullopt;
}

}  // namespace hmxsim
