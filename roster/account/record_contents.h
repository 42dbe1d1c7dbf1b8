#pragma once

#include <optional>
#include <utility>

#include "roster/account/basic_account.h"

namespace roster {

/// What a record is to hold from some moment on: prepared first, which may fail, and then put in place, which
/// does not. Those who have the record's live properties see the change in them.
class RecordContents {
 public:
  /// Changes nothing yet. The dictionaries are not live.
  RecordContents(AccountPtr record, Dictionary properties, Dictionary original);

  void putInPlace() noexcept;

 private:
  AccountPtr record_;
  Dictionary properties_;
  Dictionary original_;
  /// For a record that has no live properties yet, and needs them.
  std::optional<MutableDictionary> live_;
};

}  // namespace roster
