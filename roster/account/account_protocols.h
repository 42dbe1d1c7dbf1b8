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

/// Receives the result of a credential renewal; what the numbers mean is between the account's plug-in and
/// its caller.
using CredentialRenewalHandler = std::function<void(std::int32_t result)>;

/// What every full account answers, and every basic record too, so that a record can stand where a full
/// account is expected.
class ROSTER_EXPORT AccountFullAccountProtocol {
 public:
  virtual ~AccountFullAccountProtocol() = default;

  /// Renews the account's credentials and calls the handler, which must not be empty, once with the result.
  virtual void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) = 0;
  /// Learns, once it has been made, the record of the parent account; nil for a top-level account. A full
  /// account that has no use for it need not answer.
  // NOLINTNEXTLINE(performance-unnecessary-value-param): those who answer keep it
  virtual void setParentAccount(std::shared_ptr<BasicAccount> /*parent*/) {}
};

/// A sync account: refreshes what an account's server holds. Each operation answers whether a refresh was
/// begun.
class ROSTER_EXPORT AccountRefreshProtocol {
 public:
  virtual ~AccountRefreshProtocol() = default;

  /// Refreshes the contents of one container (a mailbox, a calendar).
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

// What the classes answer that make an account's other objects. A plug-in registers a class object with the
// protocols it needs; the account-creators table says which class serves which type. All functions are called
// on the thread that asked for the object. One that throws has made nothing: its text goes to the system log.

class BasicAccount;

/// A record, shared between the store and whoever asked for it; its identity is that of the object.
using AccountPtr = std::shared_ptr<BasicAccount>;

/// Makes the full account of a record. Both operations are optional; when both are answered, the first is
/// used.
struct ROSTER_EXPORT AccountCreationProtocol {
  /// The class whose instance, made of the record's properties, is the full account: a class object that
  /// answers AccountInstantiationProtocol, or nil.
  std::function<const ClassObject*(std::string_view type)> classForAccountType{};
  /// The full account itself, or nil. The record keeps it; whatever it keeps of the record must not keep the
  /// record alive. The record itself is a valid answer.
  std::function<std::shared_ptr<AccountFullAccountProtocol>(const std::shared_ptr<BasicAccount>& account)>
      accountWithBasicAccount{};
};

/// Makes instances of a class of full accounts.
struct ROSTER_EXPORT AccountInstantiationProtocol {
  /// A new instance with these properties; nil when they are rejected. Required.
  std::function<std::shared_ptr<AccountFullAccountProtocol>(const Dictionary& properties)>
      initWithProperties{};

  /// That of a subclass of BasicAccount.
  template <class Account>
  static AccountInstantiationProtocol of() {
    return {[](const Dictionary& properties) { return Account::initWithProperties(properties); }};
  }
};

/// Makes the sync account of a record.
struct ROSTER_EXPORT SyncAccountCreationProtocol {
  /// The sync account, or nil. The record keeps it; it must not keep the record alive. Required.
  std::function<std::shared_ptr<AccountRefreshProtocol>(const std::shared_ptr<BasicAccount>& account)>
      accountToRefreshForBasicAccount{};
};

/// Makes the code of full-account classes available in its own way, so that no library need be loaded by
/// path. Whoever asks for a full account may pass one.
class ROSTER_EXPORT AccountLoaderProtocol {
 public:
  virtual ~AccountLoaderProtocol() = default;
  /// True when the class that creates this account is known now; false to have the library loaded by path.
  virtual bool loadBundleForAccountWithProperties(const Dictionary& properties) = 0;
};

}  // namespace roster
