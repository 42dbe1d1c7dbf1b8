#pragma once

#include <string_view>

#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

// The values of an XML property list that are written as text. White space around a number or a date is not
// part of it. Each error completes "line 12: ...".

/// A decimal or, behind "0x", hexadecimal integer with an optional sign, from -2^63 to 2^64-1.
Result<Value> integerFromXml(std::string_view text);

/// A decimal real with an optional exponent, or "nan", "inf", "infinity" in upper or lower case; with an
/// optional sign.
Result<Value> realFromXml(std::string_view text);

/// A date as in "2024-02-29T12:00:00Z".
Result<Value> dateFromXml(std::string_view text);

/// Bytes in base64, with white space anywhere.
Result<Value> dataFromXml(std::string_view text);

/// Whether the text has no character but white space.
bool isXmlSpace(std::string_view text);

}  // namespace roster
