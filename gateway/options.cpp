#include "options.h"

#include <getopt.h>

#include <array>
#include <ostream>

#include "ascii.h"
#include "kelo/runtime/domain_view.h"

namespace hmxgateway {
namespace {

constexpr const char* help =
    "Usage: hmxgateway [OPTIONS]\n"
    "\n"
    "Serves /hmx over HTTP: every retrieve, event streams, and the inspector's page. Listens on the\n"
    "loopback and only reads, unless told otherwise.\n"
    "\n"
    "Options:\n"
    "  --listen ADDRESS         Where to listen: HOST:PORT with a numeric address, or unix:PATH\n"
    "                           (127.0.0.1:8780; port 0 takes a free one)\n"
    "  --allow-changes          Allow inserts, updates and deletes, too\n"
    "  --token-file FILE        File with the token that every request has to bring; needed for\n"
    "                           addresses other than the loopback\n"
    "  --host NAME              Further name that the server goes by in the Host header\n"
    "  --allow-origin ORIGIN    Foreign origin whose pages may use the server\n"
    "  --page DIRECTORY         The inspector's page (default: the one that belongs to the program)\n"
    "  --recordings DIRECTORY   Serve the recordings (*.jsonl) of this directory, for the inspector\n"
    "  --service PATH           Where /hmx is: /hmx@ORIGIN for that of another machine (/hmx)\n"
    "  --domain NAME            Domain in which the services meet (default: $KELO_DOMAIN, or local)\n"
    "  --runtime-dir DIRECTORY  Directory of the domains (default: $KELO_RUNTIME_DIR, ...)\n"
    "  -h, --help               Show this help\n"
    "  --version                Show the version\n"
    "\n"
    "Examples:\n"
    "  hmxgateway\n"
    "  curl http://127.0.0.1:8780/hmx/displays\n"
    "  curl -N -H 'Accept: text/event-stream' http://127.0.0.1:8780/hmx/popups\n"
    "  hmxgateway --recordings /var/lib/hmx/recordings\n"
    "  hmxgateway --allow-changes --listen unix:/run/user/1000/hmx.http\n"
    "  hmxgateway --listen 192.0.2.7:8780 --host panel.example --token-file /etc/hmxgateway.token\n"
    "\n"
    "Limits and security: docs/gateway.md. Exit status: 0 when interrupted, 2 for wrong usage, 6 if\n"
    "something is not permitted, 1 for any other failure.\n";

int usageError(std::ostream& err, const std::string& what) {
    err << "hmxgateway: " << what << "\nTry 'hmxgateway --help'.\n";
    return exitUsage;
}

}  // namespace

std::string_view version() noexcept {
    return HMX_VERSION;
}

std::optional<int> readCommandLine(int argc, char* const* argv, Options& options, std::ostream& out, std::ostream& err) {
    const std::array<option, 13> known{{
        {"listen", required_argument, nullptr, 'l'},
        {"allow-changes", no_argument, nullptr, 'c'},
        {"token-file", required_argument, nullptr, 't'},
        {"host", required_argument, nullptr, 'n'},
        {"allow-origin", required_argument, nullptr, 'o'},
        {"page", required_argument, nullptr, 'p'},
        {"recordings", required_argument, nullptr, 'R'},
        {"service", required_argument, nullptr, 's'},
        {"domain", required_argument, nullptr, 'd'},
        {"runtime-dir", required_argument, nullptr, 'r'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {},
    }};
    opterr = 0;
    // The colon makes an argument that is missing differ from an option that is unknown.
    for (int found = 0; (found = ::getopt_long(argc, argv, ":h", known.data(), nullptr)) != -1;) {
        switch (found) {
            case 'l':
                options.listen = optarg;
                break;
            case 'c':
                options.allowChanges = true;
                break;
            case 't':
                options.tokenFile = optarg;
                break;
            case 'n':
                options.hosts.push_back(lowered(std::string_view{optarg}));
                break;
            case 'o':
                options.origins.emplace_back(optarg);
                break;
            case 'p':
                options.page = optarg;
                break;
            case 'R':
                options.recordings = optarg;
                break;
            case 's':
                options.service = optarg;
                break;
            case 'd':
                options.domain = optarg;
                break;
            case 'r':
                options.runtimeDirectory = optarg;
                break;
            case 'h':
                out << help;
                return exitOk;
            case 'v':
                out << "hmxgateway " << version() << '\n';
                return exitOk;
            case ':':
                return usageError(err, std::string{argv[optind - 1]} + ": the value is missing");
            default:
                return usageError(err, std::string{argv[optind - 1]} + ": no such option, or it takes no value");
        }
    }
    if (optind < argc) return usageError(err, std::string{argv[optind]} + ": there are options only");
    if (options.domain.empty()) options.domain = kelo::runtime::domainName(kelo::runtime::usualDomain);
    if (!kelo::runtime::isDomainName(options.domain)) {
        return usageError(err, "--domain: \"" + options.domain + "\" cannot be the name of a domain");
    }
    if (options.service.size() < 2 || options.service.front() != '/') {
        return usageError(err, "--service: \"" + options.service + "\" is not the path of a service, such as /hmx@cluster");
    }
    for (const std::string& origin : options.origins) {
        const std::size_t name = origin.starts_with("https://") ? 8 : origin.starts_with("http://") ? 7 : origin.size();
        if (name >= origin.size() || origin.find('/', name) != std::string::npos) {
            return usageError(err, "--allow-origin: \"" + origin + "\" is not an origin, such as https://panel.example");
        }
    }
    return std::nullopt;
}

}  // namespace hmxgateway
