#include "policy/policy_file.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <limits>

#include "kelo/limits.h"
#include "util/text.h"

// This is the only source that sees the TOML library, which takes long to compile.
//
// A rule that is not understood must not be left out, because it may be a deny; a misspelt key may be what limited it. So
// whatever is not known is a fault, and a policy with a fault is not used. All faults of a file are collected, for whoever has to
// correct them; only the library ends at the first one. It asserts of a text what it then refuses properly, so its assertions are
// off (CMakeLists.txt).

namespace kelo::policy {
namespace {

constexpr std::size_t mostRules = Limits::policyRules;

std::string quoted(std::string_view text) {
    return "'" + util::printable(text, 64) + "'";
}

// Where a character that is not ASCII stands outside of strings and comments, or npos. TOML has none there, but the library looks
// for spaces among them, in a way that is undefined for many.
std::size_t findStray(std::string_view text) noexcept {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    char quote = 0;
    bool isLong = false;  // a string of several lines
    for (std::size_t at = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool isTriple = at + 2 < text.size() && text[at + 1] == c && text[at + 2] == c;
        if (quote == 0) {
            if (static_cast<unsigned char>(c) >= 0x80) return at;
            if (c == '#') at = std::min(text.find('\n', at), text.size());
            const bool begins = at == 0 || std::string_view{" \t\r\n=[,{."}.find(text[at - 1]) != std::string_view::npos;
            if (!begins || (c != '"' && c != '\'')) continue;
            quote = c;
            isLong = isTriple;
            if (isLong) at += 2;
        } else if (c == '\\' && quote == '"') {
            ++at;
        } else if (c == quote && (!isLong || isTriple)) {
            while (isLong && at + 1 < text.size() && text[at + 1] == quote) ++at;
            quote = 0;
        } else if (c == '\n' && !isLong) {
            quote = 0;  // a fault; the library comes no further
        }
    }
    return std::string_view::npos;
}

class FileReader {
public:
    FileReader(const std::string& file, Draft& draft) : file_{file}, draft_{draft} {}

    void read(const toml::table& root) {
        std::vector<std::pair<const toml::table*, bool>> tables;
        for (const auto& [key, node] : root) {
            if (key == "audit") {
                readAudit(node);
            } else if (key == "allow" || key == "deny") {
                const toml::array* const all = node.as_array();
                if (all == nullptr || !all->is_homogeneous(toml::node_type::table)) {
                    fault(node, "write [[" + std::string{key.str()} + "]] above the keys of a rule");
                    continue;
                }
                for (const toml::node& each : *all) tables.emplace_back(each.as_table(), key == "allow");
            } else {
                fault(node, "unknown key " + quoted(key.str()) + "; there are audit, [[allow]] and [[deny]]");
            }
        }
        // The order in which they are written; the library sorts by key.
        std::sort(tables.begin(), tables.end(), [](const auto& a, const auto& b) { return lineOf(*a.first) < lineOf(*b.first); });
        for (const auto& [table, allows] : tables) readRule(*table, allows);
    }

    void fault(const toml::source_region& where, std::string text) {
        draft_.faults.push_back({{file_, where.begin.line}, std::move(text)});
    }

private:
    // What a table says, before it is multiplied.
    struct Said {
        std::vector<Subject> subjects;
        std::vector<Pattern> services;
        std::vector<int> commands;
        std::vector<Pattern> paths;
        bool publishes = false;
        bool requests = false;  // it has a key about requests
    };

    static unsigned lineOf(const toml::node& node) { return node.source().begin.line; }
    void fault(const toml::node& node, std::string text) { fault(node.source(), std::move(text)); }

    void readAudit(const toml::node& node) {
        const auto value = node.value_exact<bool>();
        if (!value) return fault(node, "'audit' is true or false");
        if (draft_.auditIsSaid && draft_.policy.audits != *value) {
            return fault(node, "'audit' is said differently at " + draft_.auditIsSaid->toString());
        }
        draft_.policy.audits = *value;
        draft_.auditIsSaid = Place{file_, lineOf(node)};
    }

    void readRule(const toml::table& table, bool allows) {
        const std::size_t faultsBefore = draft_.faults.size();
        Said said;
        for (const auto& [key, node] : table) readKey(key.str(), node, said);
        if (draft_.faults.size() > faultsBefore) return;
        if (said.subjects.empty()) fault(table, "the rule names no 'user' and no 'group'; user = \"*\" is everybody");
        if (said.services.empty()) fault(table, "the rule names no 'service' and nothing to 'publish'");
        if (said.publishes && said.requests) fault(table, "'publish' stands alone; write another rule for requests");
        if (draft_.faults.size() > faultsBefore) return;
        if (said.publishes) said.commands = {publish};
        if (said.commands.empty()) said.commands = {anyCommand};
        if (said.paths.empty()) said.paths.emplace_back();
        Policy& policy = draft_.policy;
        const auto number = static_cast<std::uint32_t>(policy.tables.size());
        policy.tables.push_back({file_, lineOf(table)});
        const std::size_t count = said.subjects.size() * said.services.size() * said.commands.size() * said.paths.size();
        if (count > mostRules - policy.rules.size()) {
            return fault(table, "with this rule there are more than " + std::to_string(mostRules) +
                                    " combinations of user, service, command and path");
        }
        for (const Subject& subject : said.subjects) {
            for (const Pattern& service : said.services) {
                for (const int command : said.commands) {
                    for (const Pattern& path : said.paths) {
                        policy.rules.push_back({allows, subject, service, command, path, number});
                    }
                }
            }
        }
    }

