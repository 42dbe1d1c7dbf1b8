#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/account/device_local_account.h"
#include "roster/base/export.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/notify/notifier_dispatch.h"
#include "roster/platform/named_lock.h"
#include "roster/store/account_collections.h"
#include "roster/value/ordered_map.h"

namespace roster {

class AccountIndexes;
class ChildMoves;
class Snapshot;

/// The registry in memory: loaded once from the account settings file, asked and changed here, and written
/// back by `saveAllAccounts`, which merges with what other programs have written since.
///
/// A store and the records it hands out are used by one thread at a time. Results that are records are the
/// store's own: changing one changes what the next save writes. Nothing here reports an error to its caller;
/// what went wrong is in the system log.
class ROSTER_EXPORT AccountsManager {
 public:
  // ---- Creation

  /// A store loaded from the account settings file as it is, without a lock and without waiting for a
  /// migration. A file that is missing or cannot be read gives an empty store.
  static std::shared_ptr<AccountsManager> init();

  /// What a subclass passes on so that only the creation operations make instances.
  class Allocation {
    friend class AccountsManager;
    explicit Allocation() = default;
  };
  explicit AccountsManager(Allocation);
  AccountsManager(const AccountsManager&) = delete;
  AccountsManager& operator=(const AccountsManager&) = delete;
  virtual ~AccountsManager();

  // ---- Queries. They look at memory only. Unknown identifiers give nil.

  /// The top-level record with the identifier, or the parent of the child with it.
  AccountPtr accountWithIdentifier(std::string_view identifier) const;
  /// The record, top-level before child, with the sync identifier.
  AccountPtr syncableAccountWithSyncIdentifier(std::string_view syncIdentifier) const;
  /// The top-level account that the user sees for that record.
  AccountPtr displayAccountWithSyncIdentifier(std::string_view syncIdentifier) const;
  /// The store's own list of top-level records, in order. Changes of the store show through it.
  std::shared_ptr<const AccountArray> allBasicAccounts() const;
  /// All top-level records in order, then all children.
  std::vector<AccountPtr> allBasicSyncableAccounts() const;
  /// The top-level records of these types, in order.
  std::vector<AccountPtr> basicAccountsWithTypes(const TypeSet& types) const;
  std::size_t countOfBasicAccountsWithTypes(const TypeSet& types) const;
  /// How many top-level records there are.
  std::size_t count() const;
  // Full accounts, made by plug-ins at the first request. The loader, which may be nil, is handed to
  // `BasicAccount::fullAccountUsingLoader`, as are the failures.

  using FullAccount = std::shared_ptr<AccountFullAccountProtocol>;
  /// That of the top-level record or child with the identifier; nil when there is none.
  FullAccount fullAccountWithIdentifierLoader(std::string_view identifier,
                                              AccountLoaderProtocol* loader) const;
  /// Those of all top-level records of the types, in order, each followed by its children of the types. A
  /// child is among them even when its parent's type is not. Throws std::invalid_argument when that of a
  /// top-level record cannot be made (if no assertion handler has thrown before), leaves out that of a child;
  /// throws EnumerationMutation when making one changes the store's top-level accounts.
  std::vector<FullAccount> accountsWithTypesWithLoader(const TypeSet& types,
                                                       AccountLoaderProtocol* loader) const;
  std::vector<FullAccount> accountsWithTypes(const TypeSet& types) const;
  /// Those of the types "Mail", "Nuvola", "Gmail" and "Yahoo".
  std::vector<FullAccount> allMailAccounts() const;
  /// That of the account of the device itself. A store without one gains it, with one line in the system log;
  /// the next save writes it.
  FullAccount fullDeviceLocalAccount();

  /// The title under which accounts of a type are grouped on screen, in the user's language; nil for types
  /// that are not grouped.
  static String displayNameForGroupOfAccountTypeForBeginningOfSentence(std::string_view type,
                                                                       bool isBeginningOfSentence);

  // ---- Changes. They change memory only; the next save writes them. Records must not be nil.
  // A child is changed by adding it to its parent again: child records are copies of what the parent holds.

