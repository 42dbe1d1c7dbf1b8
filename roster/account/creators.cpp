#include <atomic>
#include <utility>

#include "roster/account/basic_account.h"
#include "roster/account/creator_entries.h"
#include "roster/base/foreign_code.h"
#include "roster/platform/assertion.h"
#include "roster/platform/system_log.h"

namespace roster {

namespace {

constexpr std::string_view sourceFile = "BasicAccount";
constexpr std::string_view classNameOperation =
    "-[BasicAccount _creatorClassNameForAccountType:creatorType:loader:]";
constexpr std::string_view fullAccountOperation = "-[BasicAccount fullAccountUsingLoader:]";
constexpr std::int32_t nothingToRenew = 3;

String reported(std::string fault, unsigned line = __builtin_LINE()) {
  assertionFailed(classNameOperation, sourceFile, std::move(fault), line);
  return {};
}

/// What the creator makes; nil, with its text in the system log, when it throws instead.
template <class Make>
auto madeBy(const ClassObject& creator, const Make& make) -> decltype(make()) {
  auto made = runForeignCode(make);
  if (made) return *std::move(made);
  systemLog("ERROR: The account creator %@ failed: %@", creator.name(), made.error().message);
  return nullptr;
}

/// The records of this thread whose full or sync account is being made. Foreign code does the making, and may
/// ask for the very account.
class Making {
 public:
  enum class Kind { fullAccount, syncAccount };
  Making(const BasicAccount& record, Kind kind) : record_(&record), kind_(kind), outer_(innermost()) {
    for (const Making* other = outer_; other != nullptr; other = other->outer_) {
      if (other->record_ == record_ && other->kind_ == kind_) isRepeated_ = true;
    }
    innermost() = this;
  }
  Making(const Making&) = delete;
  Making& operator=(const Making&) = delete;
  ~Making() { innermost() = outer_; }

  /// Whether a call further out makes the same account already.
  bool isRepeated() const { return isRepeated_; }

 private:
  static Making*& innermost() {
    // Of the thread, not of the process. NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
    thread_local Making* making = nullptr;
    return making;
  }

