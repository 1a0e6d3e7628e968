// `get`: one element.

#include "hmx/client/elements.h"
#include "parameters.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {

ExitCode runGet(Context& context) {
    const Target target = parseElement(context.arguments.words.front(), "get");
    const auto [parameters, display] = elementParameters(context, *target.resource);
    Elements elements{context.client, context.deadline};
    const std::UUID id = context.wait(elements.find(target, display));
    printAnswer(context, context.wait(elements.request("retrieve", *target.resource, id, parameters)));
    return ExitCode::ok;
}

}  // namespace hmxctl
