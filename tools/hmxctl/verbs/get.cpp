// `get`: one element.

#include "elements.h"
#include "parameters.h"
#include "render.h"
#include "verbs/verbs.h"

namespace hmxctl {

ExitCode runGet(Context& context) {
    const Target target = parseElement(context.arguments.words.front(), "get");
    Json parameters = retrieveParameters(context, *target.resource);
    // The display of a popup narrows the search for it; the element's own request does not take it.
    const std::string display = target.resource->path == "/popups" ? text(parameters, "display") : "";
    if (!display.empty()) parameters.erase("display");
    if (parameters.empty()) parameters = nullptr;
    Elements elements{context};
    const std::UUID id = elements.find(target, display);
    printAnswer(context, elements.request("retrieve", *target.resource, id, parameters));
    return ExitCode::ok;
}

}  // namespace hmxctl
