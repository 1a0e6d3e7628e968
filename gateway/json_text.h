// JSON as text, put together from pieces that are JSON already: for documents that nobody looks into here.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hmxgateway::json {

// The text in quotes. What is not UTF-8 is replaced. Thread: any, as all here.
[[nodiscard]] std::string text(std::string_view text);

// A member's key, which needs no escapes, and its value as JSON; a member without a value is left out.
using Member = std::pair<std::string_view, std::string>;
[[nodiscard]] std::string object(std::initializer_list<Member> members);
[[nodiscard]] std::string array(const std::vector<std::string>& elements);

// Appends to an object or array that has been written so far.
void append(std::string& object, std::string_view key, std::string_view value);

}  // namespace hmxgateway::json
