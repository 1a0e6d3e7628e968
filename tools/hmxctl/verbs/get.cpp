// `get`: one element.

#include "elements.h"
#include "parameters.h"
#include "render.h"
#include "verbs/verbs.h"

namespace hmxctl {

ExitCode runGet(Context& context) {
    const Target target = parseElement(context.arguments.words.front(), "get");
    const auto [parameters, display] = elementParameters(context, *target.resource);
    Elements elements{context};
    const std::UUID id = elements.find(target, display);
    printAnswer(context, elements.request("retrieve", *target.resource, id, parameters));
    return ExitCode::ok;
}

}  // namespace hmxctl
