#include "tools/table.h"

#include <algorithm>
#include <iostream>

#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr std::string_view gap = "  ";

std::string line(const Table::Row& cells, const std::vector<std::size_t>& widths) {
  std::string text;
  for (std::size_t column = 0; column < cells.size(); ++column) {
    if (column > 0) text += gap;
    text += padded(cells[column], widths[column]);
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

void Table::addRow(Row cells) {
  for (std::string& cell : cells) cell = singleLine(cell);
  rows_.push_back(std::move(cells));
}

void Table::print() const {
  std::vector<std::size_t> widths(header_.size());
  const auto widen = [&widths](const Row& row) {
    for (std::size_t column = 0; column < widths.size(); ++column) {
      widths[column] = std::max(widths[column], displayWidth(row.at(column)));
    }
  };
  widen(header_);
  for (const Row& row : rows_) widen(row);
  std::cout << emphasised(line(header_, widths)) << '\n';
  for (const Row& row : rows_) std::cout << line(row, widths) << '\n';
}

std::string joined(const std::vector<std::string>& texts, const std::string& none) {
  if (texts.empty()) return none;
  std::string all;
  for (const std::string& text : texts) {
    if (!all.empty()) all += ", ";
    all += text;
  }
  return all;
}

}  // namespace roster::tool
