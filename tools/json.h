#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster::tool {

// JSON has fewer kinds of values than a property list. The others are objects with one reserved key:
//
//   {"$data": "AAEC"}                      bytes in base64
//   {"$date": "2024-02-29T12:00:00Z"}      an instant in UTC, RFC 3339 (`dateText` tells the rest)
//   {"$real": "nan"}                       "nan", "inf" or "-inf"; all other reals are numbers with a point
//   {"$dictionary": {"$data": "x"}}        a dictionary that itself has one of these keys
//
// Reading it back gives an equal value of the same type.

inline constexpr std::string_view dataKey = "$data";
inline constexpr std::string_view dateKey = "$date";
inline constexpr std::string_view realKey = "$real";
inline constexpr std::string_view dictionaryKey = "$dictionary";

/// The property-list value of a JSON text in this notation. Integers from -2^63 to 2^64-1 stay integers, and
/// a number with a point or an exponent is a real. The error completes "KEY: ..."; null, repeated keys and
/// integers beyond that range are errors.
Result<Value> valueFromJson(std::string_view text);

bool isReservedKey(std::string_view key);

/// Spaces by which a document's containers are indented.
inline constexpr int jsonIndent = 2;

/// A value that is no container in this notation.
nlohmann::ordered_json jsonFromScalar(const Value& value);

/// The text; null for the nil one.
nlohmann::ordered_json textOrNull(const String& text);

/// The instant as RFC 3339 writes it, with as many digits as it takes to read the same instant back. An
/// instant that has no such text becomes "@" and its seconds since 2001-01-01 00:00:00 UTC.
std::string dateText(Date date);

}  // namespace roster::tool
