#pragma once

#include <cstddef>
#include <vector>

#include "roster/store/account_indexes.h"
#include "roster/store/registry_merge.h"

namespace roster {

/// Which accounts of three versions have to be looked at. Of a large registry only a few ever changed: all
/// others are equal in the three versions, and what a merge would make of them is what they are.
struct UnsettledAccounts {
  /// The identifiers of the accounts to be merged.
  OrderedMap<bool> identifiers{};
  /// For every account of theirs, where `mine` and the base have it; `nowhere` for one to be merged.
  std::vector<std::size_t> inMine{};
  std::vector<std::size_t> inBase{};
  static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

  bool contains(const Dictionary& account) const {
    const String identifier = storedIdentifier(account);
    return identifier && identifiers.contains(identifier);
  }
  /// The accounts to be merged, of one version.
  AccountList of(const AccountList& accounts) const;
};

/// Compares the versions. An account is settled only when none of its children stands elsewhere in an account
/// that is not; the indexes are those of `mine`. Linear in the number of accounts.
UnsettledAccounts unsettledAccounts(const RegistryVersions& versions, const AccountIndexes& indexes);

}  // namespace roster
