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

ordered_json jsonFromDictionary(const Dictionary& dictionary) {
  ordered_json object = jsonFromEntries(dictionary);
  for (const auto& [key, value] : object.items()) {
    if (isReservedKey(key)) return ordered_json{{std::string(dictionaryKey), std::move(object)}};
  }
  return object;
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

ordered_json jsonFromEntries(const Dictionary& dictionary) {
  // Not by assignment, which would search for the key each time: a dictionary's keys are distinct.
  ordered_json::object_t entries;
  entries.reserve(dictionary.size());
  for (const DictionaryEntry& entry : dictionary) {
    entries.push_back({entry.key.str(), jsonFromValue(entry.value)});
  }
  return entries;
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

ordered_json jsonFromValue(const Value& value) {
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
    case Value::Kind::array: {
      ordered_json elements = ordered_json::array();
      for (const Value& element : value.array().value_or(Array())) elements.push_back(jsonFromValue(element));
      return elements;
    }
    case Value::Kind::dictionary:
      return jsonFromDictionary(*value.dictionary());
    case Value::Kind::nil:
      break;
  }
  return nullptr;
}

nlohmann::ordered_json textOrNull(const String& text) {
  if (text.isNil()) return nullptr;
  return text.str();
}

}  // namespace roster::tool
