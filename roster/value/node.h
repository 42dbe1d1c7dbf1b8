#pragma once

#include <atomic>
#include <cstddef>
#include <ext/atomicity.h>

#include "roster/base/export.h"

namespace roster {

/// What a Value refers to when it does not fit into one: counted, deleted with its last reference.
class ROSTER_EXPORT Node {
 public:
  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  virtual ~Node() = default;

  // A process with one thread counts without locking the bus, as std::shared_ptr does.

  void retain() const noexcept {
    if (__gnu_cxx::__is_single_threaded()) {
      references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      references_.fetch_add(1, std::memory_order_relaxed);
    }
  }
  void release() const noexcept {
    if (__gnu_cxx::__is_single_threaded()) {
      const std::size_t left = references_.load(std::memory_order_relaxed) - 1;
      references_.store(left, std::memory_order_relaxed);
      if (left == 0) destroy(this);
    } else if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      destroy(this);
    }
  }

 private:
  /// Deletes the node and what only it held, however deep that is, without recursion: a program may nest its
  /// values deeper than its stack.
  static void destroy(const Node* node) noexcept;

  mutable std::atomic<std::size_t> references_{0};
};

}  // namespace roster
