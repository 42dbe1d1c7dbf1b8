#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "roster/value/value.h"

namespace roster::tool {

// JSON has fewer kinds of values than a property list. The others are objects with one reserved key:
//
//   {"$data": "AAEC"}                      bytes in base64
//   {"$date": "2024-02-29T12:00:00Z"}      an instant in UTC, RFC 3339 (`dateText` tells the rest)
//   {"$real": "nan"}                       "nan", "inf" or "-inf"; all other reals are numbers with a point
//   {"$dictionary": {"$data": "x"}}        a dictionary that itself has one of these keys
//
// What is written so is read back as it was, in value and in type.

inline constexpr std::string_view dataKey = "$data";
inline constexpr std::string_view dateKey = "$date";
inline constexpr std::string_view realKey = "$real";
inline constexpr std::string_view dictionaryKey = "$dictionary";

bool isReservedKey(std::string_view key);

/// The value, which must be sound to its leaves, in this notation.
nlohmann::ordered_json jsonFromValue(const Value& value);

/// An object with exactly the keys of the dictionary, reserved or not; their values in this notation.
nlohmann::ordered_json jsonFromEntries(const Dictionary& dictionary);

/// The text; null for the nil one.
nlohmann::ordered_json textOrNull(const String& text);

/// The instant as RFC 3339 writes it, with as many digits as it takes to read the very same instant back. One
/// that has no such text is "@" and its seconds since 2001-01-01 00:00:00 UTC.
std::string dateText(Date date);

}  // namespace roster::tool
