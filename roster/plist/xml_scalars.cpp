#include "roster/plist/xml_scalars.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <limits>

#include "roster/base/single_line.h"
#include "roster/value/date.h"

namespace roster {

namespace {

constexpr std::string_view spaces = " \t\n\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(spaces);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(spaces) + 1 - start);
}

std::string quoted(std::string_view text) {
  constexpr std::size_t shown = 40;
  std::string quote = "\"";
  appendSingleLine(quote, clipped(text, shown));
  return quote + "\"";
}

Error unreadable(std::string_view text, const std::string& what) {
  return Error(std::errc::bad_message, quoted(text) + " is not " + what);
}

Error outOfRange(std::string_view text, const std::string& what) {
  return Error(std::errc::bad_message, what + " out of range: " + quoted(text));
}

/// The values of the sixty-four digits, and what else may stand among them.
namespace base64 {
constexpr std::uint8_t space = 64;
constexpr std::uint8_t padding = 65;
constexpr std::uint8_t invalid = 66;

constexpr std::array<std::uint8_t, 256> meanings = [] {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::uint8_t, 256> table{};
  table.fill(invalid);
  for (std::size_t i = 0; i < digits.size(); ++i) {
    table[static_cast<unsigned char>(digits[i])] = static_cast<std::uint8_t>(i);
  }
  for (const char c : spaces) table[static_cast<unsigned char>(c)] = space;
  table['='] = padding;
  return table;
}();

/// Decodes in place and returns the count of bytes; nothing when the text is malformed.
std::optional<std::size_t> decode(std::string& text) {
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t paddings = 0;
  std::size_t written = 0;
  for (const char c : text) {
    const std::uint8_t meaning = meanings[static_cast<unsigned char>(c)];
    if (meaning == space) continue;
    if (meaning == padding) {
      ++paddings;
      continue;
    }
    if (meaning == invalid || paddings > 0) return std::nullopt;
    bits = (bits << 6U) | meaning;
    if (++digits % 4 != 0) continue;
    text[written++] = static_cast<char>((bits >> 16U) & 0xFFU);
    text[written++] = static_cast<char>((bits >> 8U) & 0xFFU);
    text[written++] = static_cast<char>(bits & 0xFFU);
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || paddings != (rest == 0 ? 0 : 4 - rest)) return std::nullopt;
  if (rest == 2) {
    text[written++] = static_cast<char>((bits >> 4U) & 0xFFU);
  } else if (rest == 3) {
    text[written++] = static_cast<char>((bits >> 10U) & 0xFFU);
    text[written++] = static_cast<char>((bits >> 2U) & 0xFFU);
  }
  return written;
}
}  // namespace base64

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
  const std::string_view digits = trimmed(text);
  const bool isPlain = digits.size() == length && digits.front() >= '0' && digits.front() <= '9';
  const std::optional<Date> date = isPlain ? dateFromText(digits) : std::nullopt;
  if (!date) return unreadable(text, "a date");
  return Value(*date);
}

Result<Value> dataFromXml(std::string& text) {
  const std::optional<std::size_t> size = base64::decode(text);
  if (!size) return Error(std::errc::bad_message, "data that is not base64");
  return Value::data(std::as_bytes(std::span(text).first(*size)));
}

}  // namespace roster
