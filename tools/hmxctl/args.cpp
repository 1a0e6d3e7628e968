// The command line is declared from the table of verbs. Words that are not options are left to the verbs: the parser would take
// apart a JSON array given as one. Global options are accepted before and after the verb.

#include "args.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <utility>

#include "failure.h"
#include "hmx/client/suggest.h"
#include "kelo/mimetypes.h"
#include "kelo/runtime/domain_view.h"
#include "program_options.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

constexpr const char* rootFooter =
    "RESOURCE is displays, displayables, layerconfigurations, regionconfigurations or popups.\n"
    "KEY=VALUE has the type that the resource declares for the key; KEY:=JSON is any JSON.\n"
    "Exit codes: 0 ok, 1 unexpected, 2 usage, 3 not found, 4 service absent or lost, 5 timeout, 6 not permitted,\n"
    "7 rejected by the service, 9 stream ended, 10 differences or problems found, 130 interrupted.\n"
    "`hmxctl help VERB` explains a verb.";

std::string usageLine(const std::string& name) {
    const Verb* verb = findVerb(name);
    std::string usage = "Usage: hmxctl [GLOBAL] ";
    usage += verb == nullptr ? "VERB [RESOURCE[/ELEMENT]] [KEY=VALUE | KEY:=JSON ...]" : std::string{verb->name};
    if (verb != nullptr && !verb->words.empty()) usage += " " + std::string{verb->words};
    return usage + "\n";
}

// "json", "msgpack", "ixobin" or a full name, as a full name. Errors: Failure (usage) for a type without structure.
std::string mimeTypeNamed(std::string_view name) {
    using kelo::mimetypes::id2typename;
    using kelo::mimetypes::MimeTypeID;
    const std::array<std::pair<std::string_view, MimeTypeID>, 3> shortNames{
        {{"json", MimeTypeID::json}, {"msgpack", MimeTypeID::msgpack}, {"ixobin", MimeTypeID::ixobin}}};
    for (const auto& [shortName, id] : shortNames) {
        if (name == shortName) return std::string{id2typename(id)};
    }
    const MimeTypeID id = kelo::mimetypes::typename2id(name);
    if (kelo::mimetypes::isStructured(id)) return std::string{id2typename(id)};
    throw usageError("--mime: '" + std::string{name} + "' is not a type that documents travel in",
                     "one of json, msgpack, ixobin, or application/json, application/vnd.msgpack, application/vnd.ixobin");
}

// The parser and what it fills; the options hold references, so it stays where it is.
class CommandLine {
public:
    CommandLine() {
        root_.takeVerbs();
        root_.footer(rootFooter);
        declareGlobals();
        for (const Verb& verb : verbs()) declare(verb);
    }

    Arguments parse(int argc, const char* const* argv) {
        // After "--" everything is a word.
        int optionsEnd = 1;
        while (optionsEnd < argc && std::string_view{argv[optionsEnd]} != "--") ++optionsEnd;
        const std::vector<std::string> verbatim(argv + std::min(argc, optionsEnd + 1), argv + argc);
        try {
            std::ostringstream ignored;  // the program's own help, even after a verb
            if (root_.parse(optionsEnd, argv, ignored)) {
                arguments_.help = helpOf(root_);
                return arguments_;
            }
        } catch (const options::UsageError& error) {
            throw usageError(error.what(), "`hmxctl help` shows the options");
        }
        takeWords();
        arguments_.words.insert(arguments_.words.end(), verbatim.begin(), verbatim.end());
        interpret();
        checkWords();
        if (takes(condition)) {
            arguments_.condition = arguments_.words.back();
            arguments_.words.pop_back();
        }
        return arguments_;
    }

    std::string help(const Verb* verb) { return helpOf(commandOf(verb)); }

    std::vector<std::string> options(const Verb* verb) {
        std::vector<std::string> names = root_.longNames();
        if (verb != nullptr) {
            for (std::string& name : commandOf(verb).longNames()) names.push_back(std::move(name));
        }
        std::sort(names.begin(), names.end());
        names.erase(std::unique(names.begin(), names.end()), names.end());
        return names;
    }

private:
    static std::string helpOf(const options::Command& command) {
        std::string text = command.help();
        while (text.ends_with('\n')) text.pop_back();
        return text + "\n";
    }

