#include "expression.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include "failure.h"

namespace hmxctl {

enum class Operator : std::uint8_t {
    literal,
    member,
    negation,
    both,
    either,
    equal,
    unequal,
    less,
    lessEqual,
    greater,
    greaterEqual,
    any,
    all,
    none,
    count
};

struct Expression::Node {
    Operator kind = Operator::literal;
    Json literal;
    std::vector<std::string> path;  // of a member; an index is its digits behind a "["
    std::string text;               // of the condition at the left, where that is about one of several elements
    std::shared_ptr<const Node> left;
    std::shared_ptr<const Node> right;
};

namespace {

using Node = Expression::Node;
using NodePtr = std::shared_ptr<const Node>;

constexpr int deepest = 100;

bool isNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}
bool isName(char c) noexcept {
    return isNameStart(c) || isDigit(c) || c == '-';
}

class Parser {
public:
    explicit Parser(std::string_view text, bool several = false) : text_{text}, several_{several} {}

    NodePtr parse() {
        NodePtr root = condition(0);
        skipBlanks();
        if (at_ < text_.size()) fail("unexpected '" + std::string{text_.substr(at_, 1)} + "'");
        if (!bare_) return root;
        if (!isQuantified_) return counting(Operator::any, std::move(root), 0);
        at_ = *bare_;
        fail("a member, without any (...), all (...), none (...) or count (...) around it,");
    }

    std::vector<std::string> takeMembers() { return std::move(members_); }
    std::vector<NodePtr> takeCounted() { return std::move(counted_); }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw usageError("expression '" + std::string{text_} + "': " + what + " at column " + std::to_string(at_ + 1),
                         "example: 'visible == true && priorityInlayer >= 3'");
    }

