#include "roster/account/record_arena.h"

#include "roster/account/basic_account.h"

namespace roster {

namespace {

constexpr std::size_t ordinarySize = 192;

/// What std::allocate_shared makes a record with; the record keeps it, and so the memory.
template <class T>
class Allocator {
 public:
  using value_type = T;

  explicit Allocator(std::shared_ptr<std::pmr::memory_resource> memory) : memory_(std::move(memory)) {}
  template <class Other>
  explicit Allocator(const Allocator<Other>& other) : memory_(other.memory_) {}

  T* allocate(std::size_t count) { return static_cast<T*>(memory_->allocate(count * sizeof(T), alignof(T))); }
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

}  // namespace

RecordArena::RecordArena(std::size_t records)
    : memory_(std::make_shared<std::pmr::monotonic_buffer_resource>(records * ordinarySize + 1)) {}

AccountPtr RecordArena::accountWithProperties(const Dictionary& properties) const {
  BasicAccount::initialize();
  auto account =
      std::allocate_shared<BasicAccount>(Allocator<BasicAccount>(memory_), BasicAccount::Allocation{});
  return account->takeProperties(properties) ? account : nullptr;
}

}  // namespace roster
