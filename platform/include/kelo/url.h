// kelo::url: the URI of an element, a value.
#pragma once

#include <compare>
#include <memory>
#include <string>
#include <utility>

namespace kelo {

// Thread: any (a value). The text is kept as given; nothing is normalised. Copies share it: an element's URI is made once and is
// then sent in every page with the element.
class url {
public:
    url() = default;
    explicit url(std::string text) : text_{std::make_shared<const std::string>(std::move(text))} {}

    // Valid as long as any copy exists.
    const std::string& toString() const noexcept {
        static const std::string none;
        return text_ ? *text_ : none;
    }
    bool empty() const noexcept { return toString().empty(); }

    friend bool operator==(const url& a, const url& b) noexcept { return a.toString() == b.toString(); }
    friend auto operator<=>(const url& a, const url& b) noexcept { return a.toString() <=> b.toString(); }

private:
    std::shared_ptr<const std::string> text_;  // null: empty
};

}  // namespace kelo
