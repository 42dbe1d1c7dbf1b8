#include "roster/base/single_line.h"

#include "roster/base/unicode.h"

namespace roster {

namespace {

constexpr std::string_view ellipsis = "…";

bool breaksLine(char32_t codePoint) {
  const bool isControl = codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
  return isControl || codePoint == 0x2028 || codePoint == 0x2029;
}

void appendHex(std::string& line, std::string_view prefix, char32_t number, unsigned digits) {
  constexpr std::string_view symbols = "0123456789ABCDEF";
  line += prefix;
  while (digits-- > 0) line.push_back(symbols[(number >> (4 * digits)) & 0xFU]);
}

void appendEscaped(std::string& line, char32_t codePoint) {
  switch (codePoint) {
    case U'\n':
      line += "\\n";
      break;
    case U'\r':
      line += "\\r";
      break;
    case U'\t':
      line += "\\t";
      break;
    default:
      appendHex(line, "\\u", codePoint, 4);
  }
}

}  // namespace

void appendSingleLine(std::string& line, std::string_view text) {
  while (!text.empty()) {
    const std::size_t plain = plainRun(text);
    line += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) return;
    const std::string_view before = text;
    const std::optional<char32_t> codePoint = takeCodePoint(text);
    if (!codePoint) {
      appendHex(line, "\\x", static_cast<unsigned char>(text.front()), 2);
      text.remove_prefix(1);
    } else if (breaksLine(*codePoint)) {
      appendEscaped(line, *codePoint);
    } else {
      line += before.substr(0, before.size() - text.size());
    }
  }
}

std::string_view frontOf(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  constexpr std::size_t longestCharacter = 4;
  std::size_t end = limit;
  const auto isInsideCharacter = [&] { return (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; };
  while (end > 0 && limit - end < longestCharacter && isInsideCharacter()) --end;
  return text.substr(0, end);
}

std::string clipped(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  return std::string(frontOf(text, limit)).append(ellipsis);
}

std::string quoted(std::string_view text, std::size_t limit) {
  std::string quote = "\"";
  appendSingleLine(quote, clipped(text, limit));
  return quote + "\"";
}

}  // namespace roster
