#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "roster/account/account_protocols.h"
#include "roster/account/string_list.h"
#include "roster/account/vocabulary.h"
#include "roster/base/export.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

class RecordArena;
class RecordContents;
class SavedProperties;

/// The record of one account: its properties, its parent if it is a child account, and a snapshot of the
/// properties as they were last loaded or saved.
///
/// Records are shared; identity is that of the object. A record has no lock: one thread uses it at a time. A
/// child keeps its parent alive, a parent does not keep its children.
///
/// A subclass derives from AccountSubclass, so that the creation operations sent to it make instances of it.
/// Unlike other exported classes, a record has its state in the object itself and not behind a pointer: a
/// registry holds thousands of them.
class ROSTER_EXPORT BasicAccount : public AccountFullAccountProtocol,
                                   public std::enable_shared_from_this<BasicAccount> {
 public:
  // ---- Creation

  /// A record of a new account, with a freshly drawn identifier that is also its sync identifier. An empty
  /// class name, or a type that the type configuration does not know, is an assertion failure, and the result
  /// is nil when its handler returns.
  [[nodiscard]] static AccountPtr accountWithTypeClass(std::string_view type, std::string_view accountClass);
  /// A record of stored properties; nil, with the reason in the system log, when "Type" is not a known type
  /// or "Class" is missing or empty. Properties without "Identifier" get a fresh one. Later changes of the
  /// record do not reach the given dictionary.
  [[nodiscard]] static AccountPtr accountWithProperties(const Dictionary& properties);
  /// The same as accountWithProperties.
  [[nodiscard]] static AccountPtr initWithProperties(const Dictionary& properties);
  /// Always an assertion failure: a record is made from properties, or from a type and a class. Nil when the
  /// handler returns.
  static AccountPtr init();
  /// A fresh UUID in canonical text form, upper case; nil when the system gives no random bytes.
  [[nodiscard]] static String createNewAccountUID();

  /// What a subclass passes on to its base; only the creation operations have one, so that only they make
  /// instances.
  class Allocation {
    friend class BasicAccount;
    friend class RecordArena;
    explicit Allocation() = default;
  };
  /// An instance without properties, for the creation operations, which fill it. A subclass inherits it.
  explicit BasicAccount(Allocation) {}
  /// Not copyable: a record is known by its identity.
  BasicAccount(const BasicAccount&) = delete;
  /// Not assignable: a record is known by its identity.
  BasicAccount& operator=(const BasicAccount&) = delete;
  /// Lets go of the parent, and of the full account and the sync account that were made.
  ~BasicAccount() override;

  // ---- Properties

  /// The record's own value under the key, else its parent's, up the whole chain; nil when none has it. All
  /// getters and lists read through it, so a subclass that overrides it decides what they answer; where it
  /// answers nil, they find nothing.
  virtual Value accountPropertyForKey(std::string_view key) const;
  /// Puts the value under the key; nil removes it. "Class" and "Type" are silently left as they are.
  virtual void setAccountPropertyForKey(const Value& value, std::string_view key);
  /// Removes the record's own value; no key is protected.
  virtual void removeAccountPropertyForKey(std::string_view key);
  /// The live properties themselves: changes made through the result are changes of the record.
  MutableDictionary properties() const;
  /// What a save writes for this account: its live `properties`, unless a subclass leaves out or adds some.
  virtual Dictionary propertiesToSave() const;

  // ---- Identity and words

  /// The text under "Identifier", else the parent's; nil when neither the record nor a parent holds one.
  virtual String identifier() const;
  /// The text under "Sync Identifier", else the parent's; nil when none holds one.
  virtual String syncStoreIdentifier() const;
  /// The text under "DisplayName", else the parent's; nil when none holds one.
  virtual String displayName() const;
  /// The text under "Type", else the parent's; nil when none holds one.
  String type() const;
  /// The text under "Class", else the parent's; nil when none holds one.
  String accountClass() const;
  /// The text under "Type String", else the parent's; nil when none holds one.
  String typeString() const;
  /// The text under "Short Type String", else the parent's; nil when none holds one.
  String shortTypeString() const;
  /// Stores the class name unless it is the current one.
  void setAccountClass(std::string_view accountClass);
  /// The record in a few words for a log line.
  virtual std::string description() const;

  // ---- Family

  /// The parent's record; nil for a top-level account.
  const AccountPtr& parentAccount() const { return _parentAccount; }
  /// Puts the account below another, or makes it a top-level one with nil. The record keeps its parent. A
  /// parent that is the record itself or has it above itself is an assertion failure and changes nothing.
  void setParentAccount(AccountPtr parent) override;
  /// The parent's identifier; nil for a top-level account.
  String parentAccountIdentifier() const;

  // ---- Snapshot

  /// The properties as last loaded or saved; later changes of the record do not reach them.
  const Dictionary& originalProperties() const { return _originalProperties; }
  /// Takes a deep, immutable copy. The live properties stay as they are.
  void setOriginalProperties(const Dictionary& properties);

  // ---- Dataclasses. Every list is in canonical order, unknown strings after the known ones; nothing is
  // cached.

  /// What the account's type supports; empty for an unknown type.
  virtual StringList supportedDataclasses() const;
  /// What the account was set up for, as far as it is supported and not forbidden on this device.
  virtual StringList provisionedDataclasses() const;
  /// What is switched on, as far as it is provisioned; the parent's list while that is not empty. Nothing
  /// when neither stores a list.
  virtual std::optional<StringList> enabledDataclasses() const;
  /// Whether the dataclass is among the enabled ones.
  bool isEnabledForDataclass(std::string_view dataclass) const;
  /// Stores the dataclass as switched on or off. Ignored for a dataclass that the type does not support; one
  /// that is merely not provisioned or forbidden is stored, and filtered out when it is read.
  void setEnabledForDataclass(bool isEnabled, std::string_view dataclass);
  /// Switches on exactly these, of those supported. An empty list leaves no list stored.
  void setEnabledForDataclasses(const StringList& dataclasses);

  // ---- Full account and sync account: made by plug-in classes that the account-creators table names for the
  // account's type, at the first request, and then kept. A failure is not kept: the next request tries again.

  /// The object that implements the account in full. What is wrong with the table or the plug-in is an
  /// assertion failure; the result is nil when its handler returns. So is a creator or a loader that asks for
  /// the account that it is making. The loader, which may be nil, is asked only while there is no full
  /// account yet. The record keeps the result.
  std::shared_ptr<AccountFullAccountProtocol> fullAccountUsingLoader(AccountLoaderProtocol* loader);

  /// Asks the sync account to refresh the contents of one container, named as the account's server names it.
  /// True when a refresh was begun, false when not or when there is no sync account.
  virtual bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view containerIdentifier,
                                                                         std::string_view dataclass,
                                                                         bool isUserRequested);
  /// Asks the sync account to refresh which containers there are. True when a refresh was begun, false when
  /// not or when there is no sync account.
  virtual bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                               bool isUserRequested);
  /// Asks the sync account to refresh the contents of all containers. True when a refresh was begun, false
  /// when not or when there is no sync account.
  virtual bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass, bool isUserRequested);
  /// Refreshes one container without a user's request.
  bool refreshContainerWithIdentifierForDataclass(std::string_view containerIdentifier,
                                                  std::string_view dataclass);
  /// Refreshes the list of containers without a user's request.
  bool refreshContainerListForDataclass(std::string_view dataclass);
  /// Refreshes all containers without a user's request.
  bool refreshContainersForDataclass(std::string_view dataclass);

  /// A plain record has no credentials to renew: calls the handler, which must not be empty, at once with 3.
  void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) override;

  // ---- What types and dataclasses can do, from the library's configuration. These may be called from any
  // thread.

  /// Loads the type configuration, once per process; every other operation does so by itself. A configuration
  /// that is missing or unreadable is an assertion failure, and is tried again by the next call; until then
  /// no type is known. The argument is the receiving class's answer to isMultitaskingEnabled.
  static void initialize(bool (*isMultitaskingEnabledInClass)() = &BasicAccount::isMultitaskingEnabled);
  /// False only on processors of the "armv6" architecture.
  static bool isMultitaskingEnabled();
  /// The fourteen known dataclasses in canonical order.
  static const StringList& allSupportedDataclasses();
  /// What the type supports, in the configuration's order; nothing for an unknown type.
  static std::optional<StringList> supportedDataclassesForAccountType(std::string_view type);
  /// What the user may choose from when the dataclass is switched on in an account of the type, in the order
  /// in which it is offered; nothing for an unknown type.
  static std::optional<StringList> userActionsToEnableDataclassForAccountType(std::string_view dataclass,
                                                                              std::string_view type);
  /// The same for switching the dataclass off.
  static std::optional<StringList> userActionsToDisableDataclassForAccountType(std::string_view dataclass,
                                                                               std::string_view type);
  /// The list without its last "Keep Local Data": where a dataclass has only one store on the device, local
  /// data cannot stay beside the account's.
  static std::optional<StringList> removeActionsIncompatibleWithSingleStoreDataclass(
      std::optional<StringList> actions);
  /// What the user may choose from when an account of the type is deleted, in the order in which it is
  /// offered; nothing for an unknown type and for one that leaves nothing behind.
  static std::optional<StringList> deleteAccountActionsForAccountType(std::string_view type);
  /// Whether reminders of the type are shown apart from its calendars; false for an unknown type.
  static bool showRemindersSeparatelyForAccountType(std::string_view type);
  /// Whether several accounts can hold such data side by side on the device; false for an unknown dataclass.
  static bool multipleStoresSupportedByDataclass(std::string_view dataclass);
  /// Whether an account's settings show a switch for the dataclass; false for an unknown one.
  static bool displayToggleForDataclass(std::string_view dataclass);
  /// Whether the user is asked before the switch takes effect; false for an unknown dataclass.
  static bool userConfirmationIsRequiredByDataclass(std::string_view dataclass);

  // ---- Additions to the system's operations. These may be called from any thread.

  /// The account types that this device knows: those of the vocabulary first, in its order, then others that
  /// the device's type configuration adds, in that one's order. Empty until the configuration could be loaded
  /// (see initialize); then it stays the same for the life of the process.
  static const StringList& allAccountTypes();
  /// The type's name for people, in the user's language or else in English; nil for a type that the library's
  /// texts do not name.
  static String localizedNameForAccountType(std::string_view type);
  /// The dataclass's name for people, in the user's language or else in English; nil for one that the
  /// library's texts do not name.
  static String localizedNameForDataclass(std::string_view dataclass);

  // ---- Private

  /// Like setAccountPropertyForKey, "Class" and "Type" included.
  void _forcedSetAccountPropertyForKey(const Value& value, std::string_view key);
  /// Stores the name unless the record itself, not a parent, already has it. A nil name is an assertion
  /// failure and changes nothing.
  void setDisplayName(const String& name);
  /// Like setEnabledForDataclass, for any dataclass.
  void _forcedSetEnabledForDataclass(bool isEnabled, std::string_view dataclass);
  /// The account-creators table, read at the first call and again until that succeeds; nil when it is
  /// missing or unreadable. Valid for the life of the process. May be called from any thread.
  static const Dictionary* _accountCreationMap();
  /// The class that the last entry of this kind ("FullAccount", "SyncAccount") names for the type, after the
  /// libraries of all of them have been loaded. Nil when there is no entry. A malformed entry and a library
  /// that does not load are assertion failures, and the result is nil when the handler returns.
  String _creatorClassNameForAccountTypeCreatorTypeLoader(std::string_view type, std::string_view creatorType,
                                                          AccountLoaderProtocol* loader) const;
  /// The same for the "FullAccount" kind.
  String fullAccountCreatorClassNameForAccountTypeLoader(std::string_view type,
                                                         AccountLoaderProtocol* loader) const;
  /// The same for the "SyncAccount" kind, for which no loader is asked.
  String syncAccountCreatorClassNameForAccountType(std::string_view type) const;
  /// Puts another full account, or nil, in place of the one that was made. The record keeps it, unless it is
  /// the record itself.
  void setFullAccount(std::shared_ptr<AccountFullAccountProtocol> fullAccount);

  // ---- Internal

  /// The same as accountWithTypeClass.
  [[nodiscard]] static AccountPtr _initWithTypeClass(std::string_view type, std::string_view accountClass);
  /// Whether the type is a non-empty text and an entry of the type configuration.
  static bool _isValidAccountType(std::string_view type);
  /// The dataclass configuration, read anew; nothing when it is missing or unreadable.
  static std::optional<Dictionary> _dataclassesProperties();
  /// The account-creators table, read anew; nothing when it is missing or unreadable.
  static std::optional<Dictionary> _creatorsInfo();
  /// The sync account, made at the first request and kept; nil when there is none, with the reason in the
  /// system log if one should have been there.
  std::shared_ptr<AccountRefreshProtocol> _cachedSyncAccount();
  /// The known ones of the list in canonical order, each once, then the others as they were given.
  StringList _orderedDataclasses(const StringList& dataclasses) const;
  /// What device management forbids at this moment.
  std::set<std::string, std::less<>> _profileRestrictedDataclasses() const;

 protected:
  /// Fills a fresh instance; false, with the reason in the system log, when the properties are rejected. A
  /// subclass that overrides it calls its base's first.
  [[nodiscard]] virtual bool takeProperties(const Dictionary& properties);

  /// What a new account starts from; nothing after an assertion failure whose handler returns.
  static std::optional<Dictionary> propertiesOfNewAccount(std::string_view type,
                                                          std::string_view accountClass);

  /// Makes an instance of a subclass as accountWithProperties says; nil when its properties are rejected.
  template <class Account>
  static std::shared_ptr<Account> makeWithProperties(const Dictionary& properties) {
    initialize(&Account::isMultitaskingEnabled);
    auto account = std::make_shared<Account>(Allocation{});
    return account->takeProperties(properties) ? account : nullptr;
  }

  /// Makes an instance of a subclass as accountWithTypeClass says.
  template <class Account>
  static std::shared_ptr<Account> makeWithTypeClass(std::string_view type, std::string_view accountClass) {
    initialize(&Account::isMultitaskingEnabled);
    const std::optional<Dictionary> properties = propertiesOfNewAccount(type, accountClass);
    return properties ? makeWithProperties<Account>(*properties) : nullptr;
  }

 private:
  friend class RecordArena;
  friend class RecordContents;
  friend class SavedProperties;

  ROSTER_HIDDEN const Dictionary& currentProperties() const;
  ROSTER_HIDDEN String textForKey(std::string_view key) const;
  ROSTER_HIDDEN std::shared_ptr<AccountFullAccountProtocol> makeFullAccount(const ClassObject& creator);
  ROSTER_HIDDEN std::optional<Array> listForKey(std::string_view key) const;

  Dictionary _originalProperties;
  /// The live properties. Most records of a registry are never changed: as long as nobody asks for these,
  /// they are the original ones.
  mutable std::optional<MutableDictionary> _properties;
  /// Does not own the record itself when that is its own full account.
  std::shared_ptr<AccountFullAccountProtocol> _fullAccount;
  std::shared_ptr<AccountRefreshProtocol> _syncAccount;
  AccountPtr _parentAccount;
};

