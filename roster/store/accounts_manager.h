#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "roster/account/basic_account.h"
#include "roster/account/device_local_account.h"
#include "roster/base/export.h"
#include "roster/base/result.h"
#include "roster/fixers/runtime_fix.h"
#include "roster/notify/account_notifier.h"
#include "roster/platform/named_lock.h"
#include "roster/store/account_collections.h"
#include "roster/store/sync_result.h"

namespace roster {

struct StoreState;

/// The registry in memory: loaded once from the account settings file, asked and changed here, and written
/// back by `saveAllAccounts`, which merges with what other programs have written since.
///
/// A store and the records it hands out are used by one thread at a time; different stores are independent of
/// each other. Results that are records are the store's own: changing one changes what the next save writes.
///
/// Plug-ins and overrides that an operation calls may use the store, change it and drop its last handle:
/// until the operation returns, the store and the record it is about live on. What they may not is begin a
/// save, or the announcement of its changes, while the same store is in one: that is an assertion failure.
///
/// Operational failures are not thrown: they are lines in the system log, and `lastSaveError` tells of a
/// save. What may throw is the assertion handler, about a wrong configuration. A save calls it last: when
/// `saveAllAccounts` throws because notifiers are set up wrongly, the registry has been written, every
/// notifier that could be told has been, and `lastSaveError` has nothing. No change is told twice: a notifier
/// whose library or class was missing never hears of those that were saved meanwhile.
///
/// Only top-level records are saved: a child's record is a copy of an element of its parent's
/// "ChildAccounts", and what is set in it alone is not written. Change the child's record, and take it back
/// into its parent with `updateChildAccount`.
class ROSTER_EXPORT AccountsManager : public std::enable_shared_from_this<AccountsManager> {
 public:
  // ---- Creation

  /// A store loaded from the account settings file as it is, without a lock and without waiting for a
  /// migration. A file that is missing or cannot be read gives an empty store; `loadError` tells which.
  static std::shared_ptr<AccountsManager> init();
  /// Why not all of the file could be read when this store was loaded from it, with path and system text;
  /// nothing when it could, or there was no file. What it means for saves: see `saveAllAccounts`. It stays as
  /// it is for the life of the store; to load the file again, make a new one. An addition.
  const std::optional<Error>& loadError() const;

  /// What a subclass passes on so that only the creation operations make instances.
  class Allocation {
    friend class AccountsManager;
    explicit Allocation() = default;
  };
  /// An empty store, for the creation operations to load. A subclass inherits this constructor.
  explicit AccountsManager(Allocation);
  /// Not copyable: its records are its own.
  AccountsManager(const AccountsManager&) = delete;
  /// Not copyable: its records are its own.
  AccountsManager& operator=(const AccountsManager&) = delete;
  /// Nothing is saved. Records that somebody else holds live on.
  virtual ~AccountsManager();

  // ---- Queries. They look at memory only. Unknown identifiers and nil give nil.

  /// The top-level record with the identifier, or the parent of the child with it.
  AccountPtr accountWithIdentifier(std::string_view identifier) const;
  /// The record, top-level before child, with the sync identifier, which may be the empty text.
  AccountPtr syncableAccountWithSyncIdentifier(const String& syncIdentifier) const;
  /// The top-level account that the user sees for that record.
  AccountPtr displayAccountWithSyncIdentifier(const String& syncIdentifier) const;
  /// The store's own list of top-level records, in order. Changes of the store show through it.
  std::shared_ptr<const AccountArray> allBasicAccounts() const;
  /// The record of the child with the identifier; nil for a top-level account's. To change the child, see
  /// `updateChildAccount`. An addition.
  AccountPtr childAccountWithIdentifier(std::string_view identifier) const;
  /// The records of the parent's children, in the order in which it holds them; empty for a record that is
  /// nil or not in the store. An addition.
  std::vector<AccountPtr> childrenOfAccount(const AccountPtr& parent) const;
  /// All top-level records in order, then all children.
  std::vector<AccountPtr> allBasicSyncableAccounts() const;
  /// The top-level records of these types, in order.
  std::vector<AccountPtr> basicAccountsWithTypes(const TypeSet& types) const;
  /// How many top-level records have one of these types.
  std::size_t countOfBasicAccountsWithTypes(const TypeSet& types) const;
  /// How many top-level records there are.
  std::size_t count() const;

  // ---- Full accounts

