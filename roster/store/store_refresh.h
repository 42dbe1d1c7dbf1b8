#pragma once

#include <unordered_set>
#include <vector>

#include "roster/account/record_contents.h"
#include "roster/notify/change_detection.h"
#include "roster/store/file_version.h"
#include "roster/store/store_state.h"
#include "roster/store/unsettled_accounts.h"

namespace roster {

/// Brings what the file has into a store's memory. First everything is worked out and made, in memory of its
/// own, so that running out of memory leaves the store as it was; then it is put in place.
class StoreRefresh {
 public:
  /// Changes nothing of the store, which must outlive this object and not change meanwhile. Of a file that
  /// was not read in full nothing is taken for deleted.
  StoreRefresh(StoreState& store, const FileVersion& file, bool isFileWhole);

  /// Puts the result in place; once. Returns what it changed: removed accounts first, then added, then
  /// modified ones.
  std::vector<AccountChange> commit();

  /// Whether the file has something else than memory has then.
  bool isFileDifferent() const { return isFileDifferent_; }

  /// The accounts as memory has them then.
  AccountList accounts() const;

  /// The accounts as they are to be written: with what the file has and no record here stands for.
  std::vector<Value> accountsToWrite(const FileVersion& file) const;

 private:
  /// One of the top-level accounts after the refresh.
  struct Outcome {
    AccountPtr record{};
    Dictionary properties{};
    /// Where the file has it; `nowhere` for one that only memory has.
    std::size_t position = UnsettledAccounts::nowhere;
    bool isSettled = false;
  };

  void takeVersions(const FileVersion& file, bool isFileWhole);
  void merge();
  void arrange(const AccountList& merged);
  void compareWithFile();
  void makeBase();
  void makeRecords();
  void removeFormer();
  void makeChildren(const Outcome& parent);
  void makeTold(const AccountList& base, const AccountList& theirs);
  AccountPtr takeRecord(const String& identifier, bool isChild);
  void hold(const AccountPtr& record, const Dictionary& former, const Dictionary& now,
            const Dictionary& original);
  void findChanges();
  bool areChildrenChanged(const Outcome& outcome) const;

  StoreState& store_;
  /// Those of the moment at which the refresh began: overrides that are asked may change the store.
  std::vector<AccountPtr> records_;
  RegistryVersions versions_;
  UnsettledAccounts unsettled_;
  std::vector<NamelessAccount> nameless_;
  std::vector<Outcome> outcomes_;
  AccountList base_;
  /// Of the accounts that are not settled: the base that the next refresh has to start from.
  OrderedMap<Dictionary> nextBase_;
  /// The same accounts as memory had them, children too, with their records.
  OrderedMap<AccountPtr> formerRecords_;
  OrderedMap<Dictionary> formerAccounts_;
  OrderedMap<Dictionary> formerChildren_;
  /// The top-level ones among them as they become.
  OrderedMap<Dictionary> merged_;
  /// Their children.
  OrderedMap<bool> mergedChildren_;
  std::unordered_set<const BasicAccount*> used_;
  std::vector<RecordContents> contents_;
  std::vector<std::pair<AccountPtr, AccountPtr>> parents_;
  AccountIndexes indexes_;
  OrderedMap<Dictionary> told_;
  std::vector<AccountChange> changes_;
  bool isFileDifferent_ = false;
  bool isOrderChanged_ = false;
};

}  // namespace roster