    // Null: the program itself.
    const options::Command& commandOf(const Verb* verb) const {
        return verb == nullptr ? root_ : perVerb_.at(static_cast<std::size_t>(verb - verbs().data()));
    }

    void declareGlobals() {
        root_.value("-o,--output", format_, "The format of the output: table, json, jsonl or raw (table)", "FORMAT");
        root_.flag("--json", json_, "The same as -o json");
        root_.value("--timeout", timeout_, "How long to wait for a service and an answer, e.g. 3s or 500ms (5s)", "DURATION");
        root_.value("--mime", mime_, "The encoding on the wire: json, msgpack, ixobin or a full name (json)", "TYPE");
        root_.flag("--no-color", noColour_, "No colours, even on a terminal (like NO_COLOR)");
        root_.value("--runtime-dir", arguments_.runtimeDirectory, "Where the domains are (KELO_RUNTIME_DIR)", "DIR");
        root_.value("--domain", arguments_.domain, "The domain of the services (KELO_DOMAIN, else local)", "NAME");
        root_.value("--service", arguments_.service, "Where /hmx is: /hmx@ORIGIN for that of another machine (/hmx)", "PATH");
        root_.flag("--stale", arguments_.stale, "Show what was last known of an origin that is lost");
        root_.value("--from", arguments_.from, "Ask a recording instead of running services; - is standard input", "FILE");
        root_.value("--at", arguments_.at,
                    "The time that is shown: 12.5s, -3s (before the end), 12:34:56 (the end; watch, wait: the start)", "TIME");
        root_.value("--speed", speed_, "How fast watch and wait play it: a factor, or max (watch 1, wait max)", "N");
        root_.flag("-v,--verbose", arguments_.verbose, "Show on standard error what is asked and what comes back");
        root_.helpFlag("-h,--help", "Show this help");
        root_.flag("--version", version_, "Show the version");
    }

    void declare(const Verb& verb) {
        options::Command command = root_.verb(std::string{verb.name}, std::string{verb.summary}, verb.hidden ? "" : "Verbs");
        command.footer(std::string{verb.details} + "`hmxctl --help` shows the global options.");
        const auto has = [&](VerbOption option) { return (verb.options & option) != 0; };
        if (has(bodyFile)) {
            command.value("-f,--file", arguments_.file, "Take the body from this file, - for standard input", "FILE");
        }
        if (has(validation)) command.flag("--no-validate", noValidate_, "Send keys and values unchecked");
        if (has(watching)) {
            command.value("--count", count_, "End after this many events", "N");
            command.flag("--once", arguments_.once, "End after the first event");
            command.flag("--no-reconnect", noReconnect_, "End when the source goes away");
        }
        if (has(lasting)) {
            command.value("--for", duration_, "End after this time, e.g. 30s", "DURATION");
            command.value("--until", arguments_.condition, "End when this expression is true", "EXPRESSION");
        }
        if (has(filing)) {
            command.flag("--upstream", arguments_.upstream, "Record the upstream services, too");
            command.value("--last", last_, "Keep this much in memory, and write it at the end or on SIGUSR1", "DURATION");
        }
        if (has(appearing)) command.flag("--appear", arguments_.appear, "Wait for the service and the element to appear, too");
        if (has(idParts)) {
            command.value("--name", name_, "The id of any text", "TEXT");
            command.flag("--id", arguments_.idOnly, "Print the id only");
            command.flag("--uri", arguments_.uriOnly, "Print the URI only");
        }
        if (has(comparing)) {
            command.values("--ignore", arguments_.ignored, "Do not compare this member; may be repeated", "MEMBER");
            command.flag("--strict", arguments_.strict, "States that only one of two recordings has are differences, too");
        }
        if (has(reporting)) {
            command.value("--report", arguments_.report, "Write a report to this file, too", "FILE");
            command.flag("--with-payloads", arguments_.withPayloads, "Put what is on the displays into the report");
        }
        if (has(keepOpen)) command.flag("--stream", arguments_.stream, "Keep the request open and print every answer as a line");
        perVerb_.push_back(std::move(command));
    }

