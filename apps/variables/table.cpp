#include "apps/variables/table.h"

#include "apps/variables/style.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::size_t LINE_BYTES = 256; // of most lines

std::size_t width(const std::string& cell) {
    return static_cast<std::size_t>(std::count_if(
        cell.begin(), cell.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string joined(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths,
                   bool isHeading) {
    std::string line;
    line.reserve(LINE_BYTES);
    for (std::size_t column = 0; column < cells.size(); ++column) {
        const bool isStyled = isHeading || column == 0;
        if (isStyled)
            line += styled(isHeading ? Style::Bold : Style::Cyan, cells[column]);
        else
            line += cells[column];
        if (column + 1 < cells.size())
            line.append(widths[column] - width(cells[column]) + 2, ' ');
    }
    return line;
}

} // namespace

void Table::print() const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            widths[column] = std::max(widths[column], width(row[column]));
    }
    for (std::size_t row = 0; row < rows_.size(); ++row)
        std::puts(joined(rows_[row], widths, row == 0).c_str());
}
