#include "render.h"

#include <algorithm>

#include "columns.h"
#include "table.h"
#include "text.h"

namespace hmxctl {
namespace {

constexpr std::size_t widestCell = 60;

bool isScalar(const Json& value) {
    return !value.is_object() && !value.is_array();
}

// An object that fits into one row: nothing in it goes deeper than a size or a point.
bool isFlat(const Json& object) {
    return object.is_object() && std::all_of(object.begin(), object.end(), [](const Json& value) {
               if (isScalar(value)) return true;
               return std::all_of(value.begin(), value.end(), isScalar) && value.size() <= 4;
           });
}

bool isTable(const Json& value) {
    return value.is_array() && !value.empty() && std::all_of(value.begin(), value.end(), isFlat);
}

Style styleOf(const Json& value) {
    return value == true ? Style::green : Style::plain;
}

std::vector<std::string> tableLines(const Json& rows, bool colour) {
    std::vector<std::string> keys;
    for (const Json& row : rows) {
        for (const auto& [key, value] : row.items()) {
            if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
        }
    }
    std::vector<Table::Column> columns;
    for (const std::string& key : keys) {
        const bool numbers = std::all_of(rows.begin(), rows.end(), [&](const Json& row) {
            return member(row, key).is_number() || member(row, key).is_null();
        });
        std::string header = printable(key);
        std::transform(header.begin(), header.end(), header.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
        columns.push_back({std::move(header), numbers ? Align::right : Align::left});
    }
    Table table{std::move(columns)};
    for (const Json& row : rows) {
        std::vector<Table::Cell> cells;
        cells.reserve(keys.size());
        for (const std::string& key : keys) {
            cells.push_back({cutToWidth(shortText(member(row, key)), widestCell), styleOf(member(row, key))});
        }
        table.addRow(std::move(cells));
    }
    return table.lines(colour);
}

// Gathers scalars as facts, and arrays of flat objects to be shown as tables behind them.
struct Flattened {
    Facts facts;
    bool anyFact = false;
    std::vector<std::pair<std::string, const Json*>> tables;

    void add(const std::string& path, const Json& value) {
        if (isTable(value)) {
            tables.emplace_back(path, &value);
        } else if (value.is_object() && !value.empty() && (path.empty() || shortText(value).front() == '{')) {
            for (const auto& [key, inner] : value.items()) add(path.empty() ? key : path + "." + key, inner);
        } else if (value.is_array() && !std::all_of(value.begin(), value.end(), isScalar)) {
            for (std::size_t i = 0; i < value.size(); ++i) add(path + "[" + std::to_string(i) + "]", value[i]);
        } else {
            facts.add(path, shortText(value), styleOf(value));
            anyFact = true;
        }
    }
};

std::string shortestIds(const std::vector<Json>& elements, std::size_t& length) {
    constexpr std::size_t shortest = 8;
    std::vector<std::string> ids;
    ids.reserve(elements.size());
    for (const Json& element : elements) ids.push_back(text(element, "id"));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    length = shortest;
    for (std::size_t i = 1; i < ids.size(); ++i) {
        const auto apart = std::mismatch(ids[i - 1].begin(), ids[i - 1].end(), ids[i].begin(), ids[i].end());
        length = std::max(length, static_cast<std::size_t>(apart.second - ids[i].begin()) + 1);
    }
    return "UUID";
}

}  // namespace

std::vector<std::string> documentLines(const Json& document, bool colour) {
    if (isScalar(document) || document.empty()) return {document.is_null() ? "-" : printable(shortText(document))};
    // What is a list as a whole is shown as one, its rows' inner documents cut short; lists further in only if they fit.
    const auto isObject = [](const Json& row) { return row.is_object(); };
    if (document.is_array() && std::all_of(document.begin(), document.end(), isObject)) return tableLines(document, colour);
    Flattened flat;
    flat.add("", document);
    std::vector<std::string> lines = flat.anyFact ? flat.facts.lines(colour) : std::vector<std::string>{};
    for (const auto& [path, rows] : flat.tables) {
        if (!lines.empty()) lines.emplace_back();
        if (!path.empty()) lines.push_back(styled(printable(path), Style::bold, colour));
        for (std::string& line : tableLines(*rows, colour)) lines.push_back((path.empty() ? "" : "  ") + std::move(line));
    }
    return lines;
}

std::vector<std::string> elementLines(const Resource& resource, const std::vector<Json>& elements,
                                      const std::vector<std::string>& fields, bool colour) {
    std::vector<Table::Column> columns;
    if (fields.empty()) {
        for (const ResourceColumn& column : columnsOf(resource)) columns.push_back({std::string{column.header}, column.align});
    } else {
        columns.push_back({"NAME"});
        for (const std::string& field : fields) columns.push_back({printable(field)});
    }
    std::size_t idLength = 0;
    columns.push_back({shortestIds(elements, idLength)});
    Table table{std::move(columns)};
    for (const Json& element : elements) {
        std::vector<Table::Cell> cells;
        if (fields.empty()) {
            for (const ResourceColumn& column : columnsOf(resource)) cells.push_back(column.cell(element));
        } else {
            cells.push_back({text(element, "name")});
            for (const std::string& field : fields) cells.push_back({shortText(member(element, field))});
        }
        cells.push_back({text(element, "id").substr(0, idLength), Style::dim});
        table.addRow(std::move(cells));
    }
    return table.lines(colour);
}

void printLines(Output& out, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) out.line(line);
}

void printAnswer(Context& context, const Answer& answer) {
    Output& out = context.out;
    switch (context.arguments.format) {
        case Format::raw:
            out.write(answer.payload.text());
            return;
        case Format::json:
            out.line(jsonText(answer.payload));
            return;
        case Format::jsonl:
        case Format::table:
            if (answer.payload.empty() && context.arguments.format == Format::table) return;
            printDocument(context, decode(answer.payload));
            return;
    }
}

void printText(Context& context, const char* key, std::string_view text) {
    const Format format = context.arguments.format;
    if (format == Format::json || format == Format::jsonl) return printDocument(context, Json{{key, text}});
    context.out.write(text);
}

void printDocument(Context& context, const Json& document) {
    Output& out = context.out;
    if (context.arguments.format == Format::table) return printLines(out, documentLines(document, out.colour()));
    const Json& data = member(document, "data");
    const Json& lines = document.is_array() ? document : data;
    if (context.arguments.format == Format::jsonl && lines.is_array()) {
        for (const Json& line : lines) out.line(compact(line));
    } else {
        out.line(compact(document));
    }
}

}  // namespace hmxctl
