// Rows and columns for people: widths from the content, "-" for what is absent.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "text.h"

namespace hmxctl {

enum class Align : unsigned char { left, right };

// Thread: one at a time (a value).
class Table {
public:
    struct Column {
        std::string header;
        Align align = Align::left;
    };
    struct Cell {
        std::string text;  // shown through `printable`; "" is shown as "-"
        Style style = Style::plain;
    };

    explicit Table(std::vector<Column> columns) : columns_{std::move(columns)} {}

    void addRow(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
    std::size_t rows() const noexcept { return rows_.size(); }

    // The lines, the header first. No line ends in blanks.
    [[nodiscard]] std::vector<std::string> lines(bool colour) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

// "key  value" lines, values in one column. Thread: one at a time (a value).
class Facts {
public:
    void add(std::string key, std::string value, Style style = Style::plain) {
        facts_.emplace_back(std::move(key), Table::Cell{std::move(value), style});
    }
    [[nodiscard]] std::vector<std::string> lines(bool colour) const;

private:
    std::vector<std::pair<std::string, Table::Cell>> facts_;
};

}  // namespace hmxctl