/// The base of a subclass of records: the creation operations sent to `Self` make instances of `Self`.
///
///     class PhotoAccount : public roster::AccountSubclass<PhotoAccount> {
///      public:
///       using AccountSubclass::AccountSubclass;
///     };
template <class Self, class Base = BasicAccount>
class AccountSubclass : public Base {
 public:
  using Base::Base;
  /// Like BasicAccount::accountWithTypeClass, an instance of `Self`.
  [[nodiscard]] static std::shared_ptr<Self> accountWithTypeClass(std::string_view type,
                                                                  std::string_view accountClass) {
    return BasicAccount::makeWithTypeClass<Self>(type, accountClass);
  }
  /// Like BasicAccount::accountWithProperties, an instance of `Self`.
  [[nodiscard]] static std::shared_ptr<Self> accountWithProperties(const Dictionary& properties) {
    return BasicAccount::makeWithProperties<Self>(properties);
  }
  /// The same as accountWithProperties.
  [[nodiscard]] static std::shared_ptr<Self> initWithProperties(const Dictionary& properties) {
    return BasicAccount::makeWithProperties<Self>(properties);
  }
  /// The same as accountWithTypeClass.
  [[nodiscard]] static std::shared_ptr<Self> _initWithTypeClass(std::string_view type,
                                                                std::string_view accountClass) {
    return BasicAccount::makeWithTypeClass<Self>(type, accountClass);
  }
};

}  // namespace roster
