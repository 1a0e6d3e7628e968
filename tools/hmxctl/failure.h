// How a command ends: exit codes, and the failure that carries one to the surface.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "hmx/client/error.h"

namespace hmxctl {

// Everything here is said in the client library's words.
using namespace hmx::client;  // NOLINT(google-build-using-namespace)

// Scripts rely on these numbers.
enum class ExitCode : int {
    ok = 0,
    unexpected = 1,
    usage = 2,
    notFound = 3,
    serviceAbsent = 4,  // not there, or lost on the way
    timeout = 5,
    notPermitted = 6,
    rejected = 7,  // the service said no
    streamEnded = 9,
    differences = 10,
    interrupted = 130,
};

// What an answer's status means to the caller of a command; `ok` for 2xx.
[[nodiscard]] ExitCode exitCodeOf(std::uint16_t status) noexcept;

// Ends a command: `what` says what was tried and how it ended, `hint` what would help ("" where nothing is known).
// Thread: any (a value).
class Failure : public std::runtime_error {
public:
    explicit Failure(ExitCode code, const std::string& what, std::string hint = {}, std::uint16_t status = 0)
        : std::runtime_error{what}, code_{code}, hint_{std::move(hint)}, status_{status} {}

    ExitCode code() const noexcept { return code_; }
    const std::string& hint() const noexcept { return hint_; }
    // The status of the answer that was the cause; 0 when there was none.
    std::uint16_t status() const noexcept { return status_; }

private:
    ExitCode code_;
    std::string hint_;
    std::uint16_t status_;
};

// The failure that an error of the library is to whoever typed the command, with what hmxctl itself has to offer.
[[nodiscard]] Failure failureOf(const Error& error);

// A command line that cannot be carried out as it stands.
[[nodiscard]] inline Failure usageError(const std::string& what, std::string hint = {}) {
    return Failure{ExitCode::usage, what, std::move(hint)};
}

}  // namespace hmxctl
