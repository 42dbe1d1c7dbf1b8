#pragma once

#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <span>

namespace roster {

/// Fills the bytes with fresh ones of the kernel's. False when it gives none; the bytes are then as they
/// were, or partly filled.
inline bool drawRandomBytes(std::span<std::byte> bytes) {
  ssize_t drawn = 0;
  do {
    drawn = getrandom(bytes.data(), bytes.size(), 0);
  } while (drawn < 0 && errno == EINTR);
  return drawn == static_cast<ssize_t>(bytes.size());
}

}  // namespace roster
