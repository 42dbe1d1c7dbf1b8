#include "roster/base/unicode.h"

#include <cstring>

namespace roster {

namespace {

constexpr char32_t firstSurrogate = 0xD800;
constexpr char32_t firstLowSurrogate = 0xDC00;
constexpr char32_t behindSurrogates = 0xE000;
constexpr char32_t firstSupplementary = 0x10000;
constexpr char32_t lastCodePoint = 0x10FFFF;

void appendUnit(std::string& bytes, char32_t unit) {
  bytes.push_back(static_cast<char>(unit >> 8U));
  bytes.push_back(static_cast<char>(unit & 0xFFU));
}

}  // namespace

void appendUtf8(std::string& text, char32_t codePoint) {
  const auto continuation = [&](unsigned shift) {
    text.push_back(static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU)));
  };
  if (codePoint < 0x80) {
    text.push_back(static_cast<char>(codePoint));
  } else if (codePoint < 0x800) {
    text.push_back(static_cast<char>(0xC0U | (codePoint >> 6U)));
    continuation(0);
  } else if (codePoint < firstSupplementary) {
    text.push_back(static_cast<char>(0xE0U | (codePoint >> 12U)));
    continuation(6);
    continuation(0);
  } else {
    text.push_back(static_cast<char>(0xF0U | (codePoint >> 18U)));
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

bool appendUtf8FromBigEndianUtf16(std::string& text, std::span<const std::byte> bytes) {
  const auto unitAt = [&](std::size_t offset) {
    return (std::to_integer<char32_t>(bytes[offset]) << 8U) | std::to_integer<char32_t>(bytes[offset + 1]);
  };
  for (std::size_t offset = 0; offset + 1 < bytes.size(); offset += 2) {
    char32_t codePoint = unitAt(offset);
    if (codePoint >= firstSurrogate && codePoint < behindSurrogates) {
      if (codePoint >= firstLowSurrogate || offset + 3 >= bytes.size()) return false;
      const char32_t low = unitAt(offset + 2);
      if (low < firstLowSurrogate || low >= behindSurrogates) return false;
      codePoint = firstSupplementary + ((codePoint - firstSurrogate) << 10U) + (low - firstLowSurrogate);
      offset += 2;
    }
    appendUtf8(text, codePoint);
  }
  return true;
}

std::optional<char32_t> takeCodePoint(std::string_view& text) {
  const auto byteAt = [&](std::size_t offset) {
    return static_cast<char32_t>(static_cast<unsigned char>(text[offset]));
  };
  const char32_t lead = byteAt(0);
  std::size_t length = 1;
  char32_t codePoint = lead;
  char32_t smallest = 0;
  if (lead >= 0x80) {
    if ((lead & 0xE0U) == 0xC0U) {
      length = 2, codePoint = lead & 0x1FU, smallest = 0x80;
    } else if ((lead & 0xF0U) == 0xE0U) {
      length = 3, codePoint = lead & 0x0FU, smallest = 0x800;
    } else if ((lead & 0xF8U) == 0xF0U) {
      length = 4, codePoint = lead & 0x07U, smallest = firstSupplementary;
    } else {
      return std::nullopt;
    }
  }
  if (length > text.size()) return std::nullopt;
  for (std::size_t offset = 1; offset < length; ++offset) {
    if ((byteAt(offset) & 0xC0U) != 0x80U) return std::nullopt;
    codePoint = (codePoint << 6U) | (byteAt(offset) & 0x3FU);
  }
  const bool isSurrogate = codePoint >= firstSurrogate && codePoint < behindSurrogates;
  if (codePoint < smallest || codePoint > lastCodePoint || isSurrogate) return std::nullopt;
  text.remove_prefix(length);
  return codePoint;
}

std::optional<std::string> bigEndianUtf16FromUtf8(std::string_view text) {
  std::string bytes;
  bytes.reserve(2 * text.size());
  while (!text.empty()) {
    const std::optional<char32_t> codePoint = takeCodePoint(text);
    if (!codePoint) return std::nullopt;
    if (*codePoint < firstSupplementary) {
      appendUnit(bytes, *codePoint);
    } else {
      const char32_t offset = *codePoint - firstSupplementary;
      appendUnit(bytes, firstSurrogate + (offset >> 10U));
      appendUnit(bytes, firstLowSurrogate + (offset & 0x3FFU));
    }
  }
  return bytes;
}

bool isAscii(std::string_view text) {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  const auto wordAt = [&](std::size_t offset) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + offset, sizeof word);
    return word;
  };
  std::uint64_t seen = 0;
  if (text.size() < sizeof seen) {
    for (const char character : text) seen |= static_cast<unsigned char>(character);
    return (seen & 0x80U) == 0;
  }
  // The last word may overlap the one before it, so that no shorter remainder is left.
  const std::size_t last = text.size() - sizeof seen;
  for (std::size_t offset = 0; offset < last; offset += sizeof seen) seen |= wordAt(offset);
  return ((seen | wordAt(last)) & highBits) == 0;
}

}  // namespace roster
