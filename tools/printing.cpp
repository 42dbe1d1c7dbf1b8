#include "tools/printing.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <iostream>
#include <optional>
#include <span>
#include <system_error>

#include "roster/base/single_line.h"
#include "roster/value/date.h"
#include "tools/commands.h"
#include "tools/json.h"
#include "tools/json_writer.h"
#include "tools/output_pieces.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

/// Spaces between two columns.
constexpr std::size_t gap = 2;

constexpr std::size_t step = 2;
/// A longer key moves its own value, not those of its neighbours.
constexpr std::size_t widestAlignedKey = 28;

bool readsAsNumber(std::string_view text) {
  double ignored = 0;
  const char* end = text.data() + text.size();
  return std::from_chars(text.data(), end, ignored).ptr == end;
}

std::string textLine(std::string_view text) {
  constexpr std::string_view signs = "\"<[{";
  const bool isMistakable = text.empty() || text.front() == ' ' || text.back() == ' ' ||
                            signs.find(text.front()) != std::string_view::npos || text.starts_with("- ") ||
                            text == "true" || text == "false" || readsAsNumber(text) || dateFromText(text);
  const std::string line = singleLine(text);
  return isMistakable ? "\"" + line + "\"" : line;
}

std::string dataLine(std::span<const std::byte> bytes) {
  constexpr std::size_t maximumShown = 16;
  constexpr std::string_view symbols = "0123456789abcdef";
  std::string line = "<";
  for (const std::byte byte : bytes.first(std::min(bytes.size(), maximumShown))) {
    line += symbols[std::to_integer<unsigned>(byte) >> 4U];
    line += symbols[std::to_integer<unsigned>(byte) & 15U];
  }
  if (bytes.size() > maximumShown) line += "…";
  return line + "> " + std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte" : " bytes");
}

/// The value on one line; nothing for a container that holds something.
std::optional<std::string> oneLine(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::string:
      return textLine(value.string());
    case Value::Kind::data:
      return dataLine(*value.bytes());
    case Value::Kind::date:
      return dateText(*value.date());
    case Value::Kind::real: {
      const nlohmann::ordered_json json = jsonFromScalar(value);
      return json.is_number() ? json.dump() : json.front().get<std::string>();
    }
    case Value::Kind::array:
      if (value.array()->empty()) return "[]";
      return std::nullopt;
    case Value::Kind::dictionary:
      if (value.dictionary()->empty()) return "{}";
      return std::nullopt;
    default:
      return jsonFromScalar(value).dump();
  }
}

class TreePrinter {
 public:
  void print(const Value& value, std::size_t indent) {
    if (const std::optional<std::string> line = oneLine(value)) {
      begin(indent) << *line << '\n';
    } else if (value.isArray()) {
      printElements(*value.array(), indent);
    } else {
      printEntries(*value.dictionary(), indent);
    }
  }

 private:
  void printElements(const Array& array, std::size_t indent) {
    for (const Value& element : array) {
      ++openDashes_;
      print(element, indent + step);
    }
  }

  void printEntries(const Dictionary& dictionary, std::size_t indent) {
    std::size_t width = 0;
    for (const DictionaryEntry& entry : dictionary) {
      const std::size_t wide = displayWidth(singleLine(entry.key));
      if (wide <= widestAlignedKey && oneLine(entry.value)) width = std::max(width, wide);
    }
    for (const DictionaryEntry& entry : dictionary) {
      const std::string key = singleLine(entry.key);
      if (const std::optional<std::string> line = oneLine(entry.value)) {
        begin(indent) << emphasised(padded(key, width)) << "  " << *line << '\n';
      } else {
        begin(indent) << emphasised(key) << '\n';
        print(entry.value, indent + step);
      }
    }
  }

  /// Starts a line, with a dash for each array whose element it begins.
  std::ostream& begin(std::size_t indent) {
    std::cout << std::string(indent - step * openDashes_, ' ');
    for (; openDashes_ > 0; --openDashes_) std::cout << "- ";
    return std::cout;
  }

  std::size_t openDashes_ = 0;
};

/// On one line when the indent is negative.
void dumpJson(const nlohmann::ordered_json& document, int indent) {
  using nlohmann::ordered_json;
  std::cout << document.dump(indent, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace

Table::Table(std::initializer_list<std::string_view> header) : widths_(header.size()) { addRow(header); }

void Table::addRow(std::initializer_list<std::string_view> cells) {
  for (const std::string_view cell : cells) addCell(cell);
}

void Table::addRow(const Row& cells) {
  for (const std::string& cell : cells) addCell(cell);
}

void Table::addCell(std::string_view content) {
  const std::size_t begin = text_.size();
  appendSingleLine(text_, content);
  const std::size_t width = displayWidth(std::string_view(text_).substr(begin));
  std::size_t& widest = widths_[cells_.size() % widths_.size()];
  widest = std::max(widest, width);
  cells_.push_back({text_.size(), width});
}

void Table::appendLine(std::string& output, std::size_t firstCell) const {
  std::size_t begin = firstCell == 0 ? 0 : cells_[firstCell - 1].end;
  std::size_t spaces = 0;
  for (std::size_t column = 0; column < widths_.size(); ++column) {
    const Cell& cell = cells_[firstCell + column];
    output.append(spaces, ' ').append(text_, begin, cell.end - begin);
    spaces = widths_[column] - cell.width + gap;
    begin = cell.end;
  }
  output.erase(output.find_last_not_of(' ') + 1);
}

void Table::print() const {
  OutputPieces output(std::cout);
  std::string header;
  appendLine(header, 0);
  output.piece() += emphasised(header) + '\n';
  for (std::size_t cell = widths_.size(); cell < cells_.size(); cell += widths_.size()) {
    std::string& piece = output.piece();
    appendLine(piece, cell);
    piece += '\n';
  }
  output.flush();
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

void printTree(const Value& value) { TreePrinter().print(value, 0); }

void printJson(const nlohmann::ordered_json& document) { dumpJson(document, jsonIndent); }

void printJsonValue(const Value& value) {
  JsonWriter writer(std::cout);
  writer.writeValue(value);
  writer.endDocument();
}

void printJsonEntries(const Dictionary& dictionary) {
  JsonWriter writer(std::cout);
  writer.writeEntries(dictionary);
  writer.endDocument();
}

void printJsonLine(const nlohmann::ordered_json& document) { dumpJson(document, -1); }

void flushOutput() {
  errno = 0;
  if (std::cout.flush()) return;
  if (errno == 0) {
    // The write that failed was an earlier one, and what the system said of it is forgotten: one more tells.
    std::cout.clear();
    std::cout << '\n' << std::flush;
  }
  const int errorNumber = errno == 0 ? EIO : errno;
  throw CommandError("could not write to the standard output", std::generic_category().message(errorNumber));
}

}  // namespace roster::tool
