// What was found out about something, and the tables of rules that say it in words.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hmx/client/document.h"

namespace hmx::client {

enum class Level : std::uint8_t { ok, warning, problem };
// "OK", "WARNING", "PROBLEM".
[[nodiscard]] std::string_view nameOf(Level level) noexcept;

// Thread: any (a value).
struct Finding {
    std::string rule;  // the id of the rule that it is from
    Level level = Level::ok;
    std::string text;
    std::string remedy;     // what would change it; "" of what is as it should be
    Json values;            // what it rests on: an object
    std::string subject{};  // the part of the whole that it is about; "" for the whole
};

// The most decisive ones first: problems, warnings, then the rest, each in the order of their table.
// Thread: any (a constant).
class RuleTable {
public:
    // Of the JSON text {"rules": [{"id", "level", "text", "remedy"}…], …}, in which {key} stands for a value. Throws
    // std::exception when it is none: tables are part of the program.
    explicit RuleTable(std::string_view json);

    // `words`: what stands in the text where the values themselves would not read well.
    [[nodiscard]] Finding find(std::string_view rule, Json values, const Json& words = nullptr) const;
    void sort(std::vector<Finding>& findings) const;

    // The table as it was given.
    const Json& document() const noexcept { return document_; }

private:
    struct Rule {
        std::size_t rank;
        Level level;
        std::string text;
        std::string remedy;
    };

    Json document_;
    std::map<std::string, Rule, std::less<>> rules_;
};

// The findings as programs read them.
[[nodiscard]] Json asJson(const std::vector<Finding>& findings);

}  // namespace hmx::client
