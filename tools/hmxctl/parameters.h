// The parameters and bodies that the words behind a verb make.
#pragma once

#include <span>
#include <string>

#include "context.h"
#include "hmx/client/document.h"
#include "hmx/client/resources.h"

namespace hmxctl {

// The words behind RESOURCE[/ELEMENT] as parameters of a retrieve, typed and, unless --no-validate says otherwise, checked; null
// when there are none. Errors: Failure (usage).
[[nodiscard]] Json retrieveParameters(const Context& context, const Resource& resource);

// The same of a verb that works on one element, for which nothing has an effect but `fields` and, where a popup is sought,
// `display`: anything else is refused. The display is taken out of the parameters. Errors: Failure (usage).
struct ElementParameters {
    Json parameters;
    std::string display{};
};
[[nodiscard]] ElementParameters elementParameters(const Context& context, const Resource& resource);

// The one or the other, depending on what the target is. Errors: Failure (usage).
[[nodiscard]] ElementParameters parametersFor(const Context& context, const Target& target);

// The body that -f and the words from `firstWord` on make, keys from the words going before those of the file. Null when there is
// neither. Errors: Failure (usage).
[[nodiscard]] Json requestBody(const Context& context, std::size_t firstWord, Members members);

// The bytes of a file, or of standard input for "-". Errors: Failure (usage).
[[nodiscard]] std::string readFile(const std::string& path);

}  // namespace hmxctl
