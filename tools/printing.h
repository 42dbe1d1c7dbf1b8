#pragma once

#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "roster/value/value.h"

namespace roster::tool {

// What the commands write to the standard output.

/// Rows of text in aligned columns, under a header. All of it is kept until it is printed, since the last row
/// may be the widest: as one text, and for each cell where it ends there and how wide it is.
class Table {
 public:
  using Row = std::vector<std::string>;
  explicit Table(std::initializer_list<std::string_view> header);

  /// Adds a row with as many cells as the header; each is put on one line.
  void addRow(std::initializer_list<std::string_view> cells);
  void addRow(const Row& cells);
  /// Writes the table to the standard output.
  void print() const;

 private:
  struct Cell {
    std::size_t end = 0;
    std::size_t width = 0;
  };

  void addCell(std::string_view content);
  void appendLine(std::string& output, std::size_t firstCell) const;

  /// Of the columns.
  std::vector<std::size_t> widths_;
  std::string text_;
  /// Row after row; the header is the first.
  std::vector<Cell> cells_;
};

/// The texts, separated by ", "; `none` when there are none.
std::string joined(const std::vector<std::string>& texts, const std::string& none);

/// Writes a value, no part of which may be faulty, to the standard output as a tree for people: a line for
/// each property or element, with its contents indented below. A text has quotes only when it could be
/// mistaken for a value of another kind.
void printTree(const Value& value);

/// Writes one JSON document to the standard output.
void printJson(const nlohmann::ordered_json& document);
/// Writes a value, no part of which may be faulty, as one JSON document in the notation of tools/json.h.
void printJsonValue(const Value& value);
/// The same for a dictionary whose keys mean themselves.
void printJsonEntries(const Dictionary& dictionary);
/// Writes one JSON document to the standard output, on one line.
void printJsonLine(const nlohmann::ordered_json& document);

/// Flushes the standard output; throws CommandError when it cannot be written.
void flushOutput();

}  // namespace roster::tool