    void takeWords() {
        for (const Verb& verb : verbs()) {
            if (commandOf(&verb).isChosen()) arguments_.verb = &verb;
        }
        for (std::string& word : root_.unknown()) {
            const bool negative = word.size() > 1 && (word[1] == '.' || (word[1] >= '0' && word[1] <= '9'));
            if (word.size() > 1 && word.front() == '-' && !negative) {
                const std::string bare = word.substr(0, word.find('='));
                throw usageError("unknown option " + bare, didYouMean(bare, options(arguments_.verb)));
            }
            arguments_.words.push_back(std::move(word));
        }
        if (arguments_.verb == nullptr && version_) arguments_.verb = findVerb("version");
        if (arguments_.verb != nullptr) return;
        if (arguments_.words.empty())
            throw usageError("no verb given: one of " + joined(verbNames()), "`hmxctl help` explains them");
        const std::string& word = arguments_.words.front();
        const std::string meant = didYouMean(word, verbNames());
        throw usageError("unknown verb '" + word + "'", meant.empty() ? "verbs: " + joined(verbNames()) : meant);
    }

    void interpret() {
        static const std::vector<std::pair<std::string, Format>> formats{
            {"table", Format::table}, {"json", Format::json}, {"jsonl", Format::jsonl}, {"raw", Format::raw}};
        if (json_ && format_.empty() && !takes(filing)) format_ = "json";
        if (takes(filing)) {
            arguments_.recording = std::exchange(format_, {});
        } else if (!format_.empty()) {
            const auto found =
                std::find_if(formats.begin(), formats.end(), [&](const auto& each) { return each.first == format_; });
            if (found == formats.end()) throw usageError("-o: no format '" + format_ + "'", "one of table, json, jsonl, raw");
            arguments_.format = found->second;
            arguments_.formatGiven = true;
        }
        if (!timeout_.empty()) {
            arguments_.timeout = parseDuration(timeout_);
            arguments_.timeoutGiven = true;
        }
        if (!duration_.empty()) arguments_.duration = parseDuration(duration_);
        interpretRecording();
        if (!last_.empty()) arguments_.last = parseDuration(last_);
        // Verbs that look for a service again and again want to know of its absence at once.
        arguments_.patient = arguments_.timeoutGiven && !takes(watching) && !takes(appearing);
        if (!mime_.empty()) arguments_.mimeType = mimeTypeNamed(mime_);
        if (!count_.empty()) {
            std::uint64_t count = 0;
            const auto end = std::from_chars(count_.data(), count_.data() + count_.size(), count);
            if (end.ec != std::errc{} || end.ptr != count_.data() + count_.size() || count == 0) {
                throw usageError("--count: '" + count_ + "' is not a number of events", "a number from 1, e.g. --count 3");
            }
            arguments_.count = count;
        }
        if (arguments_.service.size() < 2 || arguments_.service.front() != '/') {
            throw usageError("--service: '" + arguments_.service + "' is not the path of a service", "such as /hmx@cluster");
        }
        if (!root_.isGiven("--domain")) arguments_.domain = kelo::runtime::domainName(kelo::runtime::usualDomain);
        if (!kelo::runtime::isDomainName(arguments_.domain)) {
            const std::string origin = !root_.isGiven("--domain") ? "KELO_DOMAIN" : "--domain";
            throw usageError(origin + ": '" + arguments_.domain + "' is not the name of a domain", "a plain name such as local");
        }
        if (takes(idParts) && commandOf(arguments_.verb).isGiven("--name")) arguments_.name = name_;
        arguments_.colour = !noColour_;
        arguments_.validate = !noValidate_;
        arguments_.reconnect = !noReconnect_;
    }

