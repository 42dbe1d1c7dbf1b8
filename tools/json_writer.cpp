#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <ostream>

#include "roster/base/base64.h"
#include "roster/value/date.h"
#include "tools/json.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

ordered_json special(std::string_view key, std::string text) {
  return ordered_json{{std::string(key), std::move(text)}};
}

ordered_json jsonFromReal(double real) {
  if (std::isnan(real)) return special(realKey, "nan");
  if (std::isinf(real)) return special(realKey, real > 0 ? "inf" : "-inf");
  return real;
}

bool hasReservedKey(const Dictionary& dictionary) {
  return std::any_of(dictionary.begin(), dictionary.end(),
                     [](const DictionaryEntry& entry) { return isReservedKey(entry.key); });
}

/// Writes a document as it walks through the value. A small file can refer to one long text so often that the
/// whole document would not fit into memory.
class DocumentWriter {
 public:
  explicit DocumentWriter(std::ostream& output) : output_(output) {}

  void writeValue(const Value& value) {
    if (const std::optional<Array> array = value.array()) {
      writeElements(*array);
    } else if (const std::optional<Dictionary> dictionary = value.dictionary()) {
      writeDictionary(*dictionary);
    } else {
      writeScalar(jsonFromScalar(value));
    }
  }

  void writeEntries(const Dictionary& entries) {
    begin('{');
    for (const DictionaryEntry& entry : entries) {
      beginEntry(entry.key);
      writeValue(entry.value);
    }
    end('}');
  }

 private:
  void writeElements(const Array& array) {
    begin('[');
    for (const Value& element : array) {
      beginItem();
      writeValue(element);
    }
    end(']');
  }

  void writeDictionary(const Dictionary& dictionary) {
    if (!hasReservedKey(dictionary)) return writeEntries(dictionary);
    begin('{');
    beginEntry(dictionaryKey);
    writeEntries(dictionary);
    end('}');
  }

  /// The scalar is a literal, or an object with one reserved key and a text.
  void writeScalar(const ordered_json& scalar) {
    if (!scalar.is_object()) return writeLiteral(scalar);
    begin('{');
    for (const auto& [key, text] : scalar.items()) {
      beginEntry(key);
      writeLiteral(text);
    }
    end('}');
  }

  void writeLiteral(const ordered_json& literal) {
    output_ << literal.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }

  void begin(char bracket) {
    output_ << bracket;
    ++depth_;
    isFirst_ = true;
  }

  void beginItem() {
    if (!isFirst_) output_ << ',';
    isFirst_ = false;
    breakLine();
  }

  void beginEntry(std::string_view key) {
    beginItem();
    writeLiteral(key);
    output_ << ": ";
  }

  void end(char bracket) {
    --depth_;
    if (!isFirst_) breakLine();
    output_ << bracket;
    isFirst_ = false;
  }

  void breakLine() { output_ << '\n' << std::string(depth_ * jsonIndent, ' '); }

  std::ostream& output_;
  std::size_t depth_ = 0;
  /// Whether the container that was begun last has no item yet.
  bool isFirst_ = true;
};

/// The instant with this many digits behind the point; empty when they do not read back as the same instant.
std::string textWithFraction(Date date, int digits) {
  const double whole = std::floor(date.secondsSinceReference);
  const double fraction = date.secondsSinceReference - whole;
  const std::string fractionDigits = std::to_string(std::llround(fraction * std::pow(10, digits)));
  if (fractionDigits.size() > static_cast<std::size_t>(digits)) return {};
  std::string text = rfc3339Text(Date{whole});
  text.pop_back();
  text +=
      "." + std::string(static_cast<std::size_t>(digits) - fractionDigits.size(), '0') + fractionDigits + "Z";
  return dateFromText(text) == date ? text : std::string();
}

}  // namespace

bool isReservedKey(std::string_view key) {
  return key == dataKey || key == dateKey || key == realKey || key == dictionaryKey;
}

void writeJson(std::ostream& output, const Value& value) { DocumentWriter(output).writeValue(value); }

void writeJsonEntries(std::ostream& output, const Dictionary& dictionary) {
  DocumentWriter(output).writeEntries(dictionary);
}

std::string dateText(Date date) {
  std::string text = rfc3339Text(date);
  if (text.starts_with('@') || dateFromText(text) == date) return text;
  for (const int digits : {6, 9}) {
    text = textWithFraction(date, digits);
    if (!text.empty()) return text;
  }
  std::array<char, 32> seconds{};
  const auto written =
      std::to_chars(seconds.data(), seconds.data() + seconds.size(), date.secondsSinceReference);
  return "@" + std::string(seconds.data(), written.ptr);
}

ordered_json jsonFromScalar(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return *value.boolean();
    case Value::Kind::integer:
      if (const auto integer = value.integer()) return *integer;
      return *value.unsignedInteger();
    case Value::Kind::real:
      return jsonFromReal(*value.real());
    case Value::Kind::date:
      return special(dateKey, dateText(*value.date()));
    case Value::Kind::string:
      return value.string().str();
    case Value::Kind::data:
      return special(dataKey, base64Text(*value.bytes()));
    default:
      return nullptr;
  }
}

nlohmann::ordered_json textOrNull(const String& text) {
  if (text.isNil()) return nullptr;
  return text.str();
}

}  // namespace roster::tool
