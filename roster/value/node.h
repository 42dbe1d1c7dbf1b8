#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ext/atomicity.h>
#include <functional>
#include <utility>

#include "roster/base/export.h"

namespace roster {

/// @cond INTERNAL

/// What a Value refers to when its contents do not fit into it: counted, and deleted with its last reference.
class Node {
 public:
  Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  virtual ~Node() = default;

  /// Whether a single reference is left, so that its owner may change what nobody else can see.
  bool hasOneReference() const noexcept { return references_.load(std::memory_order_acquire) == 1; }

 private:
  template <class T>
  friend class Ref;
  friend class Value;

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

  /// Deletes the node and what only it held, however deep that is, without recursion: a program may nest its
  /// values deeper than its stack.
  ROSTER_EXPORT static void destroy(const Node* node) noexcept;

  mutable std::atomic<std::size_t> references_{0};
};

/// One counted reference to a node.
template <class T>
class Ref {
 public:
  template <class... Arguments>
  static Ref make(Arguments&&... arguments) {
    return Ref(new T(std::forward<Arguments>(arguments)...));
  }

  Ref() = default;
  explicit Ref(T* node) noexcept : node_(node) {
    if (node_ != nullptr) node_->retain();
  }
  /// A reference to a `Derived` is one to its base, and one to const.
  template <class Derived>
  Ref(Ref<Derived> other) noexcept : node_(std::move(other).detach()) {}
  Ref(const Ref& other) noexcept : Ref(other.node_) {}
  Ref(Ref&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(node_, other.node_);
    return *this;
  }
  ~Ref() {
    if (node_ != nullptr) node_->release();
  }

  T* get() const noexcept { return node_; }
  T& operator*() const noexcept { return *node_; }
  T* operator->() const noexcept { return node_; }
  explicit operator bool() const noexcept { return node_ != nullptr; }

  /// Hands the count over to the caller.
  T* detach() && noexcept { return std::exchange(node_, nullptr); }

 private:
  T* node_ = nullptr;
};

/// @endcond

/// Which object a value refers to: to compare, and to look things up by. It keeps nothing alive, and means
/// nothing once the last value that refers to the object is gone.
class ValueIdentity {
 public:
  /// The identity of what needs no object: scalars and nil.
  ValueIdentity() = default;

  /// Whether both are the same object.
  friend bool operator==(const ValueIdentity&, const ValueIdentity&) = default;

 private:
  friend class Value;
  friend struct std::hash<ValueIdentity>;
  ValueIdentity(const Node* node, std::uint32_t object) : node_(node), object_(object) {}
  const Node* node_ = nullptr;
  std::uint32_t object_ = 0;
};

}  // namespace roster

/// Hashes identities, for unordered containers.
template <>
struct std::hash<roster::ValueIdentity> {
  /// The identity as a number.
  std::size_t operator()(const roster::ValueIdentity& identity) const noexcept {
    return std::hash<const void*>()(identity.node_) ^ (std::size_t{identity.object_} * 0x9E3779B97F4A7C15U);
  }
};
