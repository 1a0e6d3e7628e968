#include "targets.h"

#include <string>

namespace hmxctl {

const Resource& resourceNamed(std::string_view name, std::string_view verb) {
    try {
        return hmx::client::resourceNamed(name);
    } catch (const Error& error) {
        throw usageError(std::string{verb} + ": " + error.what(), error.hint());
    }
}

Target parseTarget(std::string_view word, std::string_view verb) {
    try {
        (void)resourceNamed(splitTarget(word).resource, verb);
        return hmx::client::parseTarget(word);
    } catch (const Error& error) {
        throw usageError(std::string{verb} + " " + error.what(), error.hint());
    }
}

Target parseElement(std::string_view word, std::string_view verb) {
    Target target = parseTarget(word, verb);
    if (!target.element.empty()) return target;
    const std::string name{target.resource->name};
    throw usageError(
        std::string{verb} + " " + name + ": which element? " + name + "/UUID or " + name + "/" +
            std::string{target.resource->nameForm},
        isListable(*target.resource) ? "`hmxctl list " + name + "` shows them" : "`hmxctl tree` shows touch regions");
}

}  // namespace hmxctl
