// The scene for a verb, with what could not be had said on standard error.
#pragma once

#include "context.h"
#include "hmx/client/scene.h"

namespace hmxctl {

// As readScene; displays that are named have to be there. Errors: Failure. Thread: main.
[[nodiscard]] Scene sceneOf(Context& context, const SceneParts& parts);

}  // namespace hmxctl
