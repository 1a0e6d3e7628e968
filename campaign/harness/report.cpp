#include "harness/report.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace campaign {
namespace {

constexpr std::size_t mostNotes = 20;

std::string numberText(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), number == std::floor(number) || std::abs(number) >= 100 ? "%.0f" : "%.2f", number);
    return text.data();
}

std::string withUnit(double number, std::string_view unit) {
    std::string text = numberText(number);
    if (!unit.empty()) (text += ' ') += unit;
    return text;
}

}  // namespace

void Report::add(std::string_view name, double figure, std::string_view unit, std::string_view limit) {
    if (!line_.empty()) line_ += ", ";
    ((line_ += name) += ' ') += withUnit(figure, unit);
    line_ += limit;
}

void Report::atMost(std::string_view name, double figure, double limit, std::string_view unit) {
    if (unit.starts_with("ms") || unit == "times") limit *= room_;
    const bool holds = figure <= limit;
    add(name, figure, unit, (holds ? " (limit " : " (OVER the limit ") + withUnit(limit, unit) + ")");
    ++limits_;
    if (!holds) ++broken_;
}

void Report::atLeast(std::string_view name, double figure, double limit, std::string_view unit) {
    const bool holds = figure >= limit;
    add(name, figure, unit, (holds ? " (at least " : " (BELOW ") + withUnit(limit, unit) + ")");
    ++limits_;
    if (!holds) ++broken_;
}

void Report::fact(std::string_view name, double figure, std::string_view unit) {
    add(name, figure, unit, {});
}

void Report::broken(std::string_view what) {
    if (!line_.empty()) line_ += ", ";
    line_ += what;
    ++broken_;
}

void Report::note(std::string what) {
    constexpr std::size_t longest = 400;
    if (what.size() > longest) what.resize(longest);
    if (notes_.size() < mostNotes) notes_.push_back(std::move(what));
}

}  // namespace campaign
