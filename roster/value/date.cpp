#include "roster/value/date.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace roster {

namespace {

using Instant = std::chrono::system_clock::time_point;
using std::chrono::days;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr sys_days referenceDay = std::chrono::year(2001) / std::chrono::January / 1;

/// Inside what the calendar can count with, and exact to the millisecond in a double.
constexpr double calendarReach = 9.0e11;

constexpr int maximumYear = 32767;

void appendPadded(std::string& text, std::int64_t number, std::size_t width) {
  const std::string digits = std::to_string(number);
  text.append(width - std::min(width, digits.size()), '0');
  text += digits;
}

std::string secondsText(Date date) {
  std::array<char, 32> buffer{};
  const auto end =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), date.secondsSinceReference).ptr;
  return "@" + std::string(buffer.data(), end);
}

std::optional<Date> dateFromSeconds(std::string_view text) {
  Date date;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, date.secondsSinceReference);
  if (error != std::errc() || stop != end) return std::nullopt;
  return date;
}

/// Takes a text apart from its front. After the first thing that is not there, everything fails.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool isAtEnd() const { return !failed_ && text_.empty(); }

  bool takeIf(char expected) {
    if (failed_ || !text_.starts_with(expected)) return false;
    text_.remove_prefix(1);
    return true;
  }

  void expect(char expected) { failed_ = !takeIf(expected); }

  int number(std::size_t minimumDigits, std::size_t maximumDigits) {
    std::size_t count = 0;
    int value = 0;
    for (; count < std::min(maximumDigits, text_.size()); ++count) {
      if (text_[count] < '0' || text_[count] > '9') break;
      value = 10 * value + (text_[count] - '0');
    }
    if (count < minimumDigits) failed_ = true;
    text_.remove_prefix(count);
    lastCount_ = count;
    return value;
  }

  /// What comes behind the point of a decimal fraction.
  double fraction() {
    const int digits = number(1, 9);
    return digits / std::pow(10.0, static_cast<double>(lastCount_));
  }

  int year() {
    const bool isNegative = takeIf('-');
    const bool hasSign = isNegative || takeIf('+');
    const int value = number(4, hasSign ? 5 : 4);
    if (value > maximumYear) failed_ = true;
    return isNegative ? -value : value;
  }

 private:
  std::string_view text_;
  std::size_t lastCount_ = 0;
  bool failed_ = false;
};

}  // namespace

Date Date::fromTimePoint(Instant instant) {
  // Whole seconds and the rest are exact each for itself, so that only their sum is rounded.
  const auto whole = std::chrono::floor<seconds>(instant);
  const std::chrono::duration<double> rest = instant - whole;
  return {static_cast<double>((whole - referenceDay).count()) + rest.count()};
}

std::optional<Instant> Date::timePoint() const {
  constexpr auto first = std::chrono::ceil<seconds>(Instant::min()) - referenceDay;
  constexpr auto last = std::chrono::floor<seconds>(Instant::max()) - referenceDay;
  const double whole = std::floor(secondsSinceReference);
  const bool isInReach =
      whole >= static_cast<double>(first.count()) && whole < static_cast<double>(last.count());
  if (!isInReach) return std::nullopt;
  const std::chrono::duration<double> rest(secondsSinceReference - whole);
  return Instant(referenceDay + seconds(static_cast<std::int64_t>(whole))) +
         std::chrono::round<Instant::duration>(rest);
}

std::string rfc3339Text(Date date) {
  if (!(std::abs(date.secondsSinceReference) < calendarReach)) return secondsText(date);
  const auto instant = referenceDay + milliseconds(std::llround(date.secondsSinceReference * 1000));
  const auto day = std::chrono::floor<days>(instant);
  const year_month_day calendar(day);
  const std::chrono::hh_mm_ss time(instant - day);
  const int year = static_cast<int>(calendar.year());

  std::string text;
  if (year < 0) text = "-";
  if (year > 9999) text = "+";
  appendPadded(text, std::abs(year), 4);
  text += '-';
  appendPadded(text, static_cast<unsigned>(calendar.month()), 2);
  text += '-';
  appendPadded(text, static_cast<unsigned>(calendar.day()), 2);
  text += 'T';
  appendPadded(text, time.hours().count(), 2);
  text += ':';
  appendPadded(text, time.minutes().count(), 2);
  text += ':';
  appendPadded(text, time.seconds().count(), 2);
  if (time.subseconds().count() != 0) {
    text += '.';
    appendPadded(text, time.subseconds().count(), 3);
  }
  return text + "Z";
}

std::optional<Date> dateFromText(std::string_view text) {
  if (text.starts_with('@')) return dateFromSeconds(text.substr(1));
  Reader reader(text);
  const int year = reader.year();
  reader.expect('-');
  const int month = reader.number(2, 2);
  reader.expect('-');
  const int dayOfMonth = reader.number(2, 2);
  reader.expect('T');
  const int hour = reader.number(2, 2);
  reader.expect(':');
  const int minute = reader.number(2, 2);
  reader.expect(':');
  const int second = reader.number(2, 2);
  const double fraction = reader.takeIf('.') ? reader.fraction() : 0;
  reader.expect('Z');
  const year_month_day calendar(std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                std::chrono::day(static_cast<unsigned>(dayOfMonth)));
  if (!reader.isAtEnd() || !calendar.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const seconds whole = (sys_days(calendar) - referenceDay) + std::chrono::hours(hour) +
                        std::chrono::minutes(minute) + seconds(second);
  return Date{static_cast<double>(whole.count()) + fraction};
}

}  // namespace roster
