// What was typed, taken apart.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hmxctl {

struct Verb;

enum class Format : std::uint8_t { table, json, jsonl, raw };

// Thread: any (a value).
struct Arguments {
    // For every verb.
    Format format = Format::table;
    bool formatGiven = false;
    std::chrono::milliseconds timeout{5000};
    bool timeoutGiven = false;
    bool patient = false;                      // what is away is asked again until the timeout
    std::string mimeType{"application/json"};  // full name
    bool colour = true;
    std::string service{"/hmx"};  // "/hmx@ORIGIN": of another machine
    bool stale = false;
    std::string runtimeDirectory;  // "": from the environment
    std::string domain;
    bool verbose = false;
    std::string from;             // a recording instead of running services; "": none
    std::string at;               // the time of it that is shown; "": as the verb wants it
    std::optional<double> speed;  // at which it is played; nothing: as fast as it can be followed

    const Verb* verb = nullptr;
    std::vector<std::string> words;  // what follows the verb and is no option
    std::string help;                // asked for instead of a command: to be printed

    // For some.
    std::string file;  // "": none; "-": standard input
    bool validate = true;
    std::optional<std::uint64_t> count;
    std::optional<std::chrono::milliseconds> duration;  // of a watch or a recording
    std::string condition;                              // to wait for; "": none
    std::optional<std::chrono::milliseconds> last;      // how much of a recording is kept in memory; nothing: none
    std::string recording;                              // the file; "": a new one, "-": standard output
    bool upstream = false;
    bool once = false;
    bool reconnect = true;
    bool appear = false;
    std::optional<std::string> name;
    bool idOnly = false;
    bool uriOnly = false;
    bool stream = false;
    std::vector<std::string> ignored;  // members, or paths of them
    bool strict = false;
    std::string report;  // a file; "": none
    bool withPayloads = false;
};

// Takes the command line apart. Errors: Failure (usage). Thread: main.
[[nodiscard]] Arguments parseArguments(int argc, const char* const* argv);

// The help text of a verb, or of the whole command for null.
[[nodiscard]] std::string helpText(const Verb* verb);

// The options of a verb and the global ones, as typed: "--timeout", "-o"; for completion.
[[nodiscard]] std::vector<std::string> optionNames(const Verb* verb);

// "3s", "500ms", "2m", "1.5" (seconds). Errors: Failure (usage) for anything else, and for nothing or less.
[[nodiscard]] std::chrono::milliseconds parseDuration(std::string_view text);

// As in messages: "3 s", "500 ms".
[[nodiscard]] std::string durationText(std::chrono::milliseconds duration);

}  // namespace hmxctl
