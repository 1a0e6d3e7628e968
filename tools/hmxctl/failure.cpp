#include "failure.h"

namespace hmxctl {

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

}  // namespace hmxctl
