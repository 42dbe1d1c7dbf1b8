#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/value/fault.h"

namespace roster {

/// An ordered list of records that notices when it is changed while somebody walks it: the walk then throws
/// EnumerationMutation. It hands out handles and not references, so that a record lives on while somebody is
/// busy with it, whoever removes it meanwhile.
class AccountArray {
 public:
  /// Without any record.
  AccountArray() = default;

  /// How many records there are.
  std::size_t size() const { return accounts_.size(); }
  /// Whether there is none.
  bool empty() const { return accounts_.empty(); }
  /// The record at an index. Throws std::out_of_range.
  AccountPtr at(std::size_t index) const { return accounts_.at(index); }
  /// The record at an index. Throws std::out_of_range.
  AccountPtr operator[](std::size_t index) const { return accounts_.at(index); }

  /// One step of a walk. Every use throws EnumerationMutation once the list has been changed.
  class Iterator {
   public:
    /// @cond INTERNAL
    using iterator_category = std::input_iterator_tag;
    using value_type = AccountPtr;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = AccountPtr;
    /// @endcond
    /// Belongs to no list; may only be assigned to.
    Iterator() = default;
    /// Stands at an index of the list, which must outlive it.
    Iterator(const AccountArray* array, std::size_t index)
        : array_(array), index_(index), changes_(array->changes_) {}
    /// The record.
    AccountPtr operator*() const {
      requireUnchanged();
      return array_->accounts_[index_];
    }
    /// Goes on to the next record.
    Iterator& operator++() {
      requireUnchanged();
      ++index_;
      return *this;
    }
    /// Goes on to the next record; returns where it stood.
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    /// Whether both stand at the same index; of iterators of one list.
    friend bool operator==(const Iterator& left, const Iterator& right) {
      left.requireUnchanged();
      return left.index_ == right.index_;
    }

   private:
    void requireUnchanged() const {
      if (changes_ != array_->changes_) throw EnumerationMutation();
    }
    const AccountArray* array_ = nullptr;
    std::size_t index_ = 0;
    std::uint64_t changes_ = 0;
  };
  /// Begins a walk.
  Iterator begin() const { return {this, 0}; }
  /// Ends a walk.
  Iterator end() const { return {this, accounts_.size()}; }

  /// The records for a walk that cannot change the list; valid until the list is changed.
  std::span<const AccountPtr> span() const { return accounts_; }

  // ---- Changes, for the store. Each but `reserve` ends the walks that are under way.

  /// Makes room for as many records.
  void reserve(std::size_t count) { accounts_.reserve(count); }
  /// Adds a record at the end.
  void append(AccountPtr account) {
    ++changes_;
    accounts_.push_back(std::move(account));
  }
  /// Puts a record in place of another. Throws std::out_of_range, with nothing changed.
  void replaceAt(std::size_t index, AccountPtr account) {
    accounts_.at(index).swap(account);
    ++changes_;
  }
  /// Puts a whole list in place of this one.
  void replaceAll(std::vector<AccountPtr> accounts) {
    ++changes_;
    accounts_.swap(accounts);
  }
  /// Removes every occurrence of the very record.
  void removeIdentical(const BasicAccount* account) {
    changes_ += std::erase_if(accounts_, [account](const AccountPtr& each) { return each.get() == account; });
  }

 private:
  std::vector<AccountPtr> accounts_;
  std::uint64_t changes_ = 0;
};

/// A collection of account types that is only asked whether it contains one.
class TypeSet {
 public:
  /// Of these types.
  TypeSet(std::initializer_list<std::string_view> types) : types_(types.begin(), types.end()) {}
  /// Of all types in a range of texts.
  template <class Range>
  explicit TypeSet(const Range& types) : types_(std::begin(types), std::end(types)) {}

  /// Whether the type is among them.
  bool contains(std::string_view type) const {
    return std::find(types_.begin(), types_.end(), type) != types_.end();
  }

 private:
  std::vector<std::string> types_;
};

}  // namespace roster