    void interpretRecording() {
        const std::string verb{arguments_.verb->name};
        if (arguments_.from.empty()) {
            for (const char* option : {"--from", "--at", "--speed"}) {
                if (root_.isGiven(option)) {
                    throw usageError(
                        option == std::string_view{"--from"} ? "--from: which file?" : std::string{option} + " is of a recording",
                        "hmxctl --from FILE " + verb);
                }
            }
            return;
        }
        if (takes(liveOnly)) {
            throw usageError(verb + " needs a running system; a recording can only be looked at",
                             "leave out --from " + arguments_.from);
        }
        if (speed_.empty() && (arguments_.verb->options & appearing) == 0) arguments_.speed = 1;
        if (speed_.empty() || speed_ == "max") return;
        double speed = 0;
        const auto end = std::from_chars(speed_.data(), speed_.data() + speed_.size(), speed);
        if (end.ec != std::errc{} || end.ptr != speed_.data() + speed_.size() || !(speed >= 0.001 && speed <= 1e6)) {
            throw usageError("--speed: '" + speed_ + "' is no speed", "a factor from 0.001 to 1000000, or max");
        }
        arguments_.speed = speed;
    }

    void checkWords() const {
        const Verb& verb = *arguments_.verb;
        const std::size_t given = arguments_.words.size();
        if (given >= verb.fewest && given <= verb.most) return;
        const std::string usage =
            "usage: hmxctl " + std::string{verb.name} + (verb.words.empty() ? "" : " ") + std::string{verb.words};
        if (given > verb.most)
            throw usageError(std::string{verb.name} + ": what is '" + arguments_.words[verb.most] + "'?", usage);
        // The first word of the synopsis that was not given, of those that must be.
        std::string_view missing = verb.words;
        const auto drop = [&](std::size_t count) { missing.remove_prefix(std::min(missing.size(), count)); };
        for (std::size_t i = 0; i < given; ++i) {
            drop(missing.find(' ') + 1);
            if (missing.starts_with('[')) drop(missing.find("] ") + 2);
        }
        throw usageError(std::string{verb.name} + ": " + std::string{missing.substr(0, missing.find(' '))} + " is missing",
                         usage);
    }

    bool takes(VerbOption option) const { return (arguments_.verb->options & option) != 0; }

    options::Command root_{"hmxctl: look at and change displays, layers, touch regions and popups of a running system", "hmxctl",
                           usageLine};
    std::vector<options::Command> perVerb_;  // in the order of the verbs
    Arguments arguments_;
    std::string format_;
    std::string timeout_;
    std::string mime_;
    std::string count_;
    std::string duration_;
    std::string speed_;
    std::string last_;
    std::string name_;
    bool json_ = false;
    bool noColour_ = false;
    bool noValidate_ = false;
    bool noReconnect_ = false;
    bool version_ = false;
};

}  // namespace

Arguments parseArguments(int argc, const char* const* argv) {
    return CommandLine{}.parse(argc, argv);
}

std::string helpText(const Verb* verb) {
    return CommandLine{}.help(verb);
}

std::vector<std::string> optionNames(const Verb* verb) {
    return CommandLine{}.options(verb);
}

std::chrono::milliseconds parseDuration(std::string_view text) {
    double amount = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), amount);
    const std::string_view unit = text.substr(static_cast<std::size_t>(end.ptr - text.data()));
    double milliseconds = 0;
    if (unit == "ms") milliseconds = amount;
    if (unit == "s" || unit.empty()) milliseconds = amount * 1000;
    if (unit == "m" || unit == "min") milliseconds = amount * 60'000;
    if (unit == "h") milliseconds = amount * 3'600'000;
    constexpr double longest = 1e12;  // some thirty years; keeps sums of times far from their limits
    if (end.ec != std::errc{} || !(milliseconds > 0) || milliseconds > longest) {
        throw usageError("'" + std::string{text} + "' is not a duration", "for example 3s, 500ms or 2m");
    }
    return std::chrono::milliseconds{static_cast<std::int64_t>(std::ceil(milliseconds))};
}

std::string durationText(std::chrono::milliseconds duration) {
    const auto count = duration.count();
    return count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms";
}

}  // namespace hmxctl
