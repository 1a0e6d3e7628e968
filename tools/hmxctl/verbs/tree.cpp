// `tree`: what is on which display.

#include "tree.h"

#include "hmx/client/scene.h"
#include "render.h"
#include "scene_notes.h"
#include "verbs/verbs.h"

namespace hmxctl {
ExitCode runTree(Context& context) {
    const Scene scene = sceneOf(context, {.displays = context.arguments.words});
    std::vector<Json> displays;
    for (const DisplayScene& display : scene.displays) displays.push_back(makeScene(display));
    if (context.arguments.format == Format::table) {
        printLines(context.out, sceneLines(displays, context.out.colour()));
    } else {
        printDocument(context, context.arguments.format == Format::jsonl ? Json(displays) : Json{{"displays", displays}});
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