  /// Puts the record in place of every top-level record with its identifier; ignored when there is none.
  void updateAccount(const AccountPtr& account);
  /// Appends the record as a top-level account, unless its identifier is taken.
  void insertAccount(const AccountPtr& account);
  /// Removes the last top-level record with the record's identifier, and its children.
  void deleteAccount(const AccountPtr& account);
  /// Deletes the top-level account with the identifier; ignored when there is none.
  void deleteAccountWithIdentifier(std::string_view identifier);
  /// Puts the new record at the old one's position. Look-ups by identifier find neither afterwards. Throws
  /// std::out_of_range when the old record is not in the store; its identifier is then no longer indexed.
  void replaceAccountWithAccount(const AccountPtr& oldAccount, const AccountPtr& newAccount);
  /// Makes the records the store's accounts of those types: each takes the place of the record with its
  /// identifier, whatever its type; other records of the types go; new ones are appended, children to their
  /// parents.
  void replaceAccountsWithTypesWithAccounts(const TypeSet& types, const std::vector<AccountPtr>& accounts);
  /// Appends the child's live properties to the parent's children. Does nothing without a parent.
  void addChildToAccount(const AccountPtr& child, const AccountPtr& parent);
  /// Takes the child with the identifier out of the parent's children. Does nothing without a parent.
  void removeChildWithIdentifierFromAccount(const String& identifier, const AccountPtr& parent);

  // ---- Saving

  /// Merges every account with the file's version of it and writes the file. After a failure, which the
  /// system log tells, the file is as it was, and the next save merges the same changes again.
  void saveAllAccounts();
  /// Why the last save failed, with path and system text; empty when it succeeded.
  const std::string& lastSaveError() const { return _lastSaveError; }
  /// One account's three versions made one; any of them may be empty.
  Dictionary mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(const Dictionary& inMemory,
                                                                       const Dictionary& original,
                                                                       const Dictionary& onDisk) const;

  // ---- Announcing a change of one account in one dataclass to the notifiers of both, just before and just
  // after it. For clients that need more than what a save tells; the library itself never calls them.

  static void accountWillChangeForDataclass(const AccountPtr& account, std::string_view dataclass);
  static void accountDidChangeForDataclass(const AccountPtr& account, std::string_view dataclass);

  // ---- Private

  /// Whether the saves of this process tell no notifier, until it is set again. The first save that tells
  /// them again reports all changes since the last one that did.
  static void _setShouldSkipNotifications(bool shouldSkip);
  /// The same as init; the name says that a migrator may call it while it holds the migration lock.
  static std::shared_ptr<AccountsManager> initInsideOfMigration();
  /// A store of account dictionaries that the caller holds in memory.
  static std::shared_ptr<AccountsManager> initWithAccounsInfoArray(const Array& accounts);
  /// The absolute path of the account settings file.
  static std::string fullPathToRosterPlist();
  /// The version of the layout that this library writes: 12.
  static unsigned currentVersion();
  /// The version that the file had when it was loaded, 0 when it had none.
  std::int64_t dataVersion() const { return _dataVersion; }

  // ---- Internal

  /// The notifier classes for an account type and a dataclass, in the order of the account-creators table and
  /// as often as it names them, with their libraries loaded. What is wrong with the table or with a library
  /// is an assertion failure.
  static StringList _notifierClassNamesForAccountTypeDataclass(std::string_view type,
                                                               std::string_view dataclass);
  /// Adds a record of the change for each notifier class that it concerns. Any change type but 0 (added) and
  /// 2 (removed) stands for a modified account.
  void _addNotificationToDictionaryForChangeTypeOriginalPropertiesCurrentProperties(
      ChangeCollection& collection, std::int32_t changeType, const std::optional<Dictionary>& original,
      const std::optional<Dictionary>& current) const;
  /// Tells the notifiers what changed since the store was loaded or last told them.
  void _sendNotificationsForChangedAccounts();

  // ---- Migration: an old registry, or what there was before registries, is turned into one of this version
  // by a plug-in, under a lock that all processes share. Creating a store neither migrates nor waits.

