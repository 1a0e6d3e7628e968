#include "kelo/tolu/properties.h"

#include <algorithm>

namespace kelo::tolu {

namespace properties {

using util::config::Value;

namespace {

Match decide(bool matches) noexcept {
    return matches ? Match::yes : Match::no;
}

bool contains(const std::vector<std::string>& list, const std::string& text) noexcept {
    return std::find(list.begin(), list.end(), text) != list.end();
}

}  // namespace

Match matchProperty(bool member, const Value& value) noexcept {
    const auto* boolean = value.asBool();
    return boolean == nullptr ? Match::undecided : decide(member == *boolean);
}

Match matchProperty(int member, const Value& value) noexcept {
    const auto* integer = value.asInt();
    return integer == nullptr ? Match::undecided : decide(member == *integer);
}

Match matchProperty(float member, const Value& value) noexcept {
    if (const auto* floating = value.asDouble()) return decide(member == static_cast<float>(*floating));
    if (const auto* integer = value.asInt()) return decide(member == static_cast<float>(*integer));
    return Match::undecided;
}

Match matchName(std::string_view member, const Value& value) noexcept {
    const auto* text = value.asString();
    return text == nullptr ? Match::undecided : decide(member == *text);
}

Match matchProperty(const std::string& member, const Value& value) noexcept {
    return matchName(member, value);
}

Match matchProperty(const std::vector<std::string>& member, const Value& value) noexcept {
    if (const auto* text = value.asString()) return decide(contains(member, *text));
    const auto* array = value.asArray();
    if (array == nullptr) return Match::undecided;
    bool all = true;
    for (const auto& element : *array) {
        const auto* text = element.asString();
        if (text == nullptr) return Match::undecided;
        all = all && contains(member, *text);
    }
    return decide(all);
}

Match matchProperty(const std::UUID& member, const Value& value) noexcept {
    const auto* text = value.asString();
    if (text == nullptr) return Match::undecided;
    std::UUID id;
    return decide(std::UUID::parse(*text, id) && id == member);
}

Match matchProperty(const kelo::url& member, const Value& value) noexcept {
    return matchName(member.toString(), value);
}

}  // namespace properties

bool isFilterKey(std::string_view key, std::span<const std::string_view> consumed) noexcept {
    constexpr std::string_view ofTheProtocol[] = {"fields", "limit", "offset", "offsetId"};
    return std::find(std::begin(ofTheProtocol), std::end(ofTheProtocol), key) == std::end(ofTheProtocol) &&
           std::find(consumed.begin(), consumed.end(), key) == consumed.end();
}

}  // namespace kelo::tolu
