// Text as a terminal shows it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace hmxctl {

// Columns that `text` takes on a terminal: wide characters two, combining ones none. Thread: any.
[[nodiscard]] std::size_t displayWidth(std::string_view text) noexcept;

// `text` without anything that a terminal would obey: control characters become their \x escapes, malformed UTF-8 the
// replacement character. What a service sends is shown only through this.
[[nodiscard]] std::string printable(std::string_view text);

// The longest beginning of `text` that fits, with an ellipsis when something was cut. `text` may contain colour sequences, which
// take no width and are closed when cut.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t width);

enum class Style : unsigned char { plain, bold, dim, red, green, yellow, cyan };

// `text` in that style, if `colour`.
[[nodiscard]] std::string styled(std::string_view text, Style style, bool colour);

}  // namespace hmxctl
