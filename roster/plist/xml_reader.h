#pragma once

#include "roster/base/bytes.h"
#include "roster/base/result.h"
#include "roster/value/value.h"

namespace roster {

/// Reads an XML property list. Document types are skipped and nothing outside the text is ever fetched.
Result<Value> parseXmlPropertyList(const Bytes& bytes);

}  // namespace roster
