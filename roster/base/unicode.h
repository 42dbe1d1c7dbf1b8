#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// Appends a code point as UTF-8. It must be a Unicode scalar value.
void appendUtf8(std::string& text, char32_t codePoint);

/// Appends big-endian UTF-16 bytes as UTF-8. False, with some of it appended, when they hold a lone
/// surrogate. The count of bytes must be even.
bool appendUtf8FromBigEndianUtf16(std::string& text, std::span<const std::byte> bytes);

/// Big-endian UTF-16 bytes of UTF-8 text, nothing when the text is not valid UTF-8.
std::optional<std::string> bigEndianUtf16FromUtf8(std::string_view text);

/// Decodes one code point at the front of the text, which must not be empty, and removes it from the view.
/// Nothing, with the view as it was, when the front is not valid UTF-8: overlong forms, surrogates and values
/// above U+10FFFF are not.
ROSTER_EXPORT std::optional<char32_t> takeCodePoint(std::string_view& text);

/// Whether no byte of the text is above 0x7F.
bool isAscii(std::string_view text);

}  // namespace roster
