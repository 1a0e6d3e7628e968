// The command line.
#pragma once

#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "participant.h"

namespace hmxrelay {

// Thread: any (a value).
struct Options {
    bool isExport = false;
    std::string name{};    // of the origin that is exported
    std::string suffix{};  // what follows "/hmx" in the path of what is imported, see ImportOptions
    std::set<std::string> origins{};
    bool isReadOnly = false;
    Network network{};
    std::string domain{};
    std::string runtimeDirectory{};
};

// The exit status if the process is to end now: help was asked for, or the words are wrong. Thread: main.
[[nodiscard]] std::optional<int> readCommandLine(int argc, const char* const* argv, Options& options, std::ostream& out,
                                                 std::ostream& err);

// "hmxrelay 0.1.0".
[[nodiscard]] std::string_view programVersion() noexcept;

// Exit codes, as hmxctl has them.
inline constexpr int exitOk = 0;
inline constexpr int exitUnexpected = 1;
inline constexpr int exitUsage = 2;
inline constexpr int exitTaken = 7;

}  // namespace hmxrelay
