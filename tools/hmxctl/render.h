// Documents as the output formats show them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "context.h"
#include "hmx/client/document.h"
#include "hmx/client/resources.h"

namespace hmxctl {

// Any document for people: scalars as "path  value" lines, arrays of objects as tables.
[[nodiscard]] std::vector<std::string> documentLines(const Json& document, bool colour);

// Elements as the resource's table; ids as short as keeps them apart. `fields`: the members to show instead of the resource's own
// columns; empty for these.
[[nodiscard]] std::vector<std::string> elementLines(const Resource& resource, const std::vector<Json>& elements,
                                                    const std::vector<std::string>& fields, bool colour);

void printLines(Output& out, const std::vector<std::string>& lines);

// An answer in the format that was asked for; jsonl divides an array, or the "data" of a page.
void printAnswer(Context& context, const Answer& answer);

// A text that is no document: as it is, or as the only member of one where documents are asked for.
void printText(Context& context, const char* key, std::string_view text);

// A document made here, in the format that was asked for.
void printDocument(Context& context, const Json& document);

}  // namespace hmxctl
