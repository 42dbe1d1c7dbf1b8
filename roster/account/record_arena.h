#pragma once

#include <cstddef>
#include <memory>
#include <memory_resource>

#include "roster/account/account_protocols.h"

namespace roster {

/// Memory for the records that one load makes: they are made and destroyed together, so they lie together.
/// The memory is freed as a whole with the last of the records; a record that outlives its store keeps it, as
/// it keeps the file's bytes.
///
/// One thread at a time makes records; any thread may destroy the last one.
class RecordArena {
 public:
  /// Makes room for so many records of an ordinary size at once.
  explicit RecordArena(std::size_t records);

  /// Like BasicAccount::accountWithProperties, a record in this memory.
  [[nodiscard]] AccountPtr accountWithProperties(const Dictionary& properties) const;

 private:
  std::shared_ptr<std::pmr::memory_resource> memory_;
};

}  // namespace roster
