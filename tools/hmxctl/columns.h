// The tables in which resources are shown.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "failure.h"
#include "hmx/client/document.h"
#include "hmx/client/resources.h"
#include "table.h"

namespace hmxctl {

// A column of a resource's table. Thread: any (a constant).
struct ResourceColumn {
    std::string_view header;
    Align align;
    Table::Cell (*cell)(const Json& element);
};

// Static storage.
[[nodiscard]] std::span<const ResourceColumn> columnsOf(const Resource& resource);

// An element's member for people: text as it is, "1920x720", "yes", "3 layers"; "" for null.
[[nodiscard]] std::string shortText(const Json& value);

}  // namespace hmxctl
