#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "roster/value/value.h"

namespace roster::tool {

// What the commands write to the standard output.

/// Rows of text in aligned columns, under a header.
class Table {
 public:
  using Row = std::vector<std::string>;
  explicit Table(Row header) : header_(std::move(header)) {}

  /// Adds a row with as many cells as the header; each is put on one line.
  void addRow(Row cells);
  /// Writes the table to the standard output.
  void print() const;

 private:
  Row header_;
  std::vector<Row> rows_;
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