  /// A full account, made by a plug-in at the first request and kept by its record.
  using FullAccount = std::shared_ptr<AccountFullAccountProtocol>;
  /// The full account of the top-level record or child with the identifier; nil when there is no such record.
  /// The loader, which may be nil, and the failures are those of `BasicAccount::fullAccountUsingLoader`.
  FullAccount fullAccountWithIdentifierLoader(std::string_view identifier,
                                              AccountLoaderProtocol* loader) const;
  /// The full accounts of all top-level records of the types, in order, each followed by those of its
  /// children of the types. The loader may be nil. A child is among them even when its parent's type is not,
  /// and stands behind the parent that it has when that one's children are listed.
  /// Throws std::invalid_argument when that of a top-level record cannot be made (if no assertion handler has
  /// thrown before), leaves out that of a child; throws EnumerationMutation when making one changes the
  /// store's top-level accounts.
  std::vector<FullAccount> accountsWithTypesWithLoader(const TypeSet& types,
                                                       AccountLoaderProtocol* loader) const;
  /// `accountsWithTypesWithLoader` without a loader.
  std::vector<FullAccount> accountsWithTypes(const TypeSet& types) const;
  /// The full accounts of the types "Mail", "Nuvola", "Gmail" and "Yahoo".
  std::vector<FullAccount> allMailAccounts() const;
  /// The full account of the device itself. A store without one gains it, with one line in the system log;
  /// the next save writes it.
  FullAccount fullDeviceLocalAccount();

  /// The title under which accounts of a type are grouped on screen, in the user's language; nil for types
  /// that are not grouped.
  static String displayNameForGroupOfAccountTypeForBeginningOfSentence(std::string_view type,
                                                                       bool isBeginningOfSentence);

  // ---- Changes. They change memory only; the next save writes them. A record that is nil, where nothing
  // else is said of nil, is std::invalid_argument, with nothing changed.

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
  /// Takes a changed child back into its parent: what the record would save takes the place of the child with
  /// its identifier, at its position, and the record is the child's from then on. Ignored when no account has
  /// such a child. An addition.
  void updateChildAccount(const AccountPtr& child);
  /// Appends the child's live properties to the parent's children, whether or not the parent holds a child
  /// with its identifier already. Does nothing without a parent.
  void addChildToAccount(const AccountPtr& child, const AccountPtr& parent);
  /// Takes the child with the identifier out of the parent's children. Does nothing without a parent.
  void removeChildWithIdentifierFromAccount(const String& identifier, const AccountPtr& parent);

  // ---- Saving

  /// Merges every account with the file's version of it, replaces the file atomically, and tells the
  /// notifiers what changed. After a failure, which the system log and `lastSaveError` tell, the file is as
  /// it was, and the next save merges the same changes again. May throw after a success: see the class's
  /// comment. What is written are the accounts that the store had when the fixers had seen them. A notifier,
  /// a fixer or an override that saves the very store that calls it makes an assertion failure; when the
  /// handler returns, nothing is saved and `lastSaveError` tells so until the outer save ends.
  ///
  /// A file that this process could not read though it may be sound (there were no descriptors or no memory
  /// left, or the disk did not answer) is not replaced: when that happened to this store's load, all its
  /// saves fail, and a new store has to be loaded; when it happens to the save itself, that save fails. A
  /// file that cannot be used as it is (damaged, not a registry, no permission) is replaced, and kept beside
  /// the new one under its own name with ".damaged-" and the time. So is, once, the file that such a load
  /// found, even if it has become sound meanwhile: this store has not seen what is in it.
  void saveAllAccounts();
  /// Why the last save failed, with path and system text; nothing when it succeeded or there was none. An
  /// addition.
  const std::optional<Error>& lastSaveError() const;
  // ---- Several programs on one registry. Additions; docs/several-programs.md has the rules.

  /// Reads the file and brings what other programs have changed into memory: account by account, child by
  /// child, property by property. What was changed here and not yet saved stays. Writes nothing, and takes no
  /// lock.
  ///
  /// Returns what it changed in memory, in the order of `changesBetween`; nothing the second time when nobody
  /// has changed the file. Records stay the records of their accounts, wherever those have moved; that of a
  /// deleted account is merely in the store no more. Whoever walks the accounts meanwhile meets the walk's
  /// EnumerationMutation, if anything was brought in. Notifiers are not told of it, now or later: the
  /// programs that made the changes have told them.
  ///
  /// A missing file changes nothing. Of a damaged one what can be read is brought in, and nothing is taken
  /// for deleted. One that cannot be read at all is an error, and nothing is changed then.
  Result<std::vector<AccountChange>> refresh();
  /// Under the lock that all who sync take (`RegistryLock`): refreshes, writes the file if memory then
  /// differs from it, and tells the notifiers what this program changed. Nothing is lost between programs
  /// that all do this. The patience is how long to wait for the lock; see `RegistryLock::take`.
  ///
  /// What the file has and this program makes no record of, as accounts of a type that it does not know, is
  /// written as it is. On failure, which the system log and `lastSaveError` tell too, the file is as it was.
  SyncResult sync(std::chrono::milliseconds patience, const SyncOptions& options = {});

