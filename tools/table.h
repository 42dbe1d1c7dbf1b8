#pragma once

#include <string>
#include <vector>

namespace roster::tool {

/// Rows of text in aligned columns, under a header.
class Table {
 public:
  using Row = std::vector<std::string>;
  explicit Table(Row header) : header_(std::move(header)) {}

  /// Takes as many cells as the header has; each is brought onto one line.
  void addRow(Row cells);
  /// Writes the table to the standard output.
  void print() const;

 private:
  Row header_;
  std::vector<Row> rows_;
};

/// The texts with ", " between them; `none` when there are none.
std::string joined(const std::vector<std::string>& texts, const std::string& none);

}  // namespace roster::tool
