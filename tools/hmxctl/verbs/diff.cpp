// `diff`: what two recordings, world files or systems do not have in common. The rules are those of comparison.h.

#include <array>
#include <cstdio>

#include "columns.h"
#include "comparison.h"
#include "hmx/client/elements.h"
#include "hmx/client/suggest.h"
#include "render.h"
#include "sides.h"
#include "table.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

using hmx::recording::Source;

constexpr std::size_t widestValue = 40;

// The names of the displays that either side has known last.
std::vector<std::string> displayNames(const std::vector<Side>& sides) {
    std::vector<std::string> names;
    for (const Side& side : sides) {
        const auto found = side.history.sources().find(Source{std::string{hmxService}, "/displays"}.key());
        if (found == side.history.sources().end()) continue;
        for (const Json& display : elementsOf(found->second.document)) names.push_back(text(display, "name"));
    }
    return names;
}

// The element as a person would name it: "popups/Driver_Display/Hint", "hmxpopupmanager/Driver_Display/Hint".
std::string labelOf(const Difference& difference, const std::vector<std::string>& displays) {
    const Source& source = difference.source;
    if (source.service != hmxService) {
        std::string name = source.service.substr(1) + source.path;
        return difference.element.empty() ? name : name + "/" + difference.element;
    }
    const std::string path = source.path.substr(1);
    const Resource* resource = findResource(path.substr(0, path.find('/')));
    if (difference.element.empty() || resource == nullptr) {
        const std::string display = text(source.parameters, "display");
        return display.empty() ? path : path + " of " + display;
    }
    std::string name = nameOfElement(*resource, difference.a.is_object() ? difference.a : difference.b);
    // A layer configuration is known by its display.
    for (const std::string& display : displays) {
        if (name.empty() && resource->idOf(display) && resource->idOf(display)->toString() == difference.element) name = display;
    }
    return std::string{resource->name} + "/" + (name.empty() ? difference.element : name);
}

std::string timeText(const std::optional<Point>& point) {
    if (!point) return "";
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f s", static_cast<double>(point->at.count()) / 1e9);
    return text.data();
}

std::string valueText(const Json& value) {
    return cutToWidth(value.is_null() ? "" : shortText(value), widestValue);
}

Json differenceAsJson(const Difference& difference, const std::vector<std::string>& displays, bool isWhole) {
    Json document{
        {"element", labelOf(difference, displays)}, {"service", difference.source.service}, {"path", difference.source.path}};
    if (!difference.source.parameters.is_null()) document["parameters"] = difference.source.parameters;
    if (!difference.element.empty()) document["id"] = difference.element;
    if (isWhole) {
        document["atA"] = difference.atA ? Json(difference.atA->at.count()) : Json(nullptr);
        document["atB"] = difference.atB ? Json(difference.atB->at.count()) : Json(nullptr);
    }
    if (difference.members.empty()) {
        document["a"] = difference.a;
        document["b"] = difference.b;
        return document;
    }
    document["members"] = Json::array();
    for (const MemberDifference& each : difference.members)
        document["members"].push_back({{"member", each.path}, {"a", each.a}, {"b", each.b}});
    return document;
}

void printTable(Context& context, const Comparison& comparison, const std::vector<Side>& sides, bool isWhole) {
    std::vector<Table::Column> columns{{"ELEMENT"}, {"MEMBER"}, {sides[0].name}, {sides[1].name}};
    if (isWhole) columns.insert(columns.end(), {{"AT", Align::right}, {"AT", Align::right}});
    Table table{std::move(columns)};
    const std::vector<std::string> displays = displayNames(sides);
    for (const Difference& difference : comparison.differences) {
        const auto add = [&](const std::string& member, const std::string& a, const std::string& b) {
            std::vector<Table::Cell> cells{{labelOf(difference, displays)}, {member}, {a}, {b}};
            if (isWhole)
                cells.insert(cells.end(), {{timeText(difference.atA), Style::dim}, {timeText(difference.atB), Style::dim}});
            table.addRow(std::move(cells));
        };
        for (const MemberDifference& each : difference.members) add(each.path, valueText(each.a), valueText(each.b));
        if (!difference.members.empty()) continue;
        const auto presence = [](const Json& state) {
            return state.is_object() ? "there" : state.is_null() ? "" : valueText(state);
        };
        add("", presence(difference.a), presence(difference.b));
    }
    if (table.rows() > 0) printLines(context.out, table.lines(context.out.colour()));
}

}  // namespace

ExitCode runDiff(Context& context) {
    Texts texts;
    const std::vector<Side> sides = readSides(context, context.arguments.words, texts);
    const Comparison comparison = compare(sides[0].history, sides[1].history, texts, context.arguments.strict);
    const bool isWhole = sides[0].isWhole && sides[1].isWhole;
    for (const Side& side : sides) {
        if (side.history.sources().empty()) {
            throw Failure{ExitCode::notFound, "diff: " + side.name + " says nothing", "nothing had been recorded by that time"};
        }
    }
    if (comparison.sources == 0) {
        throw Failure{ExitCode::usage, "diff: " + sides[0].name + " and " + sides[1].name + " have nothing in common to compare",
                      sides[0].isWorld || sides[1].isWorld
                          ? "a world file holds what the upstream services say; record with --upstream"
                          : "record the same resources in both"};
    }
    if (context.arguments.format == Format::table) {
        printTable(context, comparison, sides, isWhole);
    } else {
        Json differences = Json::array();
        for (const Difference& each : comparison.differences)
            differences.push_back(differenceAsJson(each, displayNames(sides), isWhole));
        if (context.arguments.format == Format::jsonl) {
            printDocument(context, differences);
        } else {
            printDocument(context, Json{{"a", sides[0].name},
                                        {"b", sides[1].name},
                                        {"sources", comparison.sources},
                                        {"elements", comparison.elements},
                                        {"skipped", comparison.skipped},
                                        {"onlyA", comparison.onlyA},
                                        {"onlyB", comparison.onlyB},
                                        {"differences", differences}});
        }
    }
    for (const auto& [side, lists] : {std::pair{&sides[0], &comparison.onlyA}, std::pair{&sides[1], &comparison.onlyB}}) {
        if (!lists->empty()) context.note("not compared, since only " + side->name + " has it: " + joined(*lists));
    }
    if (comparison.skipped > 0) {
        context.note(std::to_string(comparison.skipped) +
                     " states are in one of them only, between states of both; --strict counts them");
    }
    if (comparison.differences.empty()) {
        context.note("no differences in " + std::to_string(comparison.elements) + " elements of " +
                     std::to_string(comparison.sources) + " sources");
    }
    return comparison.differences.empty() ? ExitCode::ok : ExitCode::differences;
}

}  // namespace hmxctl
