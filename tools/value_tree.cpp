#include "tools/value_tree.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iostream>
#include <optional>

#include "roster/value/date.h"
#include "tools/json_writer.h"
#include "tools/terminal.h"

namespace roster::tool {

namespace {

constexpr std::size_t step = 2;
/// A longer key moves its own value, not those of its neighbours.
constexpr std::size_t widestAlignedKey = 28;

bool readsAsNumber(std::string_view text) {
  double number = 0;
  const char* end = text.data() + text.size();
  return std::from_chars(text.data(), end, number).ptr == end;
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
  constexpr std::size_t mostShown = 16;
  constexpr std::string_view symbols = "0123456789abcdef";
  std::string line = "<";
  for (const std::byte byte : bytes.first(std::min(bytes.size(), mostShown))) {
    line += symbols[std::to_integer<unsigned>(byte) >> 4U];
    line += symbols[std::to_integer<unsigned>(byte) & 15U];
  }
  if (bytes.size() > mostShown) line += "…";
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
      const nlohmann::ordered_json json = jsonFromValue(value);
      return json.is_number() ? json.dump() : json.front().get<std::string>();
    }
    case Value::Kind::array:
      if (value.array()->empty()) return "[]";
      return std::nullopt;
    case Value::Kind::dictionary:
      if (value.dictionary()->empty()) return "{}";
      return std::nullopt;
    default:
      return jsonFromValue(value).dump();
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

}  // namespace

void printTree(const Value& value) { TreePrinter().print(value, 0); }

}  // namespace roster::tool
