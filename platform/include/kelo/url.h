// kelo::url: the URI of an element, a value.
#pragma once

#include <compare>
#include <string>
#include <string_view>
#include <utility>

namespace kelo {

// Thread: any (a value). The text is kept as given; nothing is normalised.
class url {
public:
    url() = default;
    explicit url(std::string text) : text_{std::move(text)} {}

    const std::string& toString() const noexcept { return text_; }
    bool empty() const noexcept { return text_.empty(); }

    friend bool operator==(const url&, const url&) = default;
    friend auto operator<=>(const url&, const url&) = default;

private:
    std::string text_;
};

}  // namespace kelo
