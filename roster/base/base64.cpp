#include "roster/base/base64.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace roster {

namespace {

constexpr std::string_view symbols = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// What a character means: one of the sixty-four digits, or one of these.
constexpr std::uint8_t space = 64;
constexpr std::uint8_t padding = 65;
constexpr std::uint8_t invalid = 66;

constexpr std::array<std::uint8_t, 256> meanings = [] {
  std::array<std::uint8_t, 256> table{};
  table.fill(invalid);
  for (std::size_t digit = 0; digit < symbols.size(); ++digit) {
    table[static_cast<unsigned char>(symbols[digit])] = static_cast<std::uint8_t>(digit);
  }
  for (const char c : {' ', '\t', '\n', '\r'}) table[static_cast<unsigned char>(c)] = space;
  table['='] = padding;
  return table;
}();

}  // namespace

std::string base64Text(std::span<const std::byte> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t offset = 0; offset < bytes.size(); offset += 3) {
    const auto byteAt = [&](std::size_t index) {
      return index < bytes.size() ? std::to_integer<unsigned>(bytes[index]) : 0U;
    };
    const unsigned group = (byteAt(offset) << 16U) | (byteAt(offset + 1) << 8U) | byteAt(offset + 2);
    const std::size_t digits = std::min<std::size_t>(bytes.size() - offset, 3) + 1;
    for (std::size_t digit = 0; digit < 4; ++digit) {
      text += digit < digits ? symbols[(group >> (18 - 6 * digit)) & 63U] : '=';
    }
  }
  return text;
}

std::optional<Bytes> bytesFromBase64(std::string_view text) {
  Bytes bytes(text.size() / 4 * 3 + 3);
  std::byte* next = bytes.data();
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t paddings = 0;
  const auto append = [&](unsigned shift) { *next++ = static_cast<std::byte>(bits >> shift & 0xFFU); };
  for (const char c : text) {
    const std::uint8_t meaning = meanings[static_cast<unsigned char>(c)];
    if (meaning == space) continue;
    if (meaning == padding) {
      ++paddings;
      continue;
    }
    if (meaning == invalid || paddings > 0) return std::nullopt;
    bits = bits << 6U | meaning;
    if (++digits % 4 != 0) continue;
    for (const unsigned shift : {16U, 8U, 0U}) append(shift);
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || paddings != (rest == 0 ? 0 : 4 - rest)) return std::nullopt;
  if (rest == 2) append(4);
  if (rest == 3) {
    append(10);
    append(2);
  }
  bytes.shrinkTo(static_cast<std::size_t>(next - bytes.data()));
  return bytes;
}

}  // namespace roster
