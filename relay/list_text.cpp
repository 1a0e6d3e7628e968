#include "list_text.h"

#include <cstddef>
#include <map>

namespace hmxrelay {
namespace {

// Walks over JSON text. Where the text is wrong, `ok` turns false, and nothing more is found.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_{text} {}

    bool ok() const noexcept { return ok_; }
    bool atEnd() {
        skipSpace();
        return at_ == text_.size();
    }
    bool take(char c) {
        skipSpace();
        if (at_ == text_.size() || text_[at_] != c) return false;
        ++at_;
        return true;
    }
    // A string without its quotes, escapes as they are.
    std::string_view string() {
        if (!take('"')) return fail();
        const std::size_t begin = at_;
        for (; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\\') ++at_;
        }
        if (at_ >= text_.size()) return fail();
        return text_.substr(begin, at_++ - begin);
    }
    // Any value, brackets and quotes included.
    std::string_view value() {
        skipSpace();
        const std::size_t begin = at_;
        int depth = 0;
        do {
            if (at_ >= text_.size()) return fail();
            const char c = text_[at_];
            if (c == '"') {
                (void)string();
                if (!ok_) return {};
                continue;
            }
            if (c == '{' || c == '[') ++depth;
            if (c == '}' || c == ']') --depth;
            if (depth < 0) return fail();
            if (depth == 0 && c != '}' && c != ']') {  // a number or a word
                at_ = std::min(text_.find_first_of(",]}\" \t\r\n", at_ + 1), text_.size());
            } else {
                ++at_;
            }
        } while (depth > 0);
        return text_.substr(begin, at_ - begin);
    }
    // Calls visit(name, value) for each member of an object.
    template <class Visit>
    void members(Visit visit) {
        if (!take('{')) return (void)fail();
        if (take('}')) return;
        do {
            const std::string_view name = string();
            if (!ok_ || !take(':')) return (void)fail();
            const std::string_view found = value();
            if (ok_) visit(name, found);
        } while (ok_ && take(','));
        if (!take('}')) fail();
    }
    // Calls visit(value) for each of an array.
    template <class Visit>
    void items(Visit visit) {
        if (!take('[')) return (void)fail();
        if (take(']')) return;
        do {
            const std::string_view found = value();
            if (ok_) visit(found);
        } while (ok_ && take(','));
        if (!take(']')) fail();
    }
    std::string_view fail() noexcept {
        ok_ = false;
        return {};
    }

private:
    void skipSpace() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

    std::string_view text_;
    std::size_t at_ = 0;
    bool ok_ = true;
};

}  // namespace

std::optional<std::vector<ElementText>> elementTexts(std::string_view document) {
    std::vector<ElementText> elements;
    std::map<Bytes16, std::uint32_t> seen;
    bool isWhole = true;
    const auto add = [&](std::string_view text) {
        std::UUID id;
        Scanner scanner{text};
        scanner.members([&](std::string_view name, std::string_view value) {
            if (name == "id" && value.size() > 2) (void)std::UUID::parse(value.substr(1, value.size() - 2), id);
        });
        isWhole = isWhole && scanner.ok();
        elements.push_back({{id.bytes(), seen[id.bytes()]++}, text});
    };
    Scanner scanner{document};
    std::optional<std::string_view> data;
    scanner.members([&](std::string_view name, std::string_view value) {
        if (name == "data" && value.starts_with('[')) data = value;
    });
    if (!scanner.ok() || !scanner.atEnd()) return std::nullopt;
    if (data) {
        Scanner list{*data};
        list.items(add);
        isWhole = isWhole && list.ok();
    } else {
        add(document);
    }
    if (!isWhole) return std::nullopt;
    return elements;
}

}  // namespace hmxrelay
