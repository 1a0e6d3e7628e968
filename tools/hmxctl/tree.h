// Displays, layers, popups and touch regions as one tree.
#pragma once

#include <string>
#include <vector>

#include "failure.h"
#include "hmx/client/document.h"
#include "hmx/client/scene.h"

namespace hmxctl {

// The display with its layers from top to bottom (highest zpos first, those without one last), each with the "popups" and
// "regions" on it; those that name no layer of the display stand beside the layers. A popup belongs to the layer that it names as
// its compositing layer, else as its logical one; the most important ones come first.
[[nodiscard]] Json makeScene(const DisplayScene& scene);

// The scenes drawn as trees.
[[nodiscard]] std::vector<std::string> sceneLines(const std::vector<Json>& scenes, bool colour);

}  // namespace hmxctl
