#include "table.h"

#include <algorithm>

namespace hmxctl {
namespace {

constexpr std::string_view gap = "  ";

std::string shown(const std::string& text) {
    return text.empty() ? "-" : printable(text);
}

void trimRight(std::string& line) {
    while (!line.empty() && line.back() == ' ') line.pop_back();
}

}  // namespace

std::vector<std::string> Table::lines(bool colour) const {
    std::vector<std::size_t> widths;
    for (const Column& column : columns_) widths.push_back(displayWidth(column.header));
    std::vector<std::vector<Cell>> rows;
    for (const std::vector<Cell>& row : rows_) {
        std::vector<Cell>& cells = rows.emplace_back();
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            cells.push_back(i < row.size() ? row[i] : Cell{});
            cells[i].style = cells[i].text.empty() ? Style::dim : cells[i].style;
            cells[i].text = shown(cells[i].text);
            widths[i] = std::max(widths[i], displayWidth(cells[i].text));
        }
    }
    std::vector<std::string> lines;
    const auto addLine = [&](const auto& cellAt) {
        std::string line;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const Cell cell = cellAt(i);
            const std::string blanks(widths[i] - displayWidth(cell.text), ' ');
            if (i > 0) line += gap;
            if (columns_[i].align == Align::right) line += blanks;
            line += styled(cell.text, cell.style, colour);
            if (columns_[i].align == Align::left) line += blanks;
        }
        trimRight(line);
        lines.push_back(std::move(line));
    };
    addLine([&](std::size_t i) { return Cell{columns_[i].header, Style::bold}; });
    for (const std::vector<Cell>& row : rows) addLine([&](std::size_t i) { return row[i]; });
    return lines;
}

std::vector<std::string> Facts::lines(bool colour) const {
    std::size_t width = 0;
    for (const auto& [key, value] : facts_) width = std::max(width, displayWidth(printable(key)));
    std::vector<std::string> lines;
    for (const auto& [key, value] : facts_) {
        const std::string label = printable(key);
        std::string line = styled(label, Style::bold, colour) + std::string(width - displayWidth(label), ' ');
        line += gap;
        line += styled(shown(value.text), value.text.empty() ? Style::dim : value.style, colour);
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace hmxctl
