// The parameters of a request, read as far as they can change its answer.
#pragma once

#include "kelo/record.h"
#include "kelo/toluglobals.h"

namespace kelo::tolu {

// Parameters to be read for one operation: a request lives as long as its client wishes, and so does what it keeps of them.
// Refers to them. Thread: one at a time.
struct RelevantParams {
    toluglobals::ToluParams& params;
    const record::Description* element;  // which "fields" and the values of a list may name members of; null: none
    bool isList;                         // an element is restricted by nothing
};

// Reads one map. Of `values`, only those come to be there that may restrict a list; of `fields`, the names of members, once each.
// What nobody knows is passed over. Fails, naming the key, when one of the protocol's own has another type or is outside its
// range, and when there are more parameters, or of more bytes, than `Limits` say.
[[nodiscard]] bool deserialize(serializer::IStructuredPullDeserializer& reader, const RelevantParams& relevant);

}  // namespace kelo::tolu
