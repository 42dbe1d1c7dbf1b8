#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// The instant in UTC as RFC 3339 writes it, "2024-02-29T12:00:00Z", rounded to milliseconds, which are
/// written only when there are any. Years outside 0000 to 9999 carry a sign. An instant that no calendar
/// reaches (not a number, infinite, or beyond 28,000 years) is "@" and its seconds since the reference date.
ROSTER_EXPORT std::string rfc3339Text(Date date);

/// Reads what `rfc3339Text` writes, with up to nine digits of a second's fraction. Nothing for any other
/// text, and for a day or a time that does not exist.
ROSTER_EXPORT std::optional<Date> dateFromText(std::string_view text);

}  // namespace roster
