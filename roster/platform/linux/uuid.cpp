#include <array>
#include <cstdint>

#include "roster/platform/device.h"
#include "roster/platform/linux/system_calls.h"

namespace roster {

std::optional<std::string> createUuidText() {
  std::array<std::uint8_t, 16> bytes{};
  if (!drawRandomBytes(std::as_writable_bytes(std::span(bytes)))) return std::nullopt;

  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);  // version 4, random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);  // the variant that has versions

  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += digits[bytes[i] >> 4U];
    text += digits[bytes[i] & 0x0FU];
  }
  return text;
}

}  // namespace roster
