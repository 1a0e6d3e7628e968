// Conditions over the members of an element, `visible == true && (priorityInlayer > 3 || slot == "center")`, and over several
// elements, `any visible == true`.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "hmx/client/document.h"

namespace hmxctl {

// The grammar, loosest binding first:
//
//     condition  = both { "||" both }
//     both       = factor { "&&" factor }
//     factor     = "!" factor | comparison
//     comparison = value [ ( "==" | "!=" | "<" | "<=" | ">" | ">=" ) value ]
//     value      = "true" | "false" | "null" | number | string | member | "(" condition ")"
//     member     = name { "." name | "[" index "]" }
//     string     = '"' text '"' | "'" text "'"        a backslash takes the next character as it is
//
// Over several elements, a value is none of their members but
//
//     value      = ... | quantifier ( "(" condition ")" | condition ) | "count" [ "(" condition ")" ]
//     quantifier = "any" | "all" | "none"
//
// where the conditions are about one element. Without its own parentheses, the condition of a quantifier goes on as far as it
// can. `all` and `none` hold of no elements at all. A condition without any of these words is one about `any`.
//
// An absent member is null. Values of different types are unequal, and integers and fractions are one type; an order exists
// between two numbers and between two strings, and everywhere else every order is false. As a condition null, false, 0 and ""
// do not hold, everything else does.
// Thread: any (a value, shared parts are constant).
class Expression {
public:
    // Errors: Failure (usage) with the column of what could not be read.
    [[nodiscard]] static Expression parse(std::string_view text) { return read(text, false); }
    [[nodiscard]] static Expression parseForSeveral(std::string_view text) { return read(text, true); }

    [[nodiscard]] bool holdsFor(const Json& element) const;
    [[nodiscard]] bool holdsFor(const std::vector<const Json*>& elements) const;

    // The members that the expression names, in order, e.g. "visible", "resolution.width".
    const std::vector<std::string>& members() const noexcept { return members_; }

    // What those are in `element`: "visible is false, slot is absent".
    [[nodiscard]] std::string valuesIn(const Json& element) const;
    // How many of the elements each condition holds for: "visible == true holds for 0 of 3 elements".
    [[nodiscard]] std::string countsIn(const std::vector<const Json*>& elements) const;

    struct Node;

private:
    static Expression read(std::string_view text, bool several);

    std::shared_ptr<const Node> root_;
    std::vector<std::string> members_;
    std::vector<std::shared_ptr<const Node>> counted_;  // the conditions about one element
};

}  // namespace hmxctl
