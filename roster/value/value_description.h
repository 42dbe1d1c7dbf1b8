#pragma once

#include <string>

#include "roster/base/export.h"
#include "roster/value/value.h"

namespace roster {

/// The value in words for people who read logs, on one line: a text alone stands as it is, within a container
/// it is quoted, a dictionary reads {Key = "text"; Other = 12}. Nil reads "(null)". A very long description
/// ends in an ellipsis; the work is bounded whatever the value refers to.
ROSTER_EXPORT std::string describe(const Value& value);

}  // namespace roster
