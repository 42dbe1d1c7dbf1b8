#pragma once

#include <cstdint>

#include "roster/platform/linux/file_descriptor.h"

namespace roster {

/// A file descriptor that stands for the process with the identifier and becomes readable when that ends.
/// None, with the cause in errno, when there is no such process.
FileDescriptor processHandle(std::int32_t identifier);

}  // namespace roster
