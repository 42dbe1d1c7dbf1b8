#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "roster/base/export.h"

namespace roster {

/// An instant: seconds since 2001-01-01 00:00:00 UTC, negative before it, with fractions.
struct Date {
  /// May be anything that a double holds, also infinite or not a number when it was read from a file.
  double secondsSinceReference = 0;

  /// The date nearest to an instant of the system's clock. Near the present it is exact to 0.1 microseconds.
  ROSTER_EXPORT static Date fromTimePoint(std::chrono::system_clock::time_point instant);
  /// The instant of the system's clock nearest to the date; nothing when the clock does not reach it, which
  /// for a clock that counts nanoseconds is before 1677 and after 2262.
  ROSTER_EXPORT std::optional<std::chrono::system_clock::time_point> timePoint() const;

  /// Equality of the seconds; what is not a number equals nothing.
  friend bool operator==(Date, Date) = default;
};

/// The instant in UTC as RFC 3339 writes it, "2024-02-29T12:00:00Z", rounded to milliseconds, which are
/// written only when there are any. Years outside 0000 to 9999 carry a sign. An instant that no calendar
/// reaches (not a number, infinite, or beyond 28,000 years) is "@" and its seconds since the reference date.
ROSTER_EXPORT std::string rfc3339Text(Date date);

/// Reads what `rfc3339Text` writes, with up to nine digits of a second's fraction. Nothing for any other
/// text, and for a day or a time that does not exist.
ROSTER_EXPORT std::optional<Date> dateFromText(std::string_view text);

}  // namespace roster
