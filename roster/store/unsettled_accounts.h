#pragma once

#include <cstddef>
#include <vector>

#include "roster/store/account_indexes.h"
#include "roster/store/registry_merge.h"

namespace roster {

/// Which accounts of three versions have to be looked at. Of a large registry only a few ever changed: all
/// others are equal in the three versions, and what a merge would make of them is what they are.
struct UnsettledAccounts {
  static constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

  /// Which accounts of one version are settled, by their positions.
  using Settled = std::vector<bool>;

  /// The identifiers of the accounts to be merged.
  OrderedMap<bool> identifiers{};
  Settled mine{};
  Settled base{};
  Settled theirs{};
  /// For every settled account of theirs, where `mine` and the base have it.
  std::vector<std::size_t> inMine{};
  std::vector<std::size_t> inBase{};

  /// The accounts to be merged, of one version.
  AccountList of(const AccountList& accounts, const Settled& areSettled) const;
};

/// Compares the versions. An account is settled only when none of its children stands elsewhere in an account
/// that is not; the indexes are those of `mine`. Linear in the number of accounts.
UnsettledAccounts unsettledAccounts(const RegistryVersions& versions, const AccountIndexes& indexes);

}  // namespace roster
