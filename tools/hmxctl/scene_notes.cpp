#include "scene_notes.h"

#include <algorithm>

#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"

namespace hmxctl {

Scene sceneOf(Context& context, const SceneParts& parts) {
    if (!parts.displays.empty()) {
        Elements elements{context.client, context.deadline};
        const std::vector<std::string> names = context.wait(elements.displayNames());
        for (const std::string& name : parts.displays) {
            if (std::find(names.begin(), names.end(), name) != names.end()) continue;
            const std::string meant = didYouMean(name, names);
            throw Failure{ExitCode::notFound, "there is no display '" + name + "'",
                          meant.empty() ? "displays: " + joined(names) : meant};
        }
    }
    Scene scene = context.wait(readScene(context.client, parts, context.deadline));
    for (const Scene::Absence& absence : scene.absences) context.note(absence.what + ": " + failureOf(absence.error).what());
    return scene;
}

}  // namespace hmxctl
