#include "program_options.h"

#include <CLI/CLI.hpp>
#include <ostream>
#include <utility>

namespace options {
namespace {

// Usage lines as the program wants them, and lists in the form of the programs' own documents.
class Formatter final : public CLI::Formatter {
public:
    explicit Formatter(std::function<std::string(const std::string&)> usage) : usage_{std::move(usage)} { column_width(26); }

    std::string make_usage(const CLI::App* app, std::string /*name*/) const override {
        return usage_(app->get_parent() == nullptr ? "" : app->get_name());
    }

private:
    std::function<std::string(const std::string&)> usage_;
};

}  // namespace

Command::Command(std::string description, std::string name, std::function<std::string(const std::string& verb)> usage)
    : owned_{std::make_unique<CLI::App>(std::move(description), std::move(name))}, app_{owned_.get()} {
    if (usage) app_->formatter(std::make_shared<Formatter>(std::move(usage)));
}

Command::Command(CLI::App& app) : app_{&app} {}

Command::Command(Command&&) noexcept = default;

Command::~Command() = default;

void Command::value(const std::string& names, std::string& target, const std::string& help, const std::string& form) {
    app_->add_option(names, target, help)->type_name(form);
}

void Command::values(const std::string& names, std::vector<std::string>& target, const std::string& help,
                     const std::string& form) {
    app_->add_option(names, target, help)->type_name(form);
}

void Command::flag(const std::string& names, bool& target, const std::string& help) {
    app_->add_flag(names, target, help);
}

void Command::helpFlag(const std::string& names, const std::string& help) {
    app_->set_help_flag(names, help);
}

void Command::versionFlag(const std::string& names, const std::string& version) {
    app_->set_version_flag(names, version);
}

void Command::footer(const std::string& text) {
    app_->footer(text);
}

void Command::takeVerbs() {
    app_->fallthrough();
    app_->allow_extras();
    app_->require_subcommand(0, 1);
}

Command Command::verb(const std::string& name, const std::string& summary, const std::string& group) {
    CLI::App* const made = app_->add_subcommand(name, summary);
    made->group(group);
    return Command{*made};
}

std::optional<int> Command::parse(int argc, const char* const* argv, std::ostream& out) {
    try {
        app_->parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app_->exit(success, out, out);
    } catch (const CLI::ParseError& error) {
        throw UsageError{error.what()};
    }
    return std::nullopt;
}

bool Command::isGiven(const std::string& option) const {
    return app_->count(option) > 0;
}

bool Command::isChosen() const {
    return app_->parsed();
}

std::vector<std::string> Command::unknown() const {
    return app_->remaining(true);
}

std::vector<std::string> Command::longNames() const {
    std::vector<std::string> names;
    for (const CLI::Option* option : std::as_const(*app_).get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

std::string Command::help() const {
    return app_->help();
}

}  // namespace options
