#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "roster/base/bytes.h"
#include "roster/base/export.h"

namespace roster {

/// The bytes as base64: one line of upper- and lower-case letters, digits, "+" and "/", padded with "=" to a
/// multiple of four characters. May be called from any thread.
ROSTER_EXPORT std::string base64Text(std::span<const std::byte> bytes);

/// The bytes that a base64 text stands for. Spaces, tabs and line ends may stand anywhere in it. Nothing when
/// another character does, when the padding is not the one that belongs to the text, or when something
/// follows it. May be called from any thread.
ROSTER_EXPORT std::optional<Bytes> bytesFromBase64(std::string_view text);

}  // namespace roster
