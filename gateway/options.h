// The command line.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hmxgateway {

// Thread: any (a value).
struct Options {
    std::string listen{"127.0.0.1:8780"};
    std::string page{};        // "": the usual place
    std::string recordings{};  // a directory; "": none
    bool allowChanges = false;
    std::string tokenFile{};
    std::vector<std::string> hosts{};
    std::vector<std::string> origins{};
    std::string service{"/hmx"};
    std::string domain{};
    std::string runtimeDirectory{};
};

// The exit status if the process is to end now: help was asked for, or the words are wrong.
[[nodiscard]] std::optional<int> readCommandLine(int argc, char* const* argv, Options& options, std::ostream& out,
                                                 std::ostream& err);

[[nodiscard]] std::string_view version() noexcept;

// Exit codes, as hmxctl has them.
inline constexpr int exitOk = 0;
inline constexpr int exitUnexpected = 1;
inline constexpr int exitUsage = 2;
inline constexpr int exitNotPermitted = 6;

}  // namespace hmxgateway