  /// One account's three versions made one; any of them may be empty.
  Dictionary mergeInMemoryPropertiesOriginalPropertiesOnDiskProperties(const Dictionary& inMemory,
                                                                       const Dictionary& original,
                                                                       const Dictionary& onDisk) const;

  // ---- Announcing a change of one account. For clients that need more than what a save tells; the library
  // itself never calls them. A record that is nil is std::invalid_argument.

  /// Tells the notifiers of the account's type and the dataclass that the account is about to change in it.
  /// Notifiers that are set up wrongly are assertion failures, thrown when all others have been told.
  static void accountWillChangeForDataclass(const AccountPtr& account, std::string_view dataclass);
  /// Tells them that the account has changed in the dataclass; otherwise as `accountWillChangeForDataclass`.
  static void accountDidChangeForDataclass(const AccountPtr& account, std::string_view dataclass);

  // ---- Private

  /// Whether the saves of this process, in all threads, tell no notifier, until it is set again. The first
  /// save that tells them again reports all changes since the last one that did. `NotificationPause` does the
  /// same for one thread and one scope.
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
  std::int64_t dataVersion() const;

  // ---- Internal

  /// The notifier classes for an account type and a dataclass, in the order of the account-creators table and
  /// as often as it names them, with their libraries loaded. What is wrong with the table or with a library
  /// is an assertion failure.
  static StringList _notifierClassNamesForAccountTypeDataclass(const String& type,
                                                               std::string_view dataclass);
  /// Adds a record of the change for each notifier class that it concerns. Any change type but 0 (added) and
  /// 2 (removed) stands for a modified account.
  void _addNotificationToDictionaryForChangeTypeOriginalPropertiesCurrentProperties(
      ChangeCollection& collection, std::int32_t changeType, const std::optional<Dictionary>& original,
      const std::optional<Dictionary>& current) const;
  /// Tells the notifiers what changed since the store was loaded or a save last told them, also while saves
  /// do not tell them. Notifiers that are set up wrongly are assertion failures, thrown when all others have
  /// been told. Does nothing but fail, as `saveAllAccounts` does, while the store is being saved.
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
  /// Whether there is a list of mail accounts from before there were registries.
  static bool _oldMailAccountsInformationFound();
  /// Whether there are preferences of the sync-accounts service from before there were registries.
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
  /// Changes what `dataVersion` tells. A save writes the current version in any case.
  void setDataVersion(std::int64_t version);

 protected:
  /// The path that this store's own class saves to.
  virtual std::string settingsPath() const;
  /// The fixers of a new store, in the order in which they are asked.
  virtual std::vector<std::shared_ptr<RSRuntimeFixProtocol>> _createRuntimeFixers() const;

  /// A store of a subclass, which must inherit the constructors, loaded from its settings path.
  template <class Store>
  static std::shared_ptr<Store> makeInsideOfMigration() {
    auto store = std::make_shared<Store>(Allocation{});
    store->loadSettingsFile();
    return store;
  }
  /// A store of a subclass, which must inherit the constructors, built from account dictionaries.
  template <class Store>
  static std::shared_ptr<Store> makeWithAccountsInfo(const Array& accounts) {
    auto store = std::make_shared<Store>(Allocation{});
    store->_initWithAccountsInfo(accounts);
    return store;
  }

  /// Loads a new store from the file at its settings path; called once, by the creation operations. A file
  /// that is missing or cannot be read gives an empty store; lines in the system log tell what cannot be
  /// used.
  void loadSettingsFile();
  /// Fills a new store with records of account dictionaries; called once, by the creation operations.
  /// Elements that are rejected are left out, with one line each in the system log.
  void _initWithAccountsInfo(const Array& accounts);

 private:
  ROSTER_HIDDEN std::optional<Error> announceAfterSync(std::optional<Error> error);
  ROSTER_HIDDEN Result<> mergeAndWrite(const std::vector<AccountPtr>& accounts) const;
  ROSTER_HIDDEN Result<> mergeAndWriteOnce(const std::vector<AccountPtr>& accounts, bool isLastAttempt) const;

  std::unique_ptr<StoreState> _state;
};

}  // namespace roster
