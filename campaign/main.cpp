// Checks what the system promises: real processes, raw sockets, deliberate faults. Prints one line per promise. Exit status 0
// if every promise was kept, 1 if not, 2 for wrong usage.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "harness/roles.h"
#include "promises.h"

namespace {

using campaign::Clock;

constexpr char usage[] =
    "usage: hmxcampaign [--cut] [--seed N] [--only NAME]... [--programs DIR] [--keep] [--list]\n"
    "Holds the programs beside it to what they promise.\n"
    "  --cut        a short run of everything\n"
    "  --seed N     repeats what was drawn in the run that printed N\n"
    "  --only NAME  this promise alone; may be given again\n"
    "  --programs DIR  the programs there, not those beside it\n"
    "  --keep       leave the directories behind, with what the programs wrote\n"
    "  --list       name the promises and end\n";

int help() {
    std::fputs(usage, stdout);
    return 0;
}

int complain(std::string_view what) {
    std::fprintf(stderr, "hmxcampaign: %.*s\n%s", static_cast<int>(what.size()), what.data(), usage);
    return 2;
}

// A promise gets the same seed whether it runs alone or with others.
std::uint64_t seedOf(const campaign::Promise& promise, std::uint64_t seed) {
    for (const char c : promise.name) seed = seed * 1'099'511'628'211U + static_cast<unsigned char>(c);
    return seed;
}

bool drive(const campaign::Promise& promise, const campaign::Scope& scope) {
    if (promise.isBareOnly && campaign::Scope::isSanitized) {
        std::printf("passed over %s: not under sanitizers\n", std::string{promise.name}.c_str());
        return true;
    }
    // The short run shares the machine with other tests, so its times include theirs. The whole campaign runs alone.
    constexpr double beside = 10;
    campaign::Report report{campaign::Scope::slowness * (scope.isCut ? beside : 1)};
    campaign::Random random{seedOf(promise, scope.seed)};
    const auto begin = Clock::now();
    try {
        promise.drive(scope, random, report);
    } catch (const std::exception& error) {
        report.broken(error.what());
    }
    const double seconds = campaign::millisecondsSince(begin) / 1000;
    std::printf("%-6s %-12s %s: %s [%.1f s]\n", report.held() ? "held" : "BROKEN", std::string{promise.name}.c_str(),
                std::string{promise.text}.c_str(), report.line().c_str(), seconds);
    if (!report.held()) {
        for (const std::string& note : report.notes()) std::printf("       %s\n", note.c_str());
    }
    std::fflush(stdout);
    return report.held();
}

}  // namespace

int main(int argc, char** argv) {
    // The log lines of runtimes inside this process must not appear in our output.
    ::setenv("KELO_TRACE", "*=5", 0);
    if (const int status = campaign::play(argc, argv); status >= 0) return status;
    campaign::Scope scope;
    scope.programs = std::filesystem::canonical("/proc/self/exe").parent_path();
    scope.faultsLibrary = scope.programs + "/libhmxfaults.so";
    scope.seed = std::random_device{}();
    std::vector<std::string_view> only;
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == "--help") {
            return help();
        } else if (argument == "--cut") {
            scope.isCut = true;
        } else if (argument == "--keep") {
            scope.keep = true;
        } else if (argument == "--seed" && hasValue) {
            scope.seed = std::strtoull(arguments[++i].c_str(), nullptr, 10);
        } else if (argument == "--programs" && hasValue) {
            scope.programs = arguments[++i];
        } else if (argument == "--only" && hasValue) {
            only.emplace_back(arguments[++i]);
        } else if (argument == "--list") {
            for (const auto& promise : campaign::promises()) {
                std::printf("%-12s %s\n", std::string{promise.name}.c_str(), std::string{promise.text}.c_str());
            }
            return 0;
        } else {
            return complain("cannot use '" + argument + "'");
        }
    }
    for (const std::string_view name : only) {
        bool known = false;
        for (const auto& promise : campaign::promises()) known = known || promise.name == name;
        if (!known) return complain("no promise is called '" + std::string{name} + "'");
    }
    std::printf("seed %llu\n", static_cast<unsigned long long>(scope.seed));
    std::fflush(stdout);
    bool held = true;
    for (const auto& promise : campaign::promises()) {
        bool wanted = only.empty();
        for (const std::string_view name : only) wanted = wanted || name == promise.name;
        if (wanted) held = drive(promise, scope) && held;
    }
    return held ? 0 : 1;
}
