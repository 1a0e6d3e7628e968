// Why something is, or is not, shown or touched.
#pragma once

#include <string>
#include <vector>

#include "hmx/client/finding.h"
#include "hmx/client/scene.h"

namespace hmx::client {

// Thread: any (a value).
struct Explanation {
    bool isGood = true;             // no problem was found
    std::string verdict;            // "is shown", "receives no touches"
    std::vector<Finding> findings;  // the most decisive ones first
};

// The rules stand in client/rules/explain.json, their conditions in explain.cpp. What the scene does not hold decides nothing.
// Thread: any, as all here.
[[nodiscard]] const RuleTable& explainRules();

// An element of /popups.
[[nodiscard]] Explanation explainPopup(const Scene& scene, const Json& popup);
[[nodiscard]] Explanation explainDisplay(const DisplayScene& display);
// One of the display's layers, and all of them.
[[nodiscard]] Explanation explainLayer(const DisplayScene& display, std::size_t layer);
[[nodiscard]] Explanation explainLayers(const DisplayScene& display);
// One of the display's input regions.
[[nodiscard]] Explanation explainRegion(const DisplayScene& display, std::size_t region);
// An element of /regionconfigurations: each of its input regions, found again by HMI, layer and bounds.
[[nodiscard]] Explanation explainConfiguration(const Scene& scene, const Json& configuration);
// One of the scene's displayables.
[[nodiscard]] Explanation explainDisplayable(const Scene& scene, const Json& displayable);

}  // namespace hmx::client
