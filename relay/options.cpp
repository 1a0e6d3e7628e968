#include "options.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include "kelo/runtime/domain_view.h"
#include "names.h"
#include "program_options.h"

namespace hmxrelay {
namespace {

constexpr const char* description =
    "Carries /hmx between machines. `hmxrelay export` runs beside a bridge and writes to the network\n"
    "what /hmx shows; `hmxrelay import` runs on any other machine and publishes it there. Uses the\n"
    "loopback only, unless an interface is named. Runs until interrupted.";

constexpr const char* footer =
    "Examples:\n"
    "  hmxrelay export --interface eth0 --name cluster\n"
    "  hmxrelay import --interface eth0                          publishes /hmx@cluster\n"
    "  hmxctl --service /hmx@cluster list displays\n"
    "  hmxrelay import --interface eth0 --as /hmx --origin cluster --read-only\n"
    "\n"
    "Topics, failures, security: docs/relay.md. Exit status: 0 when interrupted, 2 for wrong usage,\n"
    "7 if the name or the service is taken, 1 for any other failure.";

// Nothing if it is none.
std::optional<std::chrono::milliseconds> durationOf(std::string_view text) {
    std::uint32_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit = text.substr(static_cast<std::size_t>(end.ptr - text.data()));
    if (end.ec != std::errc{} || (unit != "ms" && unit != "s")) return std::nullopt;
    return std::chrono::milliseconds{std::uint64_t{number} * (unit == "s" ? 1000U : 1U)};
}

}  // namespace

std::string_view programVersion() noexcept {
    return "hmxrelay " HMX_VERSION;
}

std::optional<int> readCommandLine(int argc, const char* const* argv, Options& options, std::ostream& out, std::ostream& err) {
    options::Command program{description, "hmxrelay"};
    program.footer(footer);
    program.versionFlag("--version", std::string{programVersion()});
    std::string mode;
    std::string as{"/hmx@ORIGIN"};
    std::string lease{"1s"};
    std::string networkDomain{"0"};
    std::vector<std::string> origins;
    Network& network = options.network;
    program.value("MODE", mode, "export or import", "");
    program.value("--name", options.name, "export: the origin's name (default: the machine's)", "ORIGIN");
    program.value("--as", as, "import: the path to publish under; ORIGIN stands for the origin's name (/hmx@ORIGIN)", "PATH");
    program.values("--origin", origins, "import: only this origin; may be repeated", "ORIGIN");
    program.flag("--read-only", options.isReadOnly, "Neither takes nor passes on changes");
    program.value("--lease", lease, "export: after how long without a sign of life it counts as lost (1s)", "DURATION");
    program.value("--interface", network.interface, "Network interface: its name or numeric address (lo)", "NAME");
    program.values("--peer", network.peers, "Address to look at, in a network without multicast; may be repeated", "ADDRESS");
    program.value("--network-domain", networkDomain, "Number of the DDS domain, 0 to 230 (0)", "N");
    program.value("--partition", network.partition, "Only relays with the same one see each other (hmx)", "NAME");
    program.value("--security", network.security, "Directory with identity and permissions, see docs/relay.md", "DIR");
    program.value("--domain", options.domain, "Domain of the services on this machine (KELO_DOMAIN, else local)", "NAME");
    program.value("--runtime-dir", options.runtimeDirectory, "Where the domains are (KELO_RUNTIME_DIR)", "DIR");
    const auto wrong = [&](const std::string& what) {
        err << "hmxrelay: " << what << "\nTry 'hmxrelay --help'.\n";
        return exitUsage;
    };
    try {
        if (const std::optional<int> status = program.parse(argc, argv, out)) return status;
    } catch (const options::UsageError& error) {
        return wrong(error.what());
    }
    if (mode != "export" && mode != "import") return wrong("what to do: export or import?");
    options.isExport = mode == "export";
    for (const char* option : {"--as", "--origin"}) {
        if (options.isExport && program.isGiven(option)) return wrong(std::string{option} + " is for import");
    }
    for (const char* option : {"--name", "--lease"}) {
        if (!options.isExport && program.isGiven(option)) return wrong(std::string{option} + " is for export");
    }
    if (options.name.empty()) options.name = hostName();
    options.origins = {origins.begin(), origins.end()};
    std::vector<std::string> names{origins};
    names.push_back(options.name);
    for (const std::string& name : names) {
        if (!isOriginName(name)) {
            return wrong("'" + name + "' cannot be an origin's name: up to 63 letters, digits, '-', '_' and '.'");
        }
    }
    if (!as.starts_with("/hmx") || (as.size() > 4 && as[4] != '@') || as.find('/', 1) != std::string::npos) {
        return wrong("--as: '" + as + "' is neither /hmx nor /hmx@NAME");
    }
    if (as.find("ORIGIN") == std::string::npos && options.origins.size() != 1) {
        return wrong("--as " + as + " is one service, so it needs one --origin");
    }
    options.suffix = as.substr(4);
    const std::optional<std::chrono::milliseconds> duration = durationOf(lease);
    if (!duration || duration->count() < 100 || duration->count() > 60'000) {
        return wrong("--lease: '" + lease + "' is not a time from 100ms to 60s");
    }
    network.lease = *duration;
    const auto end = std::from_chars(networkDomain.data(), networkDomain.data() + networkDomain.size(), network.domain);
    if (end.ec != std::errc{} || end.ptr != networkDomain.data() + networkDomain.size() || network.domain > 230) {
        return wrong("--network-domain: '" + networkDomain + "' is not a number from 0 to 230");
    }
    if (network.partition.empty() || network.partition.find_first_of("*?[") != std::string::npos) {
        return wrong("--partition: '" + network.partition + "' is not a plain name");
    }
    if (options.domain.empty()) options.domain = kelo::runtime::domainName(kelo::runtime::usualDomain);
    if (!kelo::runtime::isDomainName(options.domain))
        return wrong("--domain: '" + options.domain + "' cannot be the name of a domain");
    return std::nullopt;
}

}  // namespace hmxrelay
