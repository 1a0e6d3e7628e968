// Each rule's words stand in client/rules/explain.json; here is when it applies, and with which values. The inspector has the
// same conditions in TypeScript (inspector/src/model/explain.ts); tests/data/explain_cases.json holds both to them.
//
// What is not known is no fault: a member that is absent, or a service that could not be asked, is told as such where it
// matters, and otherwise decides nothing.
//
// How much of a region is covered is found by touching it: the edges of all regions near it divide it into cells, and each point
// of a cell meets the same regions. So one touch per cell, weighted with the cell's area, tells the whole, and the rules of
// touches stand in one place. Where there are very many edges, only some of them are used; the shares are then estimates.

#include "hmx/client/explain.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <set>
#include <utility>

#include "explain_rules.h"
#include "hmx/client/elements.h"
#include "hmx/client/hit_test.h"
#include "hmx/client/input_regions.h"
#include "hmx/client/suggest.h"

namespace hmx::client {
namespace {

bool flag(const Json& object, std::string_view key) {
    return member(object, key) == true;
}

std::string sizeText(const Json& size) {
    const auto side = [&](const char* key) { return member(size, key).is_null() ? "?" : compact(member(size, key)); };
    return side("width") + "x" + side("height");
}

bool isKnownSize(const Json& size) {
    return member(size, "width").is_number_integer() && member(size, "height").is_number_integer();
}

bool isEmptySize(const Json& size) {
    return isKnownSize(size) && (member(size, "width") <= 0 || member(size, "height") <= 0);
}

// Whether a picture of that size would cover one of the other.
bool covers(const Json& size, const Json& other) {
    return isKnownSize(size) && isKnownSize(other) && member(size, "width") >= member(other, "width") &&
           member(size, "height") >= member(other, "height");
}

std::string layerName(const Json& layer) {
    const std::string name = text(layer, "name");
    return name.empty() ? "#" + compact(member(layer, "id")) : name;
}

bool isOff(const Json& layer) {
    return member(layer, "active") == false;
}

std::int64_t placeOf(const Json& layer) {
    const Json& zpos = member(layer, "zpos");
    return zpos.is_number_integer() ? zpos.get<std::int64_t>() : INT64_MIN;
}

Json zposOf(const Json& layer) {
    const Json& zpos = member(layer, "zpos");
    return zpos.is_null() ? Json("unknown") : zpos;
}

// The names of those layers for which `fits` is true, the highest first.
template <class F>
std::vector<std::string> layerNames(const Json& layers, F fits) {
    std::vector<const Json*> found;
    for (const Json& layer : layers) {
        if (fits(layer)) found.push_back(&layer);
    }
    std::stable_sort(found.begin(), found.end(), [](const Json* a, const Json* b) { return placeOf(*a) > placeOf(*b); });
    std::vector<std::string> names;
    std::transform(found.begin(), found.end(), std::back_inserter(names), [](const Json* layer) { return layerName(*layer); });
    return names;
}

// Those of the members that `object` has.
Json membersOf(const Json& object, std::initializer_list<const char*> keys) {
    Json found = Json::object();
    for (const char* key : keys) {
        if (!member(object, key).is_null()) found[key] = member(object, key);
    }
    return found;
}

// Gathers findings about one thing. Thread: one at a time.
class Findings {
public:
    void add(const char* rule, Json values = Json::object(), const Json& words = nullptr) {
        findings_.push_back(explainRules().find(rule, std::move(values), words));
        findings_.back().subject = subject_;
    }
    // What is added from now on is about that part of the whole.
    void about(std::string subject) { subject_ = std::move(subject); }
    void addAll(const Explanation& part) {
        for (Finding finding : part.findings) {
            finding.subject = subject_;
            findings_.push_back(std::move(finding));
        }
    }