    void skipBlanks() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n')) ++at_;
    }

    bool take(std::string_view symbol) {
        skipBlanks();
        if (text_.substr(at_, symbol.size()) != symbol) return false;
        at_ += symbol.size();
        return true;
    }

    static NodePtr node(Operator kind, NodePtr left, NodePtr right = {}) {
        auto made = std::make_shared<Node>();
        made->kind = kind;
        made->left = std::move(left);
        made->right = std::move(right);
        return made;
    }

    // `from`: where the condition begins.
    NodePtr counting(Operator kind, NodePtr condition, std::size_t from) {
        auto made = std::make_shared<Node>();
        made->kind = kind;
        made->left = std::move(condition);
        made->text = text_.substr(from, at_ - from);
        while (made->text.ends_with(' ')) made->text.pop_back();
        counted_.push_back(made);
        return made;
    }

    static NodePtr literal(Json value) {
        auto made = std::make_shared<Node>();
        made->literal = std::move(value);
        return made;
    }

    NodePtr condition(int depth) {
        if (depth > deepest) fail("nested too deep");
        NodePtr left = both(depth);
        while (take("||")) left = node(Operator::either, std::move(left), both(depth));
        return left;
    }

    NodePtr both(int depth) {
        NodePtr left = factor(depth);
        while (take("&&")) left = node(Operator::both, std::move(left), factor(depth));
        return left;
    }

    NodePtr factor(int depth) {
        if (depth > deepest) fail("nested too deep");
        skipBlanks();
        if (text_.substr(at_, 2) != "!=" && take("!")) return node(Operator::negation, factor(depth + 1));
        return comparison(depth);
    }

    NodePtr comparison(int depth) {
        // The longer symbol first: "<=" begins with "<".
        static constexpr std::array<std::pair<std::string_view, Operator>, 6> symbols{{{"==", Operator::equal},
                                                                                       {"!=", Operator::unequal},
                                                                                       {"<=", Operator::lessEqual},
                                                                                       {">=", Operator::greaterEqual},
                                                                                       {"<", Operator::less},
                                                                                       {">", Operator::greater}}};
        NodePtr left = value(depth);
        for (const auto& [symbol, kind] : symbols) {
            if (take(symbol)) return node(kind, std::move(left), value(depth));
        }
        if (take("=")) {
            --at_;
            fail("'=' is no comparison, '==' is");
        }
        return left;
    }

    NodePtr value(int depth) {
        skipBlanks();
        if (at_ == text_.size()) fail("expected a value");
        if (take("(")) {
            NodePtr inner = condition(depth + 1);
            if (!take(")")) fail("expected ')'");
            return inner;
        }
        const char first = text_[at_];
        if (first == '"' || first == '\'') return literal(quoted(first));
        if (isDigit(first) || first == '-') return literal(number());
        if (isNameStart(first)) return named(depth);
        fail("expected a value");
    }

    std::string quoted(char quote) {
        std::string content;
        for (++at_; at_ < text_.size(); ++at_) {
            if (text_[at_] == quote) {
                ++at_;
                return content;
            }
            if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
            content += text_[at_];
        }
        fail("a string without its closing quote");
    }

    Json number() {
        const char* first = text_.data() + at_;
        const char* last = text_.data() + text_.size();
        double fraction = 0;
        const auto asDouble = std::from_chars(first, last, fraction);
        if (asDouble.ec != std::errc{}) fail("not a number");
        std::int64_t integer = 0;
        const auto asInteger = std::from_chars(first, last, integer);
        at_ += static_cast<std::size_t>(asDouble.ptr - first);
        if (asInteger.ec == std::errc{} && asInteger.ptr == asDouble.ptr) return integer;
        return fraction;
    }

    std::string_view name() {
        const std::size_t start = at_;
        while (at_ < text_.size() && isName(text_[at_])) ++at_;
        return text_.substr(start, at_ - start);
    }

    // The condition of a quantifier is about one element.
    NodePtr quantified(Operator kind, int depth) {
        several_ = false;
        isQuantified_ = true;
        skipBlanks();
        const std::size_t start = at_;
        const bool isEnclosed = take("(");
        NodePtr inner;
        if (kind != Operator::count || isEnclosed) inner = condition(depth + 1);
        if (isEnclosed && !take(")")) fail("expected ')'");
        several_ = true;
        return inner == nullptr ? node(kind, nullptr) : counting(kind, std::move(inner), start);
    }

    NodePtr named(int depth) {
        const std::size_t start = at_;
        const std::string_view word = name();
        if (word == "true") return literal(true);
        if (word == "false") return literal(false);
        if (word == "null") return literal(nullptr);
        if (several_) {
            for (const auto& [name, kind] : quantifiers) {
                if (word == name) return quantified(kind, depth);
            }
            if (!bare_) bare_ = start;
        }
        auto made = std::make_shared<Node>();
        made->kind = Operator::member;
        made->path.emplace_back(word);
        for (;;) {
            if (at_ < text_.size() && text_[at_] == '.') {
                ++at_;
                if (at_ == text_.size() || !isNameStart(text_[at_])) fail("expected a member's name");
                made->path.emplace_back(name());
            } else if (at_ < text_.size() && text_[at_] == '[') {
                const std::size_t open = at_++;
                while (at_ < text_.size() && isDigit(text_[at_])) ++at_;
                if (at_ == open + 1 || at_ - open > 9 || at_ == text_.size() || text_[at_] != ']')
                    fail("expected an index and ']'");
                made->path.emplace_back(text_.substr(open, at_ - open));
                ++at_;
            } else {
                break;
            }
        }
        members_.emplace_back(text_.substr(start, at_ - start));
        return made;
    }

    static constexpr std::array<std::pair<std::string_view, Operator>, 4> quantifiers{
        {{"any", Operator::any}, {"all", Operator::all}, {"none", Operator::none}, {"count", Operator::count}}};

    std::string_view text_;
    bool several_;  // whether what is read is about several elements
    bool isQuantified_ = false;
    std::size_t at_ = 0;
    std::vector<std::string> members_;
    std::vector<NodePtr> counted_;
    std::optional<std::size_t> bare_;  // where a member stands that is about no element in particular
};