    void readKey(std::string_view key, const toml::node& node, Said& said) {
        if (key == "user") {
            each(node, key, [&](const toml::node& value) { readUser(value, said); });
        } else if (key == "group") {
            each(node, key, [&](const toml::node& value) { readGroup(value, said); });
        } else if (key == "publish") {
            said.publishes = true;
            each(node, key, [&](const toml::node& value) { readPattern(key, value, said.services); });
        } else if (key == "service") {
            said.requests = true;
            each(node, key, [&](const toml::node& value) { readPattern(key, value, said.services); });
        } else if (key == "command") {
            said.requests = true;
            each(node, key, [&](const toml::node& value) { readCommand(value, said); });
        } else if (key == "path") {
            said.requests = true;
            each(node, key, [&](const toml::node& value) { readPattern(key, value, said.paths); });
        } else {
            fault(node, "unknown key " + quoted(key) + "; there are user, group, publish, service, command and path");
        }
    }

    // One value, or each value of an array.
    template <class Read>
    void each(const toml::node& node, std::string_view key, Read readValue) {
        const toml::array* const values = node.as_array();
        if (values == nullptr) return readValue(node);
        if (values->empty()) fault(node, quoted(key) + " is empty; leave it out, or name something");
        for (const toml::node& value : *values) readValue(value);
    }

    void readUser(const toml::node& node, Said& said) {
        const auto name = node.value_exact<std::string>();
        if (name == "*") return said.subjects.push_back({Subject::Kind::everybody, 0});
        readSubject(node, name, Subject::Kind::user, &findUser, said);
    }

    void readGroup(const toml::node& node, Said& said) {
        readSubject(node, node.value_exact<std::string>(), Subject::Kind::group, &findGroup, said);
    }

    template <class Find>
    void readSubject(const toml::node& node, const std::optional<std::string>& name, Subject::Kind kind, Find find, Said& said) {
        const std::string what = kind == Subject::Kind::user ? "user" : "group";
        constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max() - 1;  // the last one means "none"
        if (name) {
            const auto id = name->find('\0') == std::string::npos ? find(*name) : std::nullopt;
            if (!id) return fault(node, "there is no " + what + " " + quoted(*name));
            said.subjects.push_back({kind, *id});
        } else if (const auto id = node.value_exact<std::int64_t>(); id && *id >= 0 && *id <= most) {
            said.subjects.push_back({kind, static_cast<std::uint32_t>(*id)});
        } else {
            fault(node,
                  "'" + what + "' takes a name in quotes, an id from 0 to " + std::to_string(most) + ", or an array of these");
        }
    }

    void readCommand(const toml::node& node, Said& said) {
        const auto name = node.value_exact<std::string>();
        const int command = name ? commands::toId(*name) : commands::unknown;
        if (command == commands::unknown) {
            return fault(node, (name ? "there is no command " + quoted(*name) + "; " : "'command' takes ") +
                                   "retrieve, insert, update, delete, or an array of these");
        }
        said.commands.push_back(command);
    }

    void readPattern(std::string_view key, const toml::node& node, std::vector<Pattern>& patterns) {
        const auto text = node.value_exact<std::string>();
        if (!text) return fault(node, quoted(key) + " takes a pattern such as \"/displays/*\", or an array of these");
        std::string why;
        auto pattern = Pattern::parse(*text, why);
        if (!pattern) return fault(node, "the pattern " + quoted(*text) + " " + why);
        patterns.push_back(std::move(*pattern));
    }

    const std::string& file_;
    Draft& draft_;
};

}  // namespace

void readPolicyFile(const std::string& file, std::string_view text, Draft& draft) {
    FileReader reader{file, draft};
    if (const auto at = findStray(text); at != std::string_view::npos) {
        const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
        return reader.fault({{static_cast<toml::source_index>(line), 1}, {}, {}},
                            "has a character that is not ASCII outside of strings and comments");
    }
    if (const toml::parse_result parsed = toml::parse(text, file); parsed) {
        reader.read(parsed.table());
    } else {
        reader.fault(parsed.error().source(), util::printable(parsed.error().description()));
    }
}

}  // namespace kelo::policy