    Explanation as(const char* kind) {
        explainRules().sort(findings_);
        Explanation explanation;
        explanation.isGood = findings_.empty() || findings_.front().level != Level::problem;
        const Json& verdicts = explainRules().document().at("kinds").at(kind);
        explanation.verdict = text(verdicts, explanation.isGood ? "good" : "bad");
        explanation.findings = std::move(findings_);
        return explanation;
    }

private:
    std::vector<Finding> findings_;
    std::string subject_;
};

void addAttachment(Findings& findings, const Json& display) {
    const std::string connector = text(display, "connector");
    const Json values{{"display", text(display, "name")}, {"connector", connector}};
    findings.add(connector.empty() ? "display.unattached" : "display.attached", values);
}

const DisplayScene* findDisplay(const Scene& scene, const std::string& name) {
    const auto found = std::find_if(scene.displays.begin(), scene.displays.end(),
                                    [&](const DisplayScene& each) { return text(each.display, "name") == name; });
    return found == scene.displays.end() ? nullptr : &*found;
}

// Popups.

std::string popupName(const Json& popup) {
    const Json& priority = member(popup, "priorityInlayer");
    return text(popup, "name") + (priority.is_number_integer() ? " (priority " + compact(priority) + ")" : "");
}

std::string slotName(const Json& popup) {
    const std::string slot = text(popup, "slot");
    return slot.empty() ? "the slot of popups without one" : "the slot \"" + slot + "\"";
}

// The others of its slot for which the member is true, the most important one first.
std::vector<const Json*> rivals(const DisplayScene& display, const Json& popup, const char* key) {
    static const std::vector<Json> none;
    std::vector<const Json*> found;
    for (const Json& other : display.popups ? *display.popups : none) {
        const bool isItself = member(other, "id") == member(popup, "id");
        if (!isItself && text(other, "slot") == text(popup, "slot") && flag(other, key)) found.push_back(&other);
    }
    const auto rank = [](const Json* each) {
        const Json& priority = member(*each, "priorityInlayer");
        return std::pair{priority.is_number_integer() ? -priority.get<std::int64_t>() : INT64_MAX, text(*each, "name")};
    };
    std::sort(found.begin(), found.end(), [&](const Json* a, const Json* b) { return rank(a) < rank(b); });
    return found;
}

void addState(Findings& findings, const DisplayScene& display, const Json& popup) {
    const std::vector<const Json*> holders = rivals(display, popup, "active");
    Json values = membersOf(popup, {"requested", "active", "visible", "suppressed", "slot", "priorityInlayer"});
    Json words{{"slot", slotName(popup)}};
    const char* rule = flag(popup, "visible") ? "popup.shown" : flag(popup, "active") ? "popup.hidden" : "popup.idle";
    const bool waits = !flag(popup, "visible") && !flag(popup, "active");
    if (waits && flag(popup, "requested")) rule = holders.empty() ? "popup.undecided" : "popup.outrun";
    if (waits && flag(popup, "suppressed")) rule = holders.empty() ? "popup.suppressed-alone" : "popup.suppressed";
    if (waits && !holders.empty()) {
        values["rival"] = text(*holders.front(), "name");
        values["rivalPriority"] = member(*holders.front(), "priorityInlayer");
        words["rival"] = popupName(*holders.front());
    }
    findings.add(rule, values, words);
    if (waits) return;
    Json others = Json::array();
    for (const Json* each : rivals(display, popup, "requested")) others.push_back(popupName(*each));
    findings.add(others.empty() ? "popup.alone" : "popup.first", {{"slot", text(popup, "slot")}, {"others", others}}, words);
}

void addPopupLayer(Findings& findings, const DisplayScene& display, const Json& popup) {
    std::vector<std::string> names;
    for (const char* key : {"popupLayerCompositing", "popupLayerLogical"}) {
        const std::string name = text(popup, key);
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    const std::string displayName = text(display.display, "name");
    for (const std::string& name : names) {
        const Json* layer = findLayer(display.layers, name);
        if (layer == nullptr) continue;
        findings.add(isOff(*layer) ? "popup.layer-off" : "popup.layer",
                     {{"display", displayName}, {"layer", layerName(*layer)}, {"zpos", zposOf(*layer)}});
        return;
    }
    if (!names.empty()) {
        findings.add("popup.layer-absent", {{"display", displayName}, {"layers", joined(names, " or ")}});
    } else if (!flag(popup, "visible")) {
        findings.add("popup.no-layer");
    }
}

// Regions.

struct Area {
    std::int64_t left;
    std::int64_t top;
    std::int64_t right;
    std::int64_t bottom;

    bool isEmpty() const noexcept { return left >= right || top >= bottom; }
    std::int64_t size() const noexcept { return isEmpty() ? 0 : (right - left) * (bottom - top); }
};

Area areaOf(const HitRegion& region, TouchPoint margin = {}) {
    return {std::int64_t{region.left} - margin.x, std::int64_t{region.top} - margin.y,
            std::int64_t{region.left} + region.width + margin.x, std::int64_t{region.top} + region.height + margin.y};
}

Area common(const Area& a, const Area& b) {
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

// What lies above a region, and how much of it that keeps touches from it.
struct Cover {
    std::int64_t kept = 0;          // pixels
    std::set<std::size_t> keepers;  // regions that keep touches to themselves
    std::set<std::size_t> sharers;  // regions that receive touches first
};

// The coordinates at which something may change, all of them or as many as can be afforded.
std::vector<std::int64_t> divisions(std::set<std::int64_t> edges, std::int64_t first, std::int64_t last) {
    constexpr std::size_t most = 120;
    edges.insert({first, last});
    const std::vector<std::int64_t> all(edges.lower_bound(first), edges.upper_bound(last));
    if (all.size() <= most) return all;
    std::vector<std::int64_t> some;
    for (std::size_t i = 0; i < most; ++i) some.push_back(all[i * (all.size() - 1) / (most - 1)]);
    return some;
}

Cover coverOf(const std::vector<HitRegion>& regions, std::size_t which, const Area& area) {
    std::vector<HitRegion> near;
    std::vector<std::size_t> numbers;
    std::set<std::int64_t> columns;
    std::set<std::int64_t> rows;
    std::size_t itself = 0;
    for (std::size_t i = 0; i < regions.size(); ++i) {
        const TouchPoint margin = regions[i].hitOutside.value_or(TouchPoint{});
        const Area reach = areaOf(regions[i], {std::max(0, margin.x), std::max(0, margin.y)});
        if (i != which && (!regions[i].zpos || !regions[i].hasBounds || common(reach, area).isEmpty())) continue;
        if (i == which) itself = near.size();
        near.push_back(regions[i]);
        numbers.push_back(i);
        const Area bounds = areaOf(regions[i]);
        columns.insert({reach.left, bounds.left, bounds.right, reach.right});
        rows.insert({reach.top, bounds.top, bounds.bottom, reach.bottom});
    }
    const std::vector<std::int64_t> xs = divisions(std::move(columns), area.left, area.right);
    const std::vector<std::int64_t> ys = divisions(std::move(rows), area.top, area.bottom);
    Cover cover;
    for (std::size_t x = 0; x + 1 < xs.size(); ++x) {
        for (std::size_t y = 0; y + 1 < ys.size(); ++y) {
            const HitResult result = hitTest(near, {static_cast<int>(xs[x]), static_cast<int>(ys[y])});
            std::optional<std::size_t> last;  // of those above that receive or drop it
            for (const Hit& hit : result.under) {
                if (hit.region == itself) {
                    if (hit.fate == Fate::keptOff && last) {
                        cover.kept += (xs[x + 1] - xs[x]) * (ys[y + 1] - ys[y]);
                        cover.keepers.insert(numbers[*last]);
                    }
                    break;
                }
                if (hit.fate != Fate::keptOff) last = hit.region;
                if (!near[hit.region].exclusive && !near[hit.region].dropEvent) cover.sharers.insert(numbers[hit.region]);
            }
        }
    }
    return cover;
}

Json namesOf(const DisplayScene& display, const std::set<std::size_t>& regions) {
    Json names = Json::array();
    for (const std::size_t i : regions) names.push_back(regionName((*display.regions)[i]));
    return names;
}

void addCover(Findings& findings, const DisplayScene& display, std::size_t which, const Area& visible) {
    std::vector<HitRegion> regions;
    for (const Json& region : *display.regions) regions.push_back(asHitRegion(region, display.layers));
    const Cover cover = coverOf(regions, which, visible);
    const Json keepers{{"others", namesOf(display, cover.keepers)}};
    if (cover.kept == visible.size()) return findings.add("region.covered", keepers);
    if (cover.kept > 0) {
        const std::int64_t percent = std::clamp<std::int64_t>(cover.kept * 100 / visible.size(), 1, 99);
        findings.add("region.partly-covered", {{"percent", percent}, {"others", keepers["others"]}});
    }
    if (!cover.sharers.empty()) findings.add("region.shared", {{"others", namesOf(display, cover.sharers)}});
}

// Whether the bounds of a region of /hmx are those of one that the input manager reports.
bool haveSameBounds(const Json& configured, const Json& reported) {
    const Json& a = member(configured, "bounds");
    const Json& b = member(reported, "bounds");
    if (a.is_null() || b.is_null()) return a.is_null() == b.is_null();
    const auto number = [](const Json& object, const char* key) {
        const Json& value = member(object, key);
        return value.is_number_integer() ? value.get<std::int64_t>() : 0;
    };
    return number(member(a, "upperLeftPoint"), "posX") == number(member(b, "pointMin"), "x") &&
           number(member(a, "upperLeftPoint"), "posY") == number(member(b, "pointMin"), "y") &&
           number(a, "width") == number(b, "width") && number(a, "height") == number(b, "height");
}

// Displayables.

// A displayable's place on a display. Thread: any (a value).
struct Placement {
    const DisplayScene* display;
    const Json* layer;
};

std::vector<Placement> placementsOf(const Scene& scene, const Json& displayable) {
    std::vector<Placement> found;
    for (const Json& wanted : member(member(displayable, "upstream"), "layers")) {
        for (const DisplayScene& display : scene.displays) {
            for (const Json& layer : display.layers) {
                if (member(layer, "id") == member(wanted, "id")) found.push_back({&display, &layer});
            }
        }
    }
    return found;
}

bool isHidden(const Json& displayable) {
    const Json& record = member(displayable, "upstream");
    return member(record, "is_visible") == false || member(record, "is_active") == false;
}

std::string displayableName(const Json& displayable) {
    const std::string name = text(displayable, "name");
    return name.empty() ? "#" + compact(member(displayable, "displayableID")) : name;
}

// The size of a picture against the display, and what may hide it there.
void addPlacement(Findings& findings, const Scene& scene, const Json& displayable, const Placement& place) {
    const Json& display = place.display->display;
    const Json& size = member(displayable, "size");
    const Json& resolution = member(display, "resolution");
    Json values{{"display", text(display, "name")},
                {"layer", layerName(*place.layer)},
                {"zpos", zposOf(*place.layer)},
                {"size", sizeText(size)},
                {"resolution", sizeText(resolution)}};
    findings.add("displayable.layer", values);
    if (!isKnownSize(size) || !isKnownSize(resolution)) return;
    findings.add(covers(resolution, size) ? "displayable.fits" : "displayable.larger", values);
    std::vector<std::string> others;
    for (const Json& other : scene.displayables) {
        if (isHidden(other) || !covers(member(other, "size"), size)) continue;
        const std::vector<Placement> places = placementsOf(scene, other);
        const bool isAbove = std::any_of(places.begin(), places.end(), [&](const Placement& each) {
            return each.display == place.display && !isOff(*each.layer) && placeOf(*each.layer) > placeOf(*place.layer);
        });
        if (isAbove) others.push_back(displayableName(other));
    }
    if (!others.empty()) findings.add("displayable.below", {{"display", text(display, "name")}, {"others", others}});
}

}  // namespace

const RuleTable& explainRules() {
    static const RuleTable table{explainRulesText};
    return table;
}

Explanation explainPopup(const Scene& scene, const Json& popup) {
    Findings findings;
    const std::string name = text(popup, "display");
    if (const DisplayScene* display = findDisplay(scene, name)) {
        addState(findings, *display, popup);
        addPopupLayer(findings, *display, popup);
        addAttachment(findings, display->display);
    } else {
        findings.add("popup.no-display", {{"display", name}});
    }
    return findings.as("popup");
}

Explanation explainDisplay(const DisplayScene& display) {
    Findings findings;
    const Json& element = display.display;
    const auto isOn = [](const Json& layer) { return !isOff(layer); };
    const std::vector<std::string> on = layerNames(display.layers, isOn);
    const std::vector<std::string> off = layerNames(display.layers, isOff);
    if (on.empty()) {
        findings.add(off.empty() ? "display.no-layers" : "display.all-off", {{"layers", off}});
    } else {
        findings.add("display.layers", {{"layers", on}});
        if (!off.empty()) findings.add("display.layers-off", {{"layers", off}});
    }
    const Json& resolution = member(element, "resolution");
    const Json size{{"resolution", sizeText(resolution)}};
    if (!isKnownSize(resolution)) {
        findings.add("display.no-size");
    } else {
        findings.add(isEmptySize(resolution) ? "display.empty" : "display.size", size);
    }
    addAttachment(findings, element);
    if (member(element, "touchSupport") == false && display.regions && !display.regions->empty()) {
        findings.add("display.no-touch", {{"regions", display.regions->size()}, {"touchSupport", false}});
    }
    std::vector<std::string> popups;
    for (const Json& popup : display.popups.value_or(std::vector<Json>{})) {
        if (flag(popup, "visible")) popups.push_back(text(popup, "name"));
    }
    std::sort(popups.begin(), popups.end());
    if (!popups.empty()) findings.add("display.popups", {{"popups", popups}});
    return findings.as("display");
}

Explanation explainLayer(const DisplayScene& display, std::size_t which) {
    Findings findings;
    const Json& layer = display.layers[which];
    const Json zpos{{"zpos", zposOf(layer)}};
    if (isOff(layer)) findings.add("layer.off", {{"active", false}});
    if (member(layer, "zpos").is_null()) {
        findings.add("layer.no-place");
        return findings.as("layer");
    }
    const auto above = layerNames(display.layers, [&](const Json& each) { return placeOf(each) > placeOf(layer); });
    const auto beside =
        layerNames(display.layers, [&](const Json& each) { return &each != &layer && placeOf(each) == placeOf(layer); });
    if (!beside.empty()) findings.add("layer.same-place", {{"zpos", zposOf(layer)}, {"others", beside}});
    if (above.empty()) {
        findings.add("layer.top", zpos);
    } else {
        findings.add("layer.below", {{"zpos", zposOf(layer)}, {"above", above}});
    }
    return findings.as("layer");
}

Explanation explainLayers(const DisplayScene& display) {
    Findings findings;
    if (display.layers.empty()) findings.add("display.no-layers");
    for (std::size_t i = 0; i < display.layers.size(); ++i) {
        findings.about("layer " + layerName(display.layers[i]));
        findings.addAll(explainLayer(display, i));
    }
    return findings.as("layerconfiguration");
}

Explanation explainRegion(const DisplayScene& display, std::size_t which) {
    Findings findings;
    const Json& region = (*display.regions)[which];
    const std::string name = text(display.display, "name");
    if (member(display.display, "touchSupport") == false) {
        findings.add("region.no-touch", {{"display", name}, {"touchSupport", false}});
    }
    const std::string wanted = text(region, "layer");
    const Json* layer = findLayer(display.layers, wanted);
    const Json place{{"display", name},
                     {"layer", layer == nullptr ? wanted : layerName(*layer)},
                     {"zpos", layer == nullptr ? Json("unknown") : zposOf(*layer)},
                     {"bounds", boundsText(region)}};
    if (layer == nullptr) {
        findings.add(wanted.empty() ? "region.no-layer" : "region.layer-absent", place);
    } else if (isOff(*layer)) {
        findings.add("region.layer-off", place);
    }
    const HitRegion area = asHitRegion(region, display.layers);
    const Json& resolution = member(display.display, "resolution");
    const Area bounds = areaOf(area);
    const Area visible = isKnownSize(resolution) && !isEmptySize(resolution)
                             ? common(bounds, {0, 0, member(resolution, "width"), member(resolution, "height")})
                             : bounds;
    const Json extent{{"bounds", boundsText(region)}, {"resolution", sizeText(resolution)}};
    if (!area.hasBounds) {
        findings.add("region.no-bounds");
    } else if (bounds.isEmpty()) {
        findings.add("region.empty", extent);
    } else if (visible.isEmpty()) {
        findings.add("region.outside", extent);
    } else {
        if (visible.size() < bounds.size()) findings.add("region.partly-outside", extent);
        if (area.zpos) addCover(findings, display, which, visible);
    }
    if (area.dropEvent) {
        findings.add("region.drops", {{"dropEvent", true}});
    } else if (area.exclusive) {
        findings.add("region.exclusive", {{"exclusive", true}});
    }
    if (area.zpos && !visible.isEmpty() && area.hasBounds && !area.dropEvent) findings.add("region.receives", place);
    return findings.as("region");
}

Explanation explainConfiguration(const Scene& scene, const Json& configuration) {
    Findings findings;
    const std::string name = text(configuration, "display");
    const DisplayScene* display = findDisplay(scene, name);
    if (display == nullptr) findings.add("popup.no-display", {{"display", name}});
    bool any = false;
    for (const Json& entry : member(member(configuration, "regions"), "infoForAllLayers")) {
        for (const Json& region : member(entry, "inputRegions")) {
            any = true;
            if (display == nullptr || !display->regions) continue;
            const std::vector<Json>& reported = *display->regions;
            const auto found = std::find_if(reported.begin(), reported.end(), [&](const Json& each) {
                return text(each, "hmiName") == text(configuration, "hmi") && text(each, "layer") == text(entry, "layer") &&
                       haveSameBounds(region, each);
            });
            if (found == reported.end()) {
                const Json& bounds = member(region, "bounds");
                findings.about("");
                findings.add("region.absent", {{"layer", text(entry, "layer")}, {"bounds", sizeText(bounds)}});
                continue;
            }
            findings.about("region " + regionName(*found));
            findings.addAll(explainRegion(*display, static_cast<std::size_t>(found - reported.begin())));
        }
    }
    findings.about("");
    if (!any) findings.add("regionconfiguration.empty");
    return findings.as("regionconfiguration");
}

Explanation explainDisplayable(const Scene& scene, const Json& displayable) {
    Findings findings;
    const Json& record = member(displayable, "upstream");
    const Json& size = member(displayable, "size");
    const Json number{{"number", member(displayable, "displayableID")}};
    if (!isKnownSize(size)) {
        findings.add("displayable.no-size");
    } else if (isEmptySize(size)) {
        findings.add("displayable.empty", {{"size", sizeText(size)}});
    }
    if (record.is_null()) {
        findings.add("displayable.unknown", number);
        return findings.as("displayable");
    }
    if (member(record, "is_visible") == false) findings.add("displayable.invisible", number);
    if (member(record, "is_active") == false) findings.add("displayable.inactive", number);
    std::vector<std::string> wanted;
    for (const Json& layer : member(record, "layers")) wanted.push_back(layerName(layer));
    if (wanted.empty()) {
        findings.add("displayable.no-layer", number);
        return findings.as("displayable");
    }
    std::vector<Placement> places = placementsOf(scene, displayable);
    if (places.empty()) findings.add("displayable.layer-absent", {{"layers", wanted}});
    const auto isDark = [](const Placement& place) { return isOff(*place.layer); };
    if (!places.empty() && std::all_of(places.begin(), places.end(), isDark)) {
        findings.add("displayable.layer-off", {{"layers", wanted}});
    }
    std::erase_if(places, isDark);
    for (const Placement& place : places) addPlacement(findings, scene, displayable, place);
    return findings.as("displayable");
}

}  // namespace hmx::client
