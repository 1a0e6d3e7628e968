// Reads the parameters of a request, as far as they can change its answer.
#pragma once

#include "kelo/record.h"
#include "kelo/toluglobals.h"

namespace kelo::tolu {

// Parameters to be read for one operation. A request lives as long as its client likes, and so do the parameters it keeps; only
// relevant ones are kept. Holds references. Thread: one at a time.
struct RelevantParams {
    toluglobals::ToluParams& params;
    const record::Description* element;  // whose members "fields" and the values of a list may name; null: none
    bool isList;                         // whether values can restrict the answer; those of a single element cannot
};

// Reads one map. `values` gets only values that may restrict a list; `fields` gets the names of members, once each. Unknown
// parameters are skipped. Fails, naming the key, if one of the protocol's own has another type or is out of range; fails if there
// are more parameters, or more bytes of them, than `Limits` allows.
[[nodiscard]] bool deserialize(serializer::IStructuredPullDeserializer& reader, const RelevantParams& relevant);

}  // namespace kelo::tolu