  const BasicAccount* record_;
  Kind kind_;
  Making* outer_;
  bool isRepeated_ = false;
};

}  // namespace

const Dictionary* BasicAccount::_accountCreationMap() {
  static std::atomic<const Dictionary*> _accountCreationMap = nullptr;
  if (const Dictionary* known = _accountCreationMap.load(std::memory_order_acquire)) return known;
  const std::optional<Dictionary> read = _creatorsInfo();
  if (!read) return nullptr;
  auto table = std::make_unique<const Dictionary>(*read);
  const Dictionary* first = nullptr;
  // Two threads may both have read it; the table of the first one stays.
  if (_accountCreationMap.compare_exchange_strong(first, table.get(), std::memory_order_acq_rel)) {
    return table.release();
  }
  return first;
}

String BasicAccount::_creatorClassNameForAccountTypeCreatorTypeLoader(std::string_view type,
                                                                      std::string_view creatorType,
                                                                      AccountLoaderProtocol* loader) const {
  // The loader and the libraries may drop the record, and with it the text that the view is of.
  const std::shared_ptr<const BasicAccount> kept = shared_from_this();
  const String keptType(type);
  type = keptType;
  const std::optional<Array> entries = creatorEntriesForAccountType(type);
  if (!entries) return reported(creator_faults::noInformation(type));
  String className;
  for (const Value& element : *entries) {
    const CreatorEntry entry(element);
    if (!(entry.creatorType == creatorType)) continue;
    if (!entry.description) return reported(creator_faults::noDescription(creatorType, type));
    const bool isMadeAvailable = loader != nullptr && creatorType == fullAccountCreatorType &&
                                 loader->loadBundleForAccountWithProperties(properties());
    if (!isMadeAvailable) {
      const String path = entry.framework();
      if (path.isNil()) return reported(creator_faults::noFramework(creatorType, type));
      const Result<> loaded = loadCreatorFramework(path);
      if (!loaded) return reported(creator_faults::notLoaded(path, loaded.error().message));
    }
    className = entry.className();
    if (className.isEmpty()) return reported(creator_faults::noClassName(creatorType, type));
  }
  return className;
}

String BasicAccount::fullAccountCreatorClassNameForAccountTypeLoader(std::string_view type,
                                                                     AccountLoaderProtocol* loader) const {
  return _creatorClassNameForAccountTypeCreatorTypeLoader(type, fullAccountCreatorType, loader);
}

String BasicAccount::syncAccountCreatorClassNameForAccountType(std::string_view type) const {
  return _creatorClassNameForAccountTypeCreatorTypeLoader(type, syncAccountCreatorType, nullptr);
}

std::shared_ptr<AccountFullAccountProtocol> BasicAccount::fullAccountUsingLoader(
    AccountLoaderProtocol* loader) {
  // Foreign code may drop every other handle of the record.
  const AccountPtr kept = shared_from_this();
  if (!_fullAccount) {
    const Making making(*this, Making::Kind::fullAccount);
    if (making.isRepeated()) {
      assertionFailed(fullAccountOperation, sourceFile,
                      formatted("The creator of the account with id %@ asks for that account", identifier()));
      return nullptr;
    }
    const String className = fullAccountCreatorClassNameForAccountTypeLoader(type(), loader);
    const ClassObject* creator = findClass(className);
    if (creator == nullptr) {
      assertionFailed(fullAccountOperation, sourceFile,
                      creator_faults::unknownClass(fullAccountCreatorType, className));
      return nullptr;
    }
    std::shared_ptr<AccountFullAccountProtocol> made =
        madeBy(*creator, [&] { return makeFullAccount(*creator); });
    if (!made) {
      assertionFailed(
          fullAccountOperation, sourceFile,
          formatted("Could not create the account with class %@ and id %@", className, identifier()));
      return nullptr;
    }
    made->setParentAccount(_parentAccount);
    setFullAccount(std::move(made));
  }
  if (_fullAccount.get() == this) return kept;
  return _fullAccount;
}

/// Nil when the creator answers none of the operations, or answers nil.
std::shared_ptr<AccountFullAccountProtocol> BasicAccount::makeFullAccount(const ClassObject& creator) {
  const auto* protocol = creator.as<AccountCreationProtocol>();
  if (protocol == nullptr) return nullptr;
  if (protocol->classForAccountType) {
    const ClassObject* accountClass = protocol->classForAccountType(type());
    if (accountClass == nullptr) return nullptr;
    return requiredOperation(*accountClass, &AccountInstantiationProtocol::initWithProperties,
                             "initWithProperties:")(properties());
  }
  if (!protocol->accountWithBasicAccount) return nullptr;
  return protocol->accountWithBasicAccount(shared_from_this());
}

void BasicAccount::setFullAccount(std::shared_ptr<AccountFullAccountProtocol> fullAccount) {
  if (fullAccount.get() == this) {
    // A record that is its own full account would keep itself alive for ever.
    _fullAccount = std::shared_ptr<AccountFullAccountProtocol>(std::shared_ptr<void>(), this);
  } else {
    _fullAccount.swap(fullAccount);
  }
}

std::shared_ptr<AccountRefreshProtocol> BasicAccount::_cachedSyncAccount() {
  if (_syncAccount) return _syncAccount;
  const AccountPtr kept = shared_from_this();
  const Making making(*this, Making::Kind::syncAccount);
  if (making.isRepeated()) {
    systemLog("ERROR: The creator of the sync account with id %@ asks for that account", identifier());
    return nullptr;
  }
  const String className = syncAccountCreatorClassNameForAccountType(type());
  if (className.isNil()) return nullptr;
  const ClassObject* creator = findClass(className);
  if (creator == nullptr) {
    systemLog("ERROR: %@, so there is no syncable account for basic account with properties %@",
              creator_faults::unknownClass(syncAccountCreatorType, className), properties());
    return nullptr;
  }
  _syncAccount = madeBy(*creator, [&] {
    return requiredOperation(*creator, &SyncAccountCreationProtocol::accountToRefreshForBasicAccount,
                             "accountToRefreshForBasicAccount:")(kept);
  });
  if (!_syncAccount) {
    systemLog("ERROR: Could not create the account with class %@ and id %@", className, identifier());
  }
  return _syncAccount;
}

bool BasicAccount::refreshContainerWithIdentifierForDataclassIsUserRequested(
    std::string_view containerIdentifier, std::string_view dataclass, bool isUserRequested) {
  const std::shared_ptr<AccountRefreshProtocol> account = _cachedSyncAccount();
  return account && account->refreshContainerWithIdentifierForDataclassIsUserRequested(
                        containerIdentifier, dataclass, isUserRequested);
}

bool BasicAccount::refreshContainerListForDataclassIsUserRequested(std::string_view dataclass,
                                                                   bool isUserRequested) {
  const std::shared_ptr<AccountRefreshProtocol> account = _cachedSyncAccount();
  return account && account->refreshContainerListForDataclassIsUserRequested(dataclass, isUserRequested);
}

bool BasicAccount::refreshContainersForDataclassIsUserRequested(std::string_view dataclass,
                                                                bool isUserRequested) {
  const std::shared_ptr<AccountRefreshProtocol> account = _cachedSyncAccount();
  return account && account->refreshContainersForDataclassIsUserRequested(dataclass, isUserRequested);
}

bool BasicAccount::refreshContainerWithIdentifierForDataclass(std::string_view containerIdentifier,
                                                              std::string_view dataclass) {
  return refreshContainerWithIdentifierForDataclassIsUserRequested(containerIdentifier, dataclass, false);
}

bool BasicAccount::refreshContainerListForDataclass(std::string_view dataclass) {
  return refreshContainerListForDataclassIsUserRequested(dataclass, false);
}

bool BasicAccount::refreshContainersForDataclass(std::string_view dataclass) {
  return refreshContainersForDataclassIsUserRequested(dataclass, false);
}

void BasicAccount::renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) {
  handler(nothingToRenew);
}

}  // namespace roster
