// Serialises the framework's basic types. True means failure, with the reason in the error store.
#pragma once

#include <string>
#include <vector>

#include "kelo/toluglobals.h"
#include "kelo/url.h"
#include "util/config/value.h"
#include "util/serializer/structured_serializer.h"

namespace kelo::serializer {

using util::serializer::IStructuredPullDeserializer;
using util::serializer::IStructuredSerializer;

bool serialize(IStructuredSerializer& writer, int value);
bool serialize(IStructuredSerializer& writer, bool value);
bool serialize(IStructuredSerializer& writer, float value);
bool serialize(IStructuredSerializer& writer, const std::string& value);
bool serialize(IStructuredSerializer& writer, const std::UUID& value);
bool serialize(IStructuredSerializer& writer, const kelo::url& value);
bool serialize(IStructuredSerializer& writer, const kelo::toluglobals::RequestHint& value);
bool serialize(IStructuredSerializer& writer, const kelo::toluglobals::ToluParams& value);
bool serialize(IStructuredSerializer& writer, const util::config::Value& value);

// Fails for an integer outside 32 bits.
bool deserialize(IStructuredPullDeserializer& reader, int& value);
bool deserialize(IStructuredPullDeserializer& reader, bool& value);
bool deserialize(IStructuredPullDeserializer& reader, float& value);
bool deserialize(IStructuredPullDeserializer& reader, std::string& value);
bool deserialize(IStructuredPullDeserializer& reader, std::UUID& value);
bool deserialize(IStructuredPullDeserializer& reader, kelo::url& value);
bool deserialize(IStructuredPullDeserializer& reader, kelo::toluglobals::RequestHint& value);
// Fails, naming the key, if "fields", "limit", "offset" or "offsetId" has another type or is out of range.
bool deserialize(IStructuredPullDeserializer& reader, kelo::toluglobals::ToluParams& value);
bool deserialize(IStructuredPullDeserializer& reader, util::config::Value& value);
bool deserialize(IStructuredPullDeserializer& reader, std::vector<std::string>& value);

}  // namespace kelo::serializer
