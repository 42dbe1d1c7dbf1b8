#include <charconv>
#include <cstdint>
#include <limits>

#include "roster/base/base64.h"
#include "roster/base/single_line.h"
#include "roster/plist/xml_property_list.h"
#include "roster/value/date.h"

namespace roster {

namespace {

constexpr std::string_view spaces = " \t\n\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(spaces);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(spaces) + 1 - start);
}

constexpr std::size_t shownText = 40;

Error unreadable(std::string_view text, const std::string& what) {
  return {std::errc::bad_message, quoted(text, shownText) + " is not " + what};
}

Error outOfRange(std::string_view text, const std::string& what) {
  return {std::errc::bad_message, what + " out of range: " + quoted(text, shownText)};
}

}  // namespace

bool isXmlSpace(std::string_view text) { return text.find_first_not_of(spaces) == std::string_view::npos; }

Result<Value> integerFromXml(std::string_view text) {
  std::string_view digits = trimmed(text);
  const bool isNegative = digits.starts_with('-');
  if (isNegative || digits.starts_with('+')) digits.remove_prefix(1);
  const bool isHexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
  if (isHexadecimal) digits.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, isHexadecimal ? 16 : 10);
  if (error == std::errc::invalid_argument || stop != end) return unreadable(text, "an integer");
  constexpr std::uint64_t lowest = std::uint64_t{1} << 63U;
  if (error != std::errc() || (isNegative && magnitude > lowest)) return outOfRange(text, "an integer");
  if (!isNegative) return Value(magnitude);
  return Value(static_cast<std::int64_t>(std::uint64_t{0} - magnitude));
}

Result<Value> realFromXml(std::string_view text) {
  std::string_view digits = trimmed(text);
  if (digits.starts_with('+')) {
    digits.remove_prefix(1);
    if (digits.starts_with('-')) return unreadable(text, "a real number");
  }
  double real = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, real);
  if (error == std::errc::invalid_argument || stop != end) return unreadable(text, "a real number");
  if (error != std::errc()) return outOfRange(text, "a real number");
  return Value(real);
}

Result<Value> dateFromXml(std::string_view text) {
  constexpr std::size_t length = std::string_view("YYYY-MM-DDThh:mm:ssZ").size();
  constexpr std::size_t shortest = std::string_view("Y-MM-DDThh:mm:ssZ").size();
  const std::string_view digits = trimmed(text);
  const bool isPlain =
      digits.size() >= shortest && digits.size() <= length && digits.front() >= '0' && digits.front() <= '9';
  const std::string padding(isPlain ? length - digits.size() : 0, '0');
  const std::optional<Date> date = isPlain ? dateFromText(padding + std::string(digits)) : std::nullopt;
  if (!date) return unreadable(text, "a date");
  return Value(*date);
}

Result<Value> dataFromXml(std::string_view text) {
  const std::optional<Bytes> data = bytesFromBase64(text);
  if (!data) return Error(std::errc::bad_message, "data that is not base64");
  return Value::data(data->span());
}

}  // namespace roster
