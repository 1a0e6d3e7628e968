// The verbs, declared once: command line, help and completion are made from this table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"

namespace hmxctl {

struct Context;

// The options that only some verbs take.
enum VerbOption : std::uint32_t {
    noOptions = 0,
    bodyFile = 1U << 0U,    // -f
    validation = 1U << 1U,  // --no-validate
    watching = 1U << 2U,    // --count, --once, --no-reconnect
    appearing = 1U << 3U,   // --appear
    idParts = 1U << 4U,     // --name, --id, --uri
    keepOpen = 1U << 5U,    // --stream
    liveOnly = 1U << 6U,    // not with --from
    lasting = 1U << 7U,     // --for, --until
    filing = 1U << 8U,      // --upstream, --last; -o is a file
    condition = 1U << 9U,   // the last word is an expression
    reporting = 1U << 10U,  // --report, --with-payloads
    comparing = 1U << 11U,  // --ignore, --strict
};

// What the first word behind a verb is, for completion.
enum class FirstWord : std::uint8_t {
    none,
    resource,
    element,
    display,
    target,
    service,
    verb,
    shell,
    simCommand,
    channel,
    policyCommand
};

struct Verb {
    std::string_view name;
    std::string_view words;    // synopsis of what follows
    std::string_view summary;  // one line
    std::string_view details;  // what else `help VERB` says; lines end in '\n'
    std::size_t fewest = 0;    // words
    std::size_t most = 0;
    std::uint32_t options = noOptions;
    FirstWord first = FirstWord::none;
    ExitCode (*run)(Context&) = nullptr;
    bool hidden = false;
};

inline constexpr std::size_t anyNumber = static_cast<std::size_t>(-1);

[[nodiscard]] std::span<const Verb> verbs() noexcept;
// Null when there is none of that name.
[[nodiscard]] const Verb* findVerb(std::string_view name) noexcept;
// The names, without the hidden ones.
[[nodiscard]] std::vector<std::string> verbNames();

// "0.1.0".
[[nodiscard]] std::string_view programVersion() noexcept;

ExitCode runCall(Context& context);
ExitCode runComplete(Context& context);
ExitCode runCompletion(Context& context);
ExitCode runDelete(Context& context);
ExitCode runDescribe(Context& context);
ExitCode runDiff(Context& context);
ExitCode runDoctor(Context& context);
ExitCode runExplain(Context& context);
ExitCode runGet(Context& context);
ExitCode runHelp(Context& context);
ExitCode runHit(Context& context);
ExitCode runInsert(Context& context);
ExitCode runList(Context& context);
ExitCode runPolicy(Context& context);
ExitCode runRecord(Context& context);
ExitCode runServices(Context& context);
ExitCode runSim(Context& context);
ExitCode runStatus(Context& context);
ExitCode runTrace(Context& context);
ExitCode runTree(Context& context);
ExitCode runUpdate(Context& context);
ExitCode runUuid(Context& context);
ExitCode runVersion(Context& context);
ExitCode runWait(Context& context);
ExitCode runWatch(Context& context);

}  // namespace hmxctl
