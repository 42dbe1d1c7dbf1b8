#include "tools/json_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

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

std::string dumped(const ordered_json& literal) {
  return literal.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

/// Whether the text stands for itself between quotation marks.
bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char character) {
    return character >= ' ' && character <= '~' && character != '"' && character != '\\';
  });
}

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

void JsonWriter::beginElement() {
  if (!isFirst_) output_.piece() += ',';
  isFirst_ = false;
  breakLine();
}

void JsonWriter::beginEntry(std::string_view key) {
  beginElement();
  writeText(key);
  output_.piece() += ": ";
}

void JsonWriter::writeText(std::string_view text) {
  std::string& piece = output_.piece();
  if (isPlain(text)) {
    ((piece += '"') += text) += '"';
  } else {
    piece += dumped(text);
  }
}

void JsonWriter::writeTextOrNull(const String& text) { text.isNil() ? writeNull() : writeText(text); }

void JsonWriter::writeNull() { output_.piece() += "null"; }

void JsonWriter::writeValue(const Value& value) {
  if (const std::optional<Array> array = value.array()) {
    writeElements(*array);
  } else if (const std::optional<Dictionary> dictionary = value.dictionary()) {
    writeDictionary(*dictionary);
  } else if (const String text = value.string()) {
    writeText(text);
  } else {
    writeScalar(value);
  }
}

void JsonWriter::writeEntries(const Dictionary& entries) {
  beginObject();
  for (const DictionaryEntry& entry : entries) {
    beginEntry(entry.key);
    writeValue(entry.value);
  }
  endObject();
}

void JsonWriter::writeElements(const Array& array) {
  beginArray();
  for (const Value& element : array) {
    beginElement();
    writeValue(element);
  }
  endArray();
}

void JsonWriter::writeDictionary(const Dictionary& dictionary) {
  if (!hasReservedKey(dictionary)) return writeEntries(dictionary);
  beginObject();
  beginEntry(dictionaryKey);
  writeEntries(dictionary);
  endObject();
}

/// The scalar becomes a literal, or an object with one reserved key and a text.
void JsonWriter::writeScalar(const Value& value) {
  const ordered_json scalar = jsonFromScalar(value);
  if (!scalar.is_object()) {
    output_.piece() += dumped(scalar);
    return;
  }
  beginObject();
  for (const auto& [key, text] : scalar.items()) {
    beginEntry(key);
    output_.piece() += dumped(text);
  }
  endObject();
}

void JsonWriter::endDocument() {
  output_.piece() += '\n';
  output_.flush();
}

void JsonWriter::begin(char bracket) {
  output_.piece() += bracket;
  ++depth_;
  isFirst_ = true;
}

void JsonWriter::end(char bracket) {
  --depth_;
  if (!isFirst_) breakLine();
  output_.piece() += bracket;
  isFirst_ = false;
}

void JsonWriter::breakLine() { (output_.piece() += '\n').append(depth_ * jsonIndent, ' '); }

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
