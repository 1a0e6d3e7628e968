#include "options.h"

#include <CLI/CLI.hpp>

#include "kelo/runtime/domain_view.h"

namespace hmxgateway {
namespace {

constexpr const char* description =
    "Serves /hmx over HTTP: every retrieve, event streams, and the inspector's page. Listens on the loopback\n"
    "and only reads, unless told otherwise.";

constexpr const char* examples =
    "Examples:\n"
    "  hmxgateway\n"
    "  curl http://127.0.0.1:8780/hmx/displays\n"
    "  curl -N -H 'Accept: text/event-stream' http://127.0.0.1:8780/hmx/popups\n"
    "  hmxgateway --allow-changes --listen unix:/run/user/1000/hmx.http\n"
    "  hmxgateway --listen 192.0.2.7:8780 --host panel.example --token-file /etc/hmxgateway.token\n"
    "\n"
    "Exit status: 0 when interrupted, 2 for wrong usage, 6 if something is not permitted, 1 for any other failure.";

int usageError(std::ostream& err, const std::string& what) {
    err << "hmxgateway: " << what << "\nTry 'hmxgateway --help'.\n";
    return exitUsage;
}

}  // namespace

std::optional<int> readCommandLine(int argc, const char* const* argv, Options& options, std::ostream& out, std::ostream& err) {
    CLI::App app{description, "hmxgateway"};
    app.footer(examples);
    app.set_version_flag("--version", "hmxgateway " HMX_VERSION);
    app.add_option("--listen", options.listen,
                   "Where to listen: HOST:PORT with a numeric address (127.0.0.1:8780; port 0: any), or unix:PATH")
        ->type_name("ADDRESS");
    app.add_flag("--allow-changes", options.allowChanges, "Allow inserts, updates and deletes, too");
    app.add_option("--token-file", options.tokenFile,
                   "File with the token that every request has to bring; needed for addresses other than the loopback")
        ->type_name("FILE");
    app.add_option("--host", options.hosts, "Further name that the server goes by in the Host header")->type_name("NAME");
    app.add_option("--allow-origin", options.origins,
                   "Foreign origin whose pages may use the server, such as https://panel.example")
        ->type_name("ORIGIN");
    app.add_option("--page", options.page, "Directory of the inspector's page (default: the one that belongs to the program)")
        ->type_name("DIRECTORY");
    app.add_option("--domain", options.domain, "Domain in which the services meet (default: $KELO_DOMAIN, or local)")
        ->type_name("NAME");
    app.add_option("--runtime-dir", options.runtimeDirectory, "Directory of the domains (default: $KELO_RUNTIME_DIR, ...)")
        ->type_name("DIRECTORY");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        app.exit(success, out, err);
        return exitOk;
    } catch (const CLI::ParseError& error) {
        return usageError(err, error.what());
    }
    if (options.domain.empty()) options.domain = kelo::runtime::domainName(kelo::runtime::usualDomain);
    if (!kelo::runtime::isDomainName(options.domain)) {
        return usageError(err, "--domain: \"" + options.domain + "\" cannot be the name of a domain");
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
