#include "roster/value/value_description.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "roster/base/limits.h"
#include "roster/base/single_line.h"
#include "roster/value/date.h"

namespace roster {

namespace {

constexpr std::size_t shownBytes = 16;

/// Leaves a real recognisable as one: 2 is an integer, 2.0 is not.
std::string realText(double real) {
  std::array<char, 32> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real).ptr;
  std::string text(buffer.data(), end);
  if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
  return text;
}

std::string dataText(std::span<const std::byte> bytes) {
  constexpr std::string_view symbols = "0123456789abcdef";
  std::string text = "<" + std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte" : " bytes");
  if (!bytes.empty()) text += ' ';
  for (const std::byte byte : bytes.first(std::min(bytes.size(), shownBytes))) {
    text += symbols[std::to_integer<unsigned>(byte) >> 4U];
    text += symbols[std::to_integer<unsigned>(byte) & 0xFU];
  }
  if (bytes.size() > shownBytes) text += "…";
  return text + ">";
}

bool isPlainWord(std::string_view key) {
  const auto isWordCharacter = [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           c == '-' || c == '.' || c >= 0x80;
  };
  return !key.empty() && std::all_of(key.begin(), key.end(), isWordCharacter);
}

/// Every value it looks at adds to the text, and it stops when the text is long enough: that bounds the work,
/// also on trees that are cyclic or share their parts many times over.
class Describer {
 public:
  std::string describe(const Value& value) && {
    if (value.isString()) {
      addText(value.string());
    } else {
      add(value, 0);
    }
    return clipped(text_, limits::descriptionLength);
  }

 private:
  bool isFull() const { return text_.size() > limits::descriptionLength; }

  /// The part of a text that can still be seen; a character cut at its end lies beyond the limit.
  static std::string_view visible(std::string_view text) {
    return text.substr(0, limits::descriptionLength + sizeof(char32_t));
  }

  void addText(std::string_view text) { appendSingleLine(text_, visible(text)); }

  void addQuoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : visible(text)) {
      if (c == '"' || c == '\\') quoted += '\\';
      quoted += c;
    }
    appendSingleLine(text_, quoted + "\"");
  }

  void add(const Value& value, std::size_t depth) {
    switch (value.kind()) {
      case Value::Kind::nil:
        text_ += "(null)";
        break;
      case Value::Kind::boolean:
        text_ += *value.boolean() ? "true" : "false";
        break;
      case Value::Kind::integer:
        addInteger(value);
        break;
      case Value::Kind::real:
        text_ += realText(*value.real());
        break;
      case Value::Kind::date:
        text_ += rfc3339Text(*value.date());
        break;
      case Value::Kind::string:
        addQuoted(value.string());
        break;
      case Value::Kind::data:
        text_ += dataText(*value.bytes());
        break;
      case Value::Kind::array:
      case Value::Kind::dictionary:
        addContainer(value, depth);
        break;
    }
  }

  void addInteger(const Value& value) {
    const auto small = value.integer();
    text_ += small ? std::to_string(*small) : std::to_string(*value.unsignedInteger());
  }

  void addContainer(const Value& value, std::size_t depth) {
    if (depth >= limits::maximumDepth) {
      text_ += "…";
    } else if (value.isArray()) {
      addArray(*value.array(), depth);
    } else {
      addDictionary(*value.dictionary(), depth);
    }
  }

  void addArray(const Array& array, std::size_t depth) {
    std::string_view separator = "[";
    for (const Value& element : array) {
      if (isFull()) return;
      text_ += std::exchange(separator, ", ");
      add(element, depth + 1);
    }
    text_ += array.empty() ? "[]" : "]";
  }

  void addDictionary(const Dictionary& dictionary, std::size_t depth) {
    std::string_view separator = "{";
    for (const DictionaryEntry& entry : dictionary) {
      if (isFull()) return;
      text_ += std::exchange(separator, "; ");
      if (isPlainWord(visible(entry.key))) {
        addText(entry.key);
      } else {
        addQuoted(entry.key);
      }
      text_ += " = ";
      add(entry.value, depth + 1);
    }
    text_ += dictionary.empty() ? "{}" : "}";
  }

  std::string text_;
};

}  // namespace

std::string describe(const Value& value) { return Describer().describe(value); }

}  // namespace roster