  /// Migrates if something has to be; `migrateIfNeeded` tells its caller more.
  static void _migrateAccountsIfNeeded();

  // ---- MigrationSupport

  /// What there is to be migrated. All three pointers must be given: a missing one is an assertion failure,
  /// and nothing is written then. The registry's own version is only looked at when there is nothing older.
  static void shouldMigrateOldMailAccountsOldTSAccountsNewRoster(bool* migrateOldMailAccounts,
                                                                 bool* migrateOldTSAccounts,
                                                                 bool* migrateNewAccounts);
  static bool _oldMailAccountsInformationFound();
  static bool _oldTSAccountsInformationFound();
  /// Whether the registry's file has a version below the current one. One that is missing or unreadable, or
  /// tells no version, need not be migrated.
  static bool rosterNeedsToBeMigrated();
  /// The lock that is held while a migration runs, waited for and taken; nil, with the cause in the system
  /// log, when there can be none. The caller owns it.
  static std::shared_ptr<NamedLock> createAndLockMigrationLock();
  /// Gives up the lock, which may be nil, for all who share the object.
  static void releaseMigrationLock(const std::shared_ptr<NamedLock>& lock);
  /// Returns when no migration is running any more.
  static void waitForMigrationToFinish();
  /// Makes the sync-accounts daemon quit, so that it does not write during a migration: asks it to, kills it
  /// when it does not listen, and gives up after little more than ten seconds. The calling thread's event
  /// loop runs meanwhile. Does nothing when there is no such process, or when this is it.
  static void killTesseraIfNecessary();
  /// Removes the registry's file, if there is one, because it is about to be made anew.
  static void removeNewRosterToMigrateOldAccountInformation();
  void setDataVersion(std::int64_t version) { _dataVersion = version; }

 protected:
  /// The path that this store's own class saves to.
  virtual std::string settingsPath() const { return fullPathToRosterPlist(); }
  /// The fixers of a new store, in the order in which they are asked.
  virtual std::vector<std::shared_ptr<RSRuntimeFixProtocol>> _createRuntimeFixers() const;

  /// A store of a subclass, loaded from a file or built from dictionaries.
  template <class Store>
  static std::shared_ptr<Store> makeInsideOfMigration() {
    auto store = std::make_shared<Store>(Allocation{});
    store->loadSettingsFile();
    return store;
  }
  template <class Store>
  static std::shared_ptr<Store> makeWithAccountsInfo(const Array& accounts) {
    auto store = std::make_shared<Store>(Allocation{});
    store->_initWithAccountsInfo(accounts);
    return store;
  }

 private:
  void loadSettingsFile();
  void _initWithAccountsInfo(const Array& accounts);
  bool fixAndIndex(const AccountPtr& account);
  void _loadChildrenFromAccount(const AccountPtr& parent);
  void indexChildren(const AccountPtr& parent, const String& parentID);
  void _removeChildrenForAccountWithIdentifier(const String& identifier);
  void tellFixersAccountsHaveBeenSaved(bool areSaved);
  void _setOriginalAccountDictionaries();

  std::unordered_set<const BasicAccount*> replaceInPlace(const TypeSet& types,
                                                         const std::vector<AccountPtr>& accounts,
                                                         std::vector<AccountPtr>& ordered,
                                                         OrderedMap<AccountPtr>& topLevelByID);
  void moveChild(const AccountPtr& child, const AccountPtr& parent, ChildMoves& moves);

  bool fixBeforeSaving();
  std::vector<Value> mergedAccounts(const AccountsManager& onDisk) const;
  std::string damageOfFileToReplace(const AccountsManager& onDisk) const;
  bool writeRegistry(std::vector<Value> accounts, const std::string& damage);
  void announceSave();

  std::unique_ptr<AccountIndexes> _indexes;
  std::unique_ptr<Snapshot> _originalAccountsByID;
  std::int64_t _dataVersion = 0;
  std::vector<std::shared_ptr<RSRuntimeFixProtocol>> _runtimeFixers;
  /// Why the file could not be read in full when this store was loaded; empty when it could.
  std::string _damage;
  std::string _lastSaveError;
};

}  // namespace roster
