#include "tools/json_writer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <span>

#include "roster/value/date.h"

namespace roster::tool {

namespace {

using nlohmann::ordered_json;

std::string base64(std::span<const std::byte> bytes) {
  constexpr std::string_view symbols = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const auto byteAt = [&](std::size_t index) {
      return index < bytes.size() ? std::to_integer<unsigned>(bytes[index]) : 0U;
    };
    const unsigned group = (byteAt(at) << 16U) | (byteAt(at + 1) << 8U) | byteAt(at + 2);
    const std::size_t digits = std::min<std::size_t>(bytes.size() - at, 3) + 1;
    for (std::size_t digit = 0; digit < 4; ++digit) {
      text += digit < digits ? symbols[(group >> (18 - 6 * digit)) & 63U] : '=';
    }
  }
  return text;
}

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

/// With so many digits behind the point; empty when that is not the very same instant.
std::string textWithFraction(Date date, int digits) {
  const double whole = std::floor(date.secondsSinceReference);
  const double fraction = date.secondsSinceReference - whole;
  const std::string number = std::to_string(std::llround(fraction * std::pow(10, digits)));
  if (number.size() > static_cast<std::size_t>(digits)) return {};
  std::string text = rfc3339Text(Date{whole});
  text.pop_back();
  text += "." + std::string(static_cast<std::size_t>(digits) - number.size(), '0') + number + "Z";
  return dateFromText(text) == date ? text : std::string();
}

}  // namespace

bool isReservedKey(std::string_view key) {
  return key == dataKey || key == dateKey || key == realKey || key == dictionaryKey;
}

ordered_json jsonFromEntries(const Dictionary& dictionary) {
  // Not by assignment, which looks for an equal key each time: a dictionary has none.
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
      return special(dataKey, base64(*value.bytes()));
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
