// A program's command line: options, verbs and their help, declared once. The packaged parser is compiled here alone, because it
// takes long.
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace options {

// What was typed cannot be read. Thread: any (a value).
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A program or one of its verbs. What the options fill outlives it. A resource. Thread: main.
class Command {
public:
    // The program. Help says how to use it by `usage`, which gets the name of the verb, "" for none; null: in the usual form.
    Command(std::string description, std::string name, std::function<std::string(const std::string& verb)> usage = nullptr);
    Command(Command&&) noexcept;
    Command& operator=(Command&&) = delete;
    ~Command();

    // `names`: "-o,--output"; a name without hyphens is that of a word. `form`: what help calls the value.
    void value(const std::string& names, std::string& target, const std::string& help, const std::string& form);
    void values(const std::string& names, std::vector<std::string>& target, const std::string& help, const std::string& form);
    void flag(const std::string& names, bool& target, const std::string& help);
    void helpFlag(const std::string& names, const std::string& help);
    void versionFlag(const std::string& names, const std::string& version);
    // What help ends with.
    void footer(const std::string& text);

    // Allows verbs, options of the program anywhere, and words and options that it does not know, see `unknown`.
    void takeVerbs();
    // `group`: under which help lists it; "" for not at all.
    [[nodiscard]] Command verb(const std::string& name, const std::string& summary, const std::string& group);

    // Nothing when the program is to go on; else what to end with, after help or version were printed. Errors: UsageError.
    [[nodiscard]] std::optional<int> parse(int argc, const char* const* argv, std::ostream& out);

    // After parsing. Whether the option was given, whether this is the verb, and what was given besides.
    [[nodiscard]] bool isGiven(const std::string& option) const;
    [[nodiscard]] bool isChosen() const;
    [[nodiscard]] std::vector<std::string> unknown() const;

    // The options' long names, hyphens and all.
    [[nodiscard]] std::vector<std::string> longNames() const;
    [[nodiscard]] std::string help() const;

private:
    explicit Command(CLI::App& app);

    std::unique_ptr<CLI::App> owned_;  // of the program
    CLI::App* app_;
};

}  // namespace options
