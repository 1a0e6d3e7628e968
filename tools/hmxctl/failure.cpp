#include "failure.h"

#include "hmx/client/resources.h"
#include "text.h"

namespace hmxctl {
namespace {

ExitCode codeFor(const Error& error) noexcept {
    switch (error.kind()) {
        case Error::Kind::refused:
            return exitCodeOf(error.status());
        case Error::Kind::ended:
            return ExitCode::streamEnded;
        case Error::Kind::late:
            return ExitCode::timeout;
        case Error::Kind::invalid:
        case Error::Kind::ambiguous:
            return ExitCode::usage;
        case Error::Kind::noElement:
        case Error::Kind::nameless:
            return ExitCode::notFound;
        case Error::Kind::noService:
        case Error::Kind::serviceDead:
        case Error::Kind::serviceHung:
        case Error::Kind::serviceFull:
        case Error::Kind::noDomain:
            return ExitCode::serviceAbsent;
        case Error::Kind::foreign:
        case Error::Kind::closedDomain:
        case Error::Kind::notEntered:
            return ExitCode::notPermitted;
        case Error::Kind::unreadable:
        case Error::Kind::system:
            break;
    }
    return ExitCode::unexpected;
}

std::string hintForRefusal(std::uint16_t status, const std::string& service) {
    switch (exitCodeOf(status)) {
        case ExitCode::serviceAbsent:
            return service == hmxService
                       ? "`hmxctl services` shows what is there; a bridge without its upstream answers like this"
                       : "`hmxctl services` shows what is there";
        case ExitCode::timeout:
            return "that is the service's own time limit; `hmxctl status " + service + "` shows what it waits for";
        case ExitCode::notFound:
            if (service == "/hmxsim") return "`hmxctl sim world` shows what there is";
            return service == hmxService ? "`hmxctl describe` shows the paths and commands that there are" : "";
        case ExitCode::rejected:
            if (service == "/hmxsim") return "`hmxctl help sim` shows the forms";
            if (status >= 500) return "the log of the service may tell more";
            return service == hmxService ? "`hmxctl describe RESOURCE` shows what it takes" : "";
        default:
            return {};
    }
}

std::string hintFor(const Error& error) {
    const std::string resource{error.resource()};
    switch (error.kind()) {
        case Error::Kind::refused:
            return hintForRefusal(error.status(), error.service());
        case Error::Kind::late:
            return "--timeout lets it wait longer";
        case Error::Kind::noElement:
            return isListable(*findResource(resource))
                       ? "`hmxctl list " + resource + "` shows what there is"
                       : "the bridge knows only what was inserted since it started; `hmxctl tree` shows all touch regions";
        case Error::Kind::nameless:
            return "`hmxctl list " + resource + "` shows it; an element without a name cannot be asked for";
        case Error::Kind::serviceDead:
            return "start it again; `hmxctl services` shows which services are alive";
        case Error::Kind::serviceFull:
            return "end some of its clients, then `hmxctl status " + error.service() + "` lists the others";
        case Error::Kind::noDomain:
            return "no service has been started there; --runtime-dir, KELO_RUNTIME_DIR and --domain choose another";
        case Error::Kind::foreign:
        case Error::Kind::closedDomain:
            if (error.names().empty()) return "--runtime-dir, KELO_RUNTIME_DIR and --domain choose another directory";
            return "a service accepts only the user who runs it: sudo -u " + error.names().front() + " hmxctl ...";
        default:
            return {};
    }
}

}  // namespace

ExitCode exitCodeOf(std::uint16_t status) noexcept {
    if (status >= 200 && status < 300) return ExitCode::ok;
    switch (status) {
        case 401:
        case 403:
            return ExitCode::notPermitted;
        case 404:
            return ExitCode::notFound;
        case 408:
        case 504:
            return ExitCode::timeout;
        case 503:
            return ExitCode::serviceAbsent;
        default:
            return ExitCode::rejected;
    }
}

Failure failureOf(const Error& error) {
    return Failure{codeFor(error), printable(error.what()), error.hint().empty() ? hintFor(error) : error.hint(), error.status()};
}

}  // namespace hmxctl
