#include "hmx/client/finding.h"

#include <algorithm>
#include <array>

#include "hmx/client/suggest.h"

namespace hmx::client {
namespace {

constexpr std::array<std::string_view, 3> levelNames{"OK", "WARNING", "PROBLEM"};

std::string shown(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_array()) return compact(value);
    std::vector<std::string> parts;
    for (const Json& each : value) parts.push_back(shown(each));
    return joined(parts);
}

// `text` with each {key} replaced: text as it is, lists separated by commas.
std::string filledIn(std::string_view text, const Json& values, const Json& words) {
    std::string filled;
    while (!text.empty()) {
        const std::size_t open = text.find('{');
        filled += text.substr(0, open);
        if (open == std::string_view::npos) break;
        const std::size_t close = text.find('}', open);
        const std::string_view key = text.substr(open + 1, close - open - 1);
        const Json& word = member(words, key);
        filled += shown(word.is_null() ? member(values, key) : word);
        text.remove_prefix(close + 1);
    }
    return filled;
}

}  // namespace

std::string_view nameOf(Level level) noexcept {
    return levelNames.at(static_cast<std::size_t>(level));
}

RuleTable::RuleTable(std::string_view json) : document_(Json::parse(json)) {
    for (const Json& rule : document_.at("rules")) {
        const auto* const level = std::find(levelNames.begin(), levelNames.end(), text(rule, "level"));
        rules_[text(rule, "id")] = {rules_.size(), Level{static_cast<std::uint8_t>(level - levelNames.begin())},
                                    text(rule, "text"), text(rule, "remedy")};
    }
}

Finding RuleTable::find(std::string_view rule, Json values, const Json& words) const {
    const auto found = rules_.find(rule);
    if (found == rules_.end()) throw std::logic_error{"no rule " + std::string{rule}};
    const Rule& row = found->second;
    return {.rule = found->first,
            .level = row.level,
            .text = filledIn(row.text, values, words),
            .remedy = filledIn(row.remedy, values, words),
            .values = std::move(values)};
}

void RuleTable::sort(std::vector<Finding>& findings) const {
    const auto rank = [&](const Finding& finding) {
        return std::pair{-static_cast<int>(finding.level), rules_.find(finding.rule)->second.rank};
    };
    std::stable_sort(findings.begin(), findings.end(), [&](const Finding& a, const Finding& b) { return rank(a) < rank(b); });
}

Json asJson(const std::vector<Finding>& findings) {
    Json all = Json::array();
    for (const Finding& finding : findings) {
        Json& entry = all.emplace_back(Json{{"level", nameOf(finding.level)}, {"rule", finding.rule}});
        if (!finding.subject.empty()) entry["subject"] = finding.subject;
        entry["text"] = finding.text;
        entry["values"] = finding.values;
        if (!finding.remedy.empty()) entry["remedy"] = finding.remedy;
    }
    return all;
}

}  // namespace hmx::client