const Json& lookUp(const Json& element, const std::vector<std::string>& path) {
    static const Json absent;
    const Json* at = &element;
    for (const std::string& step : path) {
        if (step.front() != '[') {
            at = &member(*at, step);
            continue;
        }
        const std::size_t index = std::stoul(step.substr(1));
        if (!at->is_array() || index >= at->size()) return absent;
        at = &(*at)[index];
    }
    return *at;
}

bool holds(const Json& value) {
    if (value.is_boolean()) return value.get<bool>();
    if (value.is_number()) return value != 0;
    if (value.is_string()) return !value.get_ref<const std::string&>().empty();
    return !value.is_null();
}

bool ordered(const Json& a, const Json& b) {
    return (a.is_number() && b.is_number()) || (a.is_string() && b.is_string());
}

using ElementList = std::vector<const Json*>;

Json evaluate(const Node& node, const ElementList& elements);

// How many of the elements the condition holds for; all of them without one.
std::size_t countOf(const NodePtr& condition, const ElementList& elements) {
    if (condition == nullptr) return elements.size();
    return static_cast<std::size_t>(std::count_if(elements.begin(), elements.end(),
                                                  [&](const Json* element) { return holds(evaluate(*condition, {element})); }));
}

// Members are those of the first element.
Json evaluate(const Node& node, const ElementList& elements) {
    switch (node.kind) {
        case Operator::literal:
            return node.literal;
        case Operator::member:
            return elements.empty() ? Json{} : lookUp(*elements.front(), node.path);
        case Operator::any:
            return countOf(node.left, elements) > 0;
        case Operator::all:
            return countOf(node.left, elements) == elements.size();
        case Operator::none:
            return countOf(node.left, elements) == 0;
        case Operator::count:
            return countOf(node.left, elements);
        case Operator::negation:
            return !holds(evaluate(*node.left, elements));
        case Operator::both:
            return holds(evaluate(*node.left, elements)) && holds(evaluate(*node.right, elements));
        case Operator::either:
            return holds(evaluate(*node.left, elements)) || holds(evaluate(*node.right, elements));
        default:
            break;
    }
    const Json left = evaluate(*node.left, elements);
    const Json right = evaluate(*node.right, elements);
    switch (node.kind) {
        case Operator::equal:
            return left == right;
        case Operator::unequal:
            return left != right;
        case Operator::less:
            return ordered(left, right) && left < right;
        case Operator::lessEqual:
            return ordered(left, right) && left <= right;
        case Operator::greater:
            return ordered(left, right) && left > right;
        default:
            return ordered(left, right) && left >= right;
    }
}

}  // namespace

Expression Expression::read(std::string_view text, bool several) {
    Parser parser{text, several};
    Expression expression;
    expression.root_ = parser.parse();
    expression.members_ = parser.takeMembers();
    expression.counted_ = parser.takeCounted();
    return expression;
}

std::string Expression::valuesIn(const Json& element) const {
    std::string values;
    for (const std::string& text : members_) {
        const Json& value = lookUp(element, Parser{text}.parse()->path);
        values += (values.empty() ? "" : ", ") + text + " is " + (value.is_null() ? "absent" : compact(value));
    }
    return values;
}

std::string Expression::countsIn(const std::vector<const Json*>& elements) const {
    const std::string all = std::to_string(elements.size()) + (elements.size() == 1 ? " element" : " elements");
    std::string counts;
    for (const NodePtr& node : counted_) {
        counts += (counts.empty() ? "" : ", ") + node->text + " holds for " + std::to_string(countOf(node->left, elements)) +
                  " of " + all;
    }
    return counts.empty() ? (elements.size() == 1 ? "there is " : "there are ") + all : counts;
}

bool Expression::holdsFor(const Json& element) const {
    return holds(evaluate(*root_, {&element}));
}

bool Expression::holdsFor(const std::vector<const Json*>& elements) const {
    return holds(evaluate(*root_, elements));
}

}  // namespace hmxctl
