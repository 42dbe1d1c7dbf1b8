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
/// EnumerationMutation.
class AccountArray {
 public:
  AccountArray() = default;

  std::size_t size() const { return accounts_.size(); }
  bool empty() const { return accounts_.empty(); }
  /// Throws std::out_of_range.
  const AccountPtr& at(std::size_t index) const { return accounts_.at(index); }
  const AccountPtr& operator[](std::size_t index) const { return accounts_.at(index); }

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = AccountPtr;
    using difference_type = std::ptrdiff_t;
    using pointer = const AccountPtr*;
    using reference = const AccountPtr&;
    Iterator() = default;
    Iterator(const AccountArray* array, std::size_t index)
        : array_(array), index_(index), changes_(array->changes_) {}
    const AccountPtr& operator*() const {
      requireUnchanged();
      return array_->accounts_[index_];
    }
    Iterator& operator++() {
      requireUnchanged();
      ++index_;
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
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
  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {this, accounts_.size()}; }

  /// The records for a walk that cannot change the list; valid until the list is changed.
  std::span<const AccountPtr> span() const { return accounts_; }

  // Changes. Each ends the walks that are under way.

  void reserve(std::size_t count) { accounts_.reserve(count); }
  void append(AccountPtr account) {
    ++changes_;
    accounts_.push_back(std::move(account));
  }
  /// Throws std::out_of_range, with nothing changed.
  void replaceAt(std::size_t index, AccountPtr account) {
    accounts_.at(index) = std::move(account);
    ++changes_;
  }
  void replaceAll(std::vector<AccountPtr> accounts) {
    ++changes_;
    accounts_.swap(accounts);
  }
  /// Removes every occurrence of the very record.
  void removeIdentical(const BasicAccount* account) {
    changes_ += std::erase_if(accounts_, [account](const AccountPtr& at) { return at.get() == account; });
  }

 private:
  std::vector<AccountPtr> accounts_;
  std::uint64_t changes_ = 0;
};

/// A collection of account types that is only asked whether it contains one.
class TypeSet {
 public:
  TypeSet(std::initializer_list<std::string_view> types) : types_(types.begin(), types.end()) {}
  template <class Range>
  explicit TypeSet(const Range& types) : types_(std::begin(types), std::end(types)) {}

  bool contains(std::string_view type) const {
    return std::find(types_.begin(), types_.end(), type) != types_.end();
  }

 private:
  std::vector<std::string> types_;
};

}  // namespace roster
