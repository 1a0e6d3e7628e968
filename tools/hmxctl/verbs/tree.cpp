// `tree`: what is on which display.

#include "tree.h"

#include "hmx/client/elements.h"
#include "hmx/client/input_regions.h"
#include "hmx/client/suggest.h"
#include "layer_notes.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

// What a manager that is away has to say is left out, once said; everything else ends the verb.
class Optional {
public:
    explicit Optional(Context& context) : context_{context} {}

    template <class F>
    std::optional<std::vector<Json>> tried(const char* what, F&& read) {
        if (gaveUp_) return {};
        try {
            return read();
        } catch (const Failure& failure) {
            // A manager need not know every display.
            if (failure.code() == ExitCode::notFound) return std::vector<Json>{};
            if (failure.code() != ExitCode::serviceAbsent && failure.code() != ExitCode::timeout) throw;
            gaveUp_ = true;
            context_.note(std::string{what} + " left out: " + failure.what());
            return {};
        }
    }

private:
    Context& context_;
    bool gaveUp_ = false;
};

std::vector<Json> chosen(std::vector<Json> displays, const std::vector<std::string>& wanted,
                         const std::vector<std::string>& names) {
    if (wanted.empty()) return displays;
    std::vector<Json> found;
    for (const std::string& name : wanted) {
        const auto match =
            std::find_if(displays.begin(), displays.end(), [&](const Json& each) { return text(each, "name") == name; });
        if (match == displays.end()) {
            const std::string meant = didYouMean(name, names);
            throw Failure{ExitCode::notFound, "there is no display '" + name + "'",
                          meant.empty() ? "displays: " + joined(names) : meant};
        }
        found.push_back(*match);
    }
    return found;
}

}  // namespace

ExitCode runTree(Context& context) {
    const Resource& displays = resourceNamed("displays", "tree");
    const Resource& configurations = resourceNamed("layerconfigurations", "tree");
    const Resource& popups = resourceNamed("popups", "tree");
    Elements elements{context.client, context.deadline};
    const std::vector<Json> all = context.wait(elements.list(displays, nullptr));
    const std::vector<Json> layers = context.wait(elements.list(configurations, nullptr));
    const std::map<std::string, std::set<int>> inactive = inactiveLayers(context);

    Optional popupManager{context};
    Optional inputManager{context};
    std::vector<Json> scenes;
    for (const Json& display : chosen(all, context.arguments.words, context.wait(elements.displayNames()))) {
        const std::string name = text(display, "name");
        DisplayScene scene{.display = display};
        for (const Json& configuration : layers) {
            if (configurations.idOf(name) == idOfElement(configuration)) scene.layers = member(configuration, "layers");
        }
        if (const auto found = inactive.find(name); found != inactive.end()) markInactive(scene.layers, found->second);
        scene.popups = popupManager.tried("popups", [&] { return context.wait(elements.list(popups, Json{{"display", name}})); });
        scene.regions = inputManager.tried(
            "touch regions", [&] { return context.wait(readInputRegions(context.client, name, context.deadline)); });
        scenes.push_back(makeScene(scene));
    }
    if (context.arguments.format == Format::table) {
        printLines(context.out, sceneLines(scenes, context.out.colour()));
    } else {
        printDocument(context, context.arguments.format == Format::jsonl ? Json(scenes) : Json{{"displays", scenes}});
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
