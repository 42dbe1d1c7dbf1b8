#pragma once

#include <cstddef>
#include <memory>
#include <memory_resource>
#include <utility>

namespace roster {

/// Memory for the records that one load makes: they come and go together, so they lie together. It is given
/// back as a whole, with the last of the records; one that outlives its store keeps it, as it keeps the
/// file's bytes.
///
/// One thread at a time makes records; the last of them may go on any thread.
class RecordArena {
 public:
  /// Room for so many records of an ordinary size is made at once.
  explicit RecordArena(std::size_t records)
      : memory_(std::make_shared<std::pmr::monotonic_buffer_resource>(records * ordinarySize + 1)) {}

  /// What std::allocate_shared makes a record with.
  template <class T>
  class Allocator {
   public:
    using value_type = T;
    explicit Allocator(const RecordArena& arena) : memory_(arena.memory_) {}
    template <class Other>
    explicit Allocator(const Allocator<Other>& other) : memory_(other.memory_) {}

    T* allocate(std::size_t count) {
      return static_cast<T*>(memory_->allocate(count * sizeof(T), alignof(T)));
    }
    void deallocate(T*, std::size_t) {}
    template <class Other>
    bool operator==(const Allocator<Other>& other) const {
      return memory_ == other.memory_;
    }

   private:
    template <class>
    friend class Allocator;
    std::shared_ptr<std::pmr::memory_resource> memory_;
  };

 private:
  static constexpr std::size_t ordinarySize = 192;
  std::shared_ptr<std::pmr::memory_resource> memory_;
};

}  // namespace roster
