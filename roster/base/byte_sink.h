#pragma once

#include <cstddef>
#include <functional>
#include <span>

#include "roster/base/result.h"

namespace roster {

/// What takes bytes, one piece after the other. A failure ends the writing.
using ByteSink = std::function<Result<>(std::span<const std::byte>)>;

/// Gives a sink all bytes of a file and returns its first failure.
using ByteSource = std::function<Result<>(const ByteSink&)>;

}  // namespace roster
