// Where and how to take a screenshot of a display.
#pragma once

#include <string>

#include "kelo/optional.h"
#include "kelo/record.h"

namespace kelo::hmx::displaymanager {

// Thread: any (a value).
struct Screenshot {
    kelo::optional<std::string> outputDirectory;
    kelo::optional<std::string> type;
    kelo::optional<std::string> filename;
    kelo::optional<bool> addDisplayToFilename;
    kelo::optional<bool> addTimestampToFilename;
};
constexpr auto recordTable(const Screenshot*) {
    using kelo::record::Row;
    return kelo::record::Table<Screenshot, Row<"outputDirectory", &Screenshot::outputDirectory>, Row<"type", &Screenshot::type>,
                               Row<"filename", &Screenshot::filename>,
                               Row<"addDisplayToFilename", &Screenshot::addDisplayToFilename>,
                               Row<"addTimestampToFilename", &Screenshot::addTimestampToFilename>>{"Screenshot"};
}
static_assert(kelo::record::covers<Screenshot>);

bool serialize(kelo::serializer::IStructuredSerializer& writer, const Screenshot& value);
bool deserialize(kelo::serializer::IStructuredPullDeserializer& reader, Screenshot& value);

}  // namespace kelo::hmx::displaymanager
