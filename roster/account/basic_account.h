#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "roster/account/account_protocols.h"
#include "roster/account/record_arena.h"
#include "roster/account/string_list.h"
#include "roster/account/vocabulary.h"
#include "roster/base/export.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

/// The record of one account: its properties, its parent if it is a child account, and a snapshot of the
/// properties as they were last loaded or saved.
///
/// Records are shared; identity is that of the object. A record has no lock: one thread uses it at a time. A
/// child keeps its parent alive, a parent does not keep its children.
///
/// A subclass derives from AccountSubclass, so that the creation operations sent to it make instances of it.
class ROSTER_EXPORT BasicAccount : public AccountFullAccountProtocol,
                                   public std::enable_shared_from_this<BasicAccount> {
 public:
  // ---- Creation

  /// A record of a new account, with a freshly drawn identifier that is also its sync identifier. An empty
  /// class name or a type that the type configuration does not know is an assertion failure.
  static std::shared_ptr<BasicAccount> accountWithTypeClass(std::string_view type,
                                                            std::string_view accountClass);
  /// A record of stored properties; nil, with the reason in the system log, when "Type" is not a known type
  /// or "Class" is missing or empty. Properties without "Identifier" get a fresh one.
  static std::shared_ptr<BasicAccount> accountWithProperties(const Dictionary& properties);
  /// The same.
  static std::shared_ptr<BasicAccount> initWithProperties(const Dictionary& properties);
  /// Always an assertion failure: a record is made from properties, or from a type and a class.
  static std::shared_ptr<BasicAccount> init();
  /// A fresh UUID in canonical text form, upper case; nil when the system gives no random bytes.
  static String createNewAccountUID();

  /// What a subclass passes on so that only the creation operations make instances.
  class Allocation {
    friend class BasicAccount;
    explicit Allocation() = default;
  };
  explicit BasicAccount(Allocation) {}
  BasicAccount(const BasicAccount&) = delete;
  BasicAccount& operator=(const BasicAccount&) = delete;
  ~BasicAccount() override;

  // ---- Properties

  /// The record's own value under the key, else its parent's, up the whole chain; nil when none has it.
  virtual Value accountPropertyForKey(std::string_view key) const;
  /// Puts the value under the key; nil removes it. "Class" and "Type" are silently left as they are.
  virtual void setAccountPropertyForKey(const Value& value, std::string_view key);
  /// Removes the record's own value; no key is protected.
  virtual void removeAccountPropertyForKey(std::string_view key);
  /// The live properties themselves: changes made through the result are changes of the record.
  MutableDictionary properties() const;
  /// What a save writes for this account.
  virtual Dictionary propertiesToSave() const { return currentProperties(); }

  // ---- Identity and words. Nil when neither the record nor a parent holds a text under the key.

  virtual String identifier() const;
  virtual String syncStoreIdentifier() const;
  virtual String displayName() const;
  String type() const;
  String accountClass() const;
  String typeString() const;
  String shortTypeString() const;
  /// Stores the class name unless it is the current one.
  void setAccountClass(std::string_view accountClass);
  /// The record in a few words for a log line.
  virtual std::string description() const;

  // ---- Family

  const std::shared_ptr<BasicAccount>& parentAccount() const { return _parentAccount; }
  void setParentAccount(std::shared_ptr<BasicAccount> parent) override { _parentAccount.swap(parent); }
  /// Nil for a top-level account.
  String parentAccountIdentifier() const;

  // ---- Snapshot

  /// The properties as last loaded or saved; later changes of the record do not reach them.
  const Dictionary& originalProperties() const { return _originalProperties; }
  /// Takes a deep, immutable copy.
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
  bool isEnabledForDataclass(std::string_view dataclass) const;
  /// Stores the dataclass as switched on or off. Ignored for a dataclass that the type does not support; one
  /// that is merely not provisioned or forbidden is stored, and filtered out when it is read.
  void setEnabledForDataclass(bool isEnabled, std::string_view dataclass);
  /// Switches on exactly these, of those supported. An empty list leaves no list stored.
  void setEnabledForDataclasses(const StringList& dataclasses);

  // ---- Full account and sync account: made by plug-in classes that the account-creators table names for the
  // account's type, at the first request, and then kept. A failure is not kept: the next request tries again.

  /// The object that implements the account in full. What is wrong with the table or the plug-in is an
  /// assertion failure; the result is nil when its handler returns. The loader, which may be nil, is asked
  /// only while there is no full account yet.
  std::shared_ptr<AccountFullAccountProtocol> fullAccountUsingLoader(AccountLoaderProtocol* loader);

  // Refreshing is the sync account's work; false when there is none. The short forms are refreshes that no
  // user waits for. `containerIdentifier` names a container of the account, as its server does.
  virtual bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view containerIdentifier,
                                                                         std::string_view dataclass,
                                                                         bool isUserRequested);
  virtual bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                               bool isUserRequested);
  virtual bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass, bool isUserRequested);
  bool refreshContainerWithIdentifierForDataclass(std::string_view containerIdentifier,
                                                  std::string_view dataclass);
  bool refreshContainerListForDataclass(std::string_view dataclass);
  bool refreshContainersForDataclass(std::string_view dataclass);

  /// A plain record has no credentials to renew: calls the handler at once with 3.
  void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) override;

  // ---- What types and dataclasses can do, from the library's configuration. Unknown ones answer nothing or
  // false. These may be called from any thread.

  /// Loads the type configuration, once per process; every other operation does so by itself. A configuration
  /// that is missing or unreadable is an assertion failure, and is tried again by the next call.
  static void initialize(bool (*isMultitaskingEnabledInClass)() = &BasicAccount::isMultitaskingEnabled);
  /// False only on processors of the "armv6" architecture.
  static bool isMultitaskingEnabled();
  /// The fourteen known dataclasses in canonical order.
  static const StringList& allSupportedDataclasses();
  /// In the configuration's order.
  static std::optional<StringList> supportedDataclassesForAccountType(std::string_view type);
  static std::optional<StringList> userActionsToEnableDataclassForAccountType(std::string_view dataclass,
                                                                              std::string_view type);
  static std::optional<StringList> userActionsToDisableDataclassForAccountType(std::string_view dataclass,
                                                                               std::string_view type);
  /// The list without its last "Keep Local Data": local data has nowhere to stay beside the account's.
  static std::optional<StringList> removeActionsIncompatibleWithSingleStoreDataclass(
      std::optional<StringList> actions);
  static std::optional<StringList> deleteAccountActionsForAccountType(std::string_view type);
  static bool showRemindersSeparatelyForAccountType(std::string_view type);
  static bool multipleStoresSupportedByDataclass(std::string_view dataclass);
  static bool displayToggleForDataclass(std::string_view dataclass);
  static bool userConfirmationIsRequiredByDataclass(std::string_view dataclass);

  // ---- Private

  /// Like setAccountPropertyForKey, "Class" and "Type" included.
  void _forcedSetAccountPropertyForKey(const Value& value, std::string_view key);
  /// Stores the name unless the record itself, not a parent, already has it. The name must not be nil.
  void setDisplayName(const String& name);
  /// Like setEnabledForDataclass, for any dataclass.
  void _forcedSetEnabledForDataclass(bool isEnabled, std::string_view dataclass);
  /// The account-creators table, read at the first call and again until that succeeds; nil when it is
  /// missing or unreadable. May be called from any thread.
  static const Dictionary* _accountCreationMap();
  /// The class that the last entry of this kind ("FullAccount", "SyncAccount") names for the type, after the
  /// libraries of all of them have been loaded. Nil when there is no entry. A malformed entry and a library
  /// that does not load are assertion failures.
  String _creatorClassNameForAccountTypeCreatorTypeLoader(std::string_view type, std::string_view creatorType,
                                                          AccountLoaderProtocol* loader) const;
  String fullAccountCreatorClassNameForAccountTypeLoader(std::string_view type,
                                                         AccountLoaderProtocol* loader) const;
  String syncAccountCreatorClassNameForAccountType(std::string_view type) const;
  /// Puts another full account, or nil, in place of the one that was made.
  void setFullAccount(std::shared_ptr<AccountFullAccountProtocol> fullAccount);

  // ---- Internal

  static std::shared_ptr<BasicAccount> _initWithTypeClass(std::string_view type,
                                                          std::string_view accountClass);
  /// Whether the type is a non-empty text and an entry of the type configuration.
  static bool _isValidAccountType(std::string_view type);
  /// Like initWithProperties, for a record that is loaded together with many others.
  static std::shared_ptr<BasicAccount> _initWithPropertiesInArena(const Dictionary& properties,
                                                                  const RecordArena& arena);
  /// The dataclass configuration, read anew; nothing when it is missing or unreadable.
  static std::optional<Dictionary> _dataclassesProperties();
  /// The account-creators table, read anew; nothing when it is missing or unreadable.
  static std::optional<Dictionary> _creatorsInfo();
  /// The sync account, made at the first request; nil when there is none, with the reason in the system log
  /// if one should have been there.
  std::shared_ptr<AccountRefreshProtocol> _cachedSyncAccount();
  StringList _orderedDataclasses(const StringList& dataclasses) const;
  /// What device management forbids at this moment.
  std::set<std::string, std::less<>> _profileRestrictedDataclasses() const;

 protected:
  /// Fills a fresh instance; false, with the reason in the system log, when the properties are rejected.
  virtual bool takeProperties(const Dictionary& properties);

  template <class Account>
  static std::shared_ptr<Account> makeWithProperties(const Dictionary& properties) {
    initialize(&Account::isMultitaskingEnabled);
    auto account = std::make_shared<Account>(Allocation{});
    return account->takeProperties(properties) ? account : nullptr;
  }
  template <class Account>
  static std::shared_ptr<Account> makeWithTypeClass(std::string_view type, std::string_view accountClass) {
    initialize(&Account::isMultitaskingEnabled);
    const std::optional<Dictionary> properties = propertiesOfNewAccount(type, accountClass);
    return properties ? makeWithProperties<Account>(*properties) : nullptr;
  }

 private:
  static std::optional<Dictionary> propertiesOfNewAccount(std::string_view type,
                                                          std::string_view accountClass);
  const Dictionary& currentProperties() const { return _properties ? *_properties : _originalProperties; }
  String textForKey(std::string_view key) const;
  std::shared_ptr<AccountFullAccountProtocol> makeFullAccount(const ClassObject& creator);
  std::optional<StringList> listForKey(std::string_view key) const;

  Dictionary _originalProperties;
  /// The live properties. Most records of a registry are never changed: as long as nobody asks for these,
  /// they are the original ones.
  mutable std::optional<MutableDictionary> _properties;
  /// Does not own the record itself when that is its own full account.
  std::shared_ptr<AccountFullAccountProtocol> _fullAccount;
  std::shared_ptr<AccountRefreshProtocol> _syncAccount;
  std::shared_ptr<BasicAccount> _parentAccount;
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
  static std::shared_ptr<Self> accountWithTypeClass(std::string_view type, std::string_view accountClass) {
    return BasicAccount::makeWithTypeClass<Self>(type, accountClass);
  }
  static std::shared_ptr<Self> accountWithProperties(const Dictionary& properties) {
    return BasicAccount::makeWithProperties<Self>(properties);
  }
  static std::shared_ptr<Self> initWithProperties(const Dictionary& properties) {
    return BasicAccount::makeWithProperties<Self>(properties);
  }
  static std::shared_ptr<Self> _initWithTypeClass(std::string_view type, std::string_view accountClass) {
    return BasicAccount::makeWithTypeClass<Self>(type, accountClass);
  }
};

}  // namespace roster
