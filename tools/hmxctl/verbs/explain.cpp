// `explain`: why an element is, or is not, shown or touched. The rules are those of explain.h.

#include <algorithm>

#include "findings.h"
#include "hmx/client/elements.h"
#include "hmx/client/explain.h"
#include "hmx/client/input_regions.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "scene_notes.h"
#include "targets.h"
#include "text.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// Touch regions are no elements of /hmx, and have a name of their own here: "regions/Driver_Display/3".
constexpr std::string_view regionsName = "regions";

// Something that was explained. Thread: any (a value).
struct Explained {
    std::string name;
    Explanation explanation;
};

Json asDocument(const Explained& each) {
    return Json{{"element", each.name},
                {"good", each.explanation.isGood},
                {"verdict", each.explanation.verdict},
                {"findings", asJson(each.explanation.findings)}};
}

void print(Context& context, const std::vector<Explained>& all) {
    if (context.arguments.format != Format::table) {
        Json documents = Json::array();
        for (const Explained& each : all) documents.push_back(asDocument(each));
        return printDocument(context, all.size() == 1 ? documents.front() : documents);
    }
    const bool colour = context.out.colour();
    for (const Explained& each : all) {
        context.out.line(styled(printable(each.name), Style::bold, colour) + " " +
                         styled(each.explanation.verdict, each.explanation.isGood ? Style::green : Style::red, colour) + ".");
        printLines(context.out, findingLines(each.explanation.findings, colour));
    }
}

// The regions of DISPLAY/NUMBER or DISPLAY/HMI.
std::vector<Explained> explainRegions(Context& context, const std::string& word) {
    const std::size_t slash = word.find('/');
    const std::string displayName = word.substr(0, slash);
    const std::string wanted = slash == std::string::npos ? "" : word.substr(slash + 1);
    if (wanted.empty()) {
        throw usageError("explain regions/" + word + ": which region? regions/DISPLAY/NUMBER or regions/DISPLAY/HMI",
                         "`hmxctl tree` shows touch regions");
    }
    const Scene scene = sceneOf(context, {.displays = {displayName}, .popups = false});
    std::vector<std::string> names;
    std::vector<Explained> found;
    for (const DisplayScene& display : scene.displays) {
        const std::size_t count = display.regions ? display.regions->size() : 0;
        for (std::size_t i = 0; i < count; ++i) {
            const Json& region = (*display.regions)[i];
            const std::string number = compact(member(region, "regionID"));
            names.push_back(number);
            if (wanted != number && wanted != text(region, "hmiName")) continue;
            found.push_back(
                {"regions/" + displayName + "/" + number + " (" + regionName(region) + ")", explainRegion(display, i)});
        }
    }
    if (!found.empty()) return found;
    if (!scene.displays.front().regions) throw failureOf(scene.absences.back().error);
    throw Failure{ExitCode::notFound, "regions/" + word + ": there is no such region",
                  names.empty() ? "`hmxctl tree` shows touch regions" : "regions of the display: " + joined(names)};
}

// What the scene needs to hold for an element of the resource to be explained.
SceneParts partsFor(const Resource& resource) {
    const bool display = resource.path == "/displays";
    return {.popups = display || resource.path == "/popups",
            .regions = display || resource.path == "/regionconfigurations",
            .displayables = resource.path == "/displayables"};
}

Explanation explain(const Scene& scene, const Resource& resource, const Json& element) {
    const auto of = [&](const auto& display) {
        const std::string name = text(display.display, "name");
        return resource.idOf(name) == idOfElement(element);
    };
    if (resource.path == "/popups") return explainPopup(scene, element);
    if (resource.path == "/regionconfigurations") return explainConfiguration(scene, element);
    if (resource.path == "/displayables") {
        for (const Json& each : scene.displayables) {
            if (member(each, "id") == member(element, "id")) return explainDisplayable(scene, each);
        }
        return explainDisplayable(scene, element);
    }
    const auto display = std::find_if(scene.displays.begin(), scene.displays.end(), of);
    // A configuration of a display that is not there still has layers.
    if (resource.path == "/layerconfigurations") {
        return explainLayers(display == scene.displays.end() ? DisplayScene{.display = {}, .layers = member(element, "layers")}
                                                             : *display);
    }
    return explainDisplay(display == scene.displays.end() ? DisplayScene{.display = element} : *display);
}

}  // namespace

ExitCode runExplain(Context& context) {
    const std::string& word = context.arguments.words.front();
    const TargetWords words = splitTarget(word);
    if (words.resource == regionsName) {
        print(context, explainRegions(context, std::string{words.element.value_or("")}));
        return ExitCode::ok;
    }
    const Target target = parseElement(word, "explain");
    Elements elements{context.client, context.deadline};
    const std::UUID id = context.wait(elements.find(target));
    const Json element = decode(context.wait(elements.request("retrieve", *target.resource, id, nullptr)).payload);
    const Scene scene = sceneOf(context, partsFor(*target.resource));
    // A region configuration is known by what it is for.
    const std::string subComponent = text(element, "subComponent");
    std::string name =
        target.resource->path == "/regionconfigurations"
            ? text(element, "display") + "/" + text(element, "hmi") + (subComponent.empty() ? "" : "/" + subComponent)
            : context.wait(elements.nameOf(*target.resource, element));
    if (name.empty()) name = target.element;
    print(context, {{std::string{target.resource->name} + "/" + name, explain(scene, *target.resource, element)}});
    return ExitCode::ok;
}

}  // namespace hmxctl
