// `list`: the elements of a resource. With -o json, a list that is one request is printed as it came. The list of all displays'
// popups is several requests, and is printed as one page.

#include "columns.h"
#include "hmx/client/elements.h"
#include "parameters.h"
#include "render.h"
#include "targets.h"
#include "verbs/verbs.h"

namespace hmxctl {
namespace {

std::vector<std::string> fieldsOf(const Json& parameters) {
    std::vector<std::string> fields;
    const Json& named = member(parameters, "fields");
    for (const Json& field : named.is_array() ? named : Json::array()) {
        if (field.is_string() && field != "id" && field != "name") fields.push_back(field.get<std::string>());
    }
    return fields;
}

// Says that there is more, where a page was cut.
void noteFurtherPages(Context& context, const Json& page) {
    const Json& next = member(page, "next");
    if (!next.is_object()) return;
    std::string hint;
    for (const auto& [key, value] : next.items()) hint += " " + key + "=" + shortText(value);
    context.note(std::to_string(elementsOf(page).size()) + " of " + compact(member(page, "total")) +
                 " elements; the next page:" + hint);
}

void printTable(Context& context, Elements& elements, const Resource& resource, std::vector<Json> rows, const Json& parameters) {
    if (resource.path == "/layerconfigurations") {
        // Their own name is empty; people know them by the display.
        for (Json& row : rows) {
            if (text(row, "name").empty()) row["name"] = context.wait(elements.nameOf(resource, row));
        }
    }
    printLines(context.out, elementLines(resource, rows, fieldsOf(parameters), context.out.colour()));
}

std::vector<Query> listQueries(Context& context, Elements& elements, const Resource& resource, const Json& parameters) {
    (void)context.wait(elements.service());
    if (!isListable(resource)) {
        throw usageError("the service shows " + std::string{resource.name} + " one by one only",
                         "get " + std::string{resource.name} + "/" + std::string{resource.nameForm} +
                             "; `hmxctl tree` shows the touch regions of all displays");
    }
    return context.wait(elements.listQueries(resource, parameters));
}

}  // namespace

ExitCode runList(Context& context) {
    const Target target = parseTarget(context.arguments.words.front(), "list");
    if (!target.element.empty()) throw usageError("list shows whole resources", "hmxctl get " + target.text());
    const Resource& resource = *target.resource;
    const Json parameters = retrieveParameters(context, resource);
    Elements elements{context.client, context.deadline};
    const Format format = context.arguments.format;

    const std::vector<Query> queries = listQueries(context, elements, resource, parameters);
    if (queries.size() == 1 || format == Format::raw) {
        for (const Query& query : queries) {
            const Answer answer = context.wait(context.wait(elements.service())->request(query, context.deadline));
            if (format != Format::table) {
                printAnswer(context, answer);
                continue;
            }
            const Json page = decode(answer.payload);
            printTable(context, elements, resource, elementsOf(page), parameters);
            noteFurtherPages(context, page);
        }
        return ExitCode::ok;
    }
    std::vector<Json> all = context.wait(elements.list(resource, parameters));
    if (format == Format::table) {
        printTable(context, elements, resource, std::move(all), parameters);
    } else {
        const std::size_t total = all.size();
        printDocument(context, Json{{"total", total}, {"totalPages", 1}, {"data", std::move(all)}});
    }
    return ExitCode::ok;
}

}  // namespace hmxctl
