#pragma once

#include <typeinfo>

#include "roster/account/basic_account.h"

namespace roster {

/// What a save writes for a record, for those who only read it at once. A record that is of no subclass need
/// not make its live properties for that, which most of a registry's records never need.
class SavedProperties {
 public:
  static Dictionary of(const BasicAccount& account) {
    return typeid(account) == typeid(BasicAccount) ? account.currentProperties() : account.propertiesToSave();
  }
};

}  // namespace roster
