// `hit`: who receives a touch. The rules are those of hit_test.h.

#include <charconv>

#include "columns.h"
#include "hmx/client/elements.h"
#include "hmx/client/hit_test.h"
#include "hmx/client/input_regions.h"
#include "layer_notes.h"
#include "render.h"
#include "table.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

int coordinate(const std::string& word, const char* name) {
    int value = 0;
    const auto end = std::from_chars(word.data(), word.data() + word.size(), value);
    if (end.ec == std::errc{} && end.ptr == word.data() + word.size()) return value;
    throw usageError("hit: " + std::string{name} + " is '" + word + "', not a number of pixels",
                     "for example hmxctl hit Driver_Display 100 200");
}

// A touch on one display, and what it met. Thread: main.
struct Touch {
    TouchPoint point;
    std::string display{};
    std::vector<Json> regions{};
    std::vector<HitRegion> areas{};
    HitResult result{};
};

Json asJson(const Touch& touch, const Hit& hit) {
    return Json{{"region", touch.regions[hit.region]},
                {"zpos", *touch.areas[hit.region].zpos},
                {"receives", hit.fate == Fate::receives},
                {"margin", hit.margin},
                {"delivered", {{"x", hit.delivered.x}, {"y", hit.delivered.y}}},
                {"takesFocus", hit.takesFocus}};
}

Json asJson(const Touch& touch) {
    Json document{{"display", touch.display}, {"x", touch.point.x},       {"y", touch.point.y},       {"receiver", nullptr},
                  {"droppedBy", nullptr},     {"covered", Json::array()}, {"notified", Json::array()}};
    for (const Hit& hit : touch.result.under) {
        const bool top = &hit == &touch.result.under.front();
        if (top && hit.fate == Fate::receives) document["receiver"] = asJson(touch, hit);
        if (hit.fate == Fate::drops) document["droppedBy"] = asJson(touch, hit);
        if (!top) document["covered"].push_back(asJson(touch, hit));
    }
    for (const Hit& hit : touch.result.notified) document["notified"].push_back(asJson(touch, hit));
    return document;
}

std::string verdict(const Touch& touch, const Hit& hit) {
    const bool top = &hit == &touch.result.under.front();
    switch (hit.fate) {
        case Fate::receives:
            return top ? "receives it" : "covered, receives it too";
        case Fate::drops:
            return top ? "drops it" : "covered, drops it";
        case Fate::keptOff:
            break;
    }
    return "covered";
}

std::vector<std::string> lines(const Touch& touch, bool colour) {
    Table table{{{"OUTCOME"}, {"REGION"}, {"LAYER"}, {"Z", Align::right}, {"BOUNDS"}, {"SEES", Align::right}, {"NOTES"}}};
    const auto add = [&](const Hit& hit, const std::string& outcome, Style style) {
        const Json& region = touch.regions[hit.region];
        const HitRegion& area = touch.areas[hit.region];
        const bool sees = hit.fate == Fate::receives || outcome == "told of it";
        std::string notes;
        const auto note = [&](bool holds, const char* text) {
            notes += holds ? (notes.empty() ? "" : ", ") + std::string{text} : "";
        };
        note(area.exclusive, "exclusive");
        note(hit.margin, "in its margin");
        note(hit.takesFocus, "takes the focus");
        note(hit.fate == Fate::receives && area.keepFocus, "keeps the focus where it is");
        note(area.translateInput && sees, "translated");
        table.addRow({{outcome, style},
                      {regionName(region)},
                      {text(region, "layer")},
                      {std::to_string(*area.zpos)},
                      {boundsText(region)},
                      {sees ? std::to_string(hit.delivered.x) + "," + std::to_string(hit.delivered.y) : ""},
                      {notes}});
    };
    for (const Hit& hit : touch.result.under)
        add(hit, verdict(touch, hit), hit.fate == Fate::receives ? Style::green : Style::dim);
    for (const Hit& hit : touch.result.notified) add(hit, "told of it", Style::yellow);
    if (table.rows() == 0) return {"no input region there"};
    return table.lines(colour);
}

}  // namespace

ExitCode runHit(Context& context) {
    const std::vector<std::string>& words = context.arguments.words;
    Touch touch{.point = {coordinate(words[1], "X"), coordinate(words[2], "Y")}};
    Elements elements{context.client, context.deadline};
    const auto retrieved = [&](const Resource& resource, const std::string& name) {
        const std::UUID id = context.wait(elements.find({&resource, name}));
        return decode(context.wait(elements.request("retrieve", resource, id, nullptr)).payload);
    };

    const Json display = retrieved(resourceNamed("displays", "hit"), words[0]);
    touch.display = text(display, "name");
    const Json& resolution = member(display, "resolution");
    const auto beyond = [&](int at, const char* side) {
        return at < 0 || (member(resolution, side).is_number() && at >= member(resolution, side));
    };
    if (beyond(touch.point.x, "width") || beyond(touch.point.y, "height")) {
        context.note("the point lies outside the display, which has " + shortText(resolution));
    }

    Json configuration = retrieved(resourceNamed("layerconfigurations", "hit"), touch.display);
    if (configuration.contains("layers")) markInactive(configuration["layers"], inactiveLayers(context)[touch.display]);

    touch.regions = context.wait(readInputRegions(context.client, touch.display, context.deadline));
    for (const Json& region : touch.regions) touch.areas.push_back(asHitRegion(region, member(configuration, "layers")));
    touch.result = hitTest(touch.areas, touch.point);

    if (context.arguments.format == Format::table) {
        printLines(context.out, lines(touch, context.out.colour()));
    } else {
        printDocument(context, asJson(touch));
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
