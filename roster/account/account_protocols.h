#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "roster/base/export.h"
#include "roster/platform/class_table.h"
#include "roster/value/value.h"

namespace roster {

class BasicAccount;

/// A record, shared between the store and whoever asked for it; its identity is that of the object.
using AccountPtr = std::shared_ptr<BasicAccount>;

// ---- What an account's other objects answer

/// Receives the result of a credential renewal; the meaning of the number is agreed between the account's
/// plug-in and its caller.
using CredentialRenewalHandler = std::function<void(std::int32_t result)>;

/// What every full account answers, and every basic record too, so that a record can stand where a full
/// account is expected.
class ROSTER_EXPORT AccountFullAccountProtocol {
 public:
  /// A full account is destroyed with the last of its owners; its record is one.
  virtual ~AccountFullAccountProtocol() = default;

  /// Renews the account's credentials and calls the handler, which must not be empty, once with the result.
  virtual void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) = 0;
  /// Is called once the full account has been made, with the record of the parent account, or nil for a
  /// top-level account. Optional: by default nothing happens.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): overriders keep it
  virtual void setParentAccount(AccountPtr /*parent*/) {}
};

/// A sync account: refreshes what an account's server holds. Each operation answers whether a refresh was
/// begun, and does not wait for its end.
class ROSTER_EXPORT AccountRefreshProtocol {
 public:
  /// A sync account is destroyed with the last of its owners; its record is one.
  virtual ~AccountRefreshProtocol() = default;

  /// Refreshes the contents of one container (a mailbox, a calendar), named as the server names it.
  virtual bool refreshContainerWithIdentifierForDataclassIsUserRequested(std::string_view identifier,
                                                                         std::string_view dataclass,
                                                                         bool isUserRequested) = 0;
  /// Refreshes which containers there are.
  virtual bool refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                               bool isUserRequested) = 0;
  /// Refreshes the contents of all containers.
  virtual bool refreshContainersForDataclassIsUserRequested(std::string_view dataclass,
                                                            bool isUserRequested) = 0;
};

/// Makes the code of full-account classes available in its own way, so that no library need be loaded by
/// path. A caller that asks for a full account may pass one.
class ROSTER_EXPORT AccountLoaderProtocol {
 public:
  /// A loader belongs to whoever passes it.
  virtual ~AccountLoaderProtocol() = default;
  /// True when the class that creates this account is known now; false to have the library loaded by path.
  virtual bool loadBundleForAccountWithProperties(const Dictionary& properties) = 0;
};

// ---- What the classes answer that make those objects. A plug-in registers a class object with the protocols
// it needs; the account-creators table says which class serves which type. All functions are called on the
// thread that asked for the object. One that throws has made nothing: its text goes to the system log.

/// Makes the full account of a record. Both operations are optional; when both are answered, the first is
/// used.
struct ROSTER_EXPORT AccountCreationProtocol {
  /// The class whose instance, made of the record's properties, is the full account: a class object that
  /// answers AccountInstantiationProtocol, or nil.
  std::function<const ClassObject*(std::string_view type)> classForAccountType{};
  /// The full account itself, or nil. The record keeps it; whatever it keeps of the record must not keep the
  /// record alive. The record itself is a valid answer.
  std::function<std::shared_ptr<AccountFullAccountProtocol>(const AccountPtr& account)>
      accountWithBasicAccount{};
};

/// Makes instances of a class of full accounts.
struct ROSTER_EXPORT AccountInstantiationProtocol {
  /// A new instance with these properties; nil when they are rejected. Required.
  std::function<std::shared_ptr<AccountFullAccountProtocol>(const Dictionary& properties)>
      initWithProperties{};

  /// The protocol as a subclass of BasicAccount answers it: with its own initWithProperties.
  template <class Account>
  static AccountInstantiationProtocol of() {
    return {[](const Dictionary& properties) { return Account::initWithProperties(properties); }};
  }
};

/// Makes the sync account of a record.
struct ROSTER_EXPORT SyncAccountCreationProtocol {
  /// The sync account, or nil. The record keeps it; it must not keep the record alive. Required.
  std::function<std::shared_ptr<AccountRefreshProtocol>(const AccountPtr& account)>
      accountToRefreshForBasicAccount{};
};

}  // namespace roster
