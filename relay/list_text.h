// The elements of a JSON document as the very bytes that were sent.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "names.h"

namespace hmxrelay {

// Refers to the document. Thread: any (a value).
struct ElementText {
    ElementKey key;
    std::string_view text;
};

// The elements of a page ("data"), or the one that the document is; elements without an id have the nil one. Nothing if it is not
// a JSON object. Thread: any.
[[nodiscard]] std::optional<std::vector<ElementText>> elementTexts(std::string_view document);

}  // namespace hmxrelay
