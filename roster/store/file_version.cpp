#include "roster/store/file_version.h"

#include <map>
#include <string>

#include "roster/account/basic_account.h"
#include "roster/account/saved_properties.h"
#include "roster/platform/system_log.h"
#include "roster/store/account_merge.h"
#include "roster/store/salvage.h"
#include "roster/value/mutable_dictionary.h"

namespace roster {

namespace {

/// Hands out the identifiers that nameless accounts are known by, each once, by equal contents; equal
/// accounts in their order, so that they stay in it.
class KnownIdentifiers {
 public:
  explicit KnownIdentifiers(const std::vector<NamelessAccount>& known) {
    for (std::size_t index = known.size(); index-- > 0;) {
      byContents_[contentsKey(known[index].stored)].push_back(&known[index]);
    }
  }

  /// Nil for an account that has an identifier, or that nobody knows.
  String take(const Dictionary& stored) {
    if (byContents_.empty() || !storedIdentifier(stored).isNil()) return {};
    const auto found = byContents_.find(contentsKey(stored));
    if (found == byContents_.end() || found->second.empty()) return {};
    String identifier = found->second.back()->identifier;
    found->second.pop_back();
    return identifier;
  }

 private:
  std::map<std::string, std::vector<const NamelessAccount*>> byContents_;
};

Dictionary withIdentifier(const Dictionary& stored, const String& identifier) {
  auto named = MutableDictionary::copyOf(stored);
  named.set(kAccountIdentifier, identifier);
  if (!stored.find(kAccountSyncIdentifier).isString()) named.set(kAccountSyncIdentifier, identifier);
  return named.deepCopy();
}

/// Shows accounts to the fixers, as a load does.
class Repair {
 public:
  explicit Repair(const RuntimeFixers& fixers) : fixers_(fixers) {}

  bool isUsable(const AccountPtr& account) {
    bool isLetPass = false;
    for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers_) {
      const FixResult result = fixer->fixBasicAccountIfNeededLoggingMessage(account, "loading accounts");
      if (result != FixResult::nothingDone) isAnythingFixed_ = true;
      if (result != FixResult::unrepairable) isLetPass = true;
    }
    return isLetPass;
  }

  void end() const {
    if (!isAnythingFixed_) return;
    for (const std::shared_ptr<RSRuntimeFixProtocol>& fixer : fixers_) fixer->accountsHaveBeenSaved(false);
  }

 private:
  const RuntimeFixers& fixers_;
  bool isAnythingFixed_ = false;
};

}  // namespace

bool isNameless(const BasicAccount& account, const Dictionary& stored) {
  // Only a record with other properties than those that it was made of can have been given an identifier.
  return !SavedProperties::of(account).sharesContentsWith(stored) && storedIdentifier(stored).isNil();
}

void logRejected(const Value& element) {
  systemLog("[%s] ERROR: Failed to create a BasicAccount from %@",
            "-[AccountsManager _initWithAccountsInfo:]", element);
}

FileVersion fileVersion(const Array& accounts, const RuntimeFixers& fixers,
                        const std::vector<NamelessAccount>& known) {
  FileVersion version;
  version.accounts.reserve(accounts.size());
  Salvage salvage(accounts);
  KnownIdentifiers identifiers(known);
  Repair repair(fixers);
  for (const Value& element : accounts) {
    const std::optional<Dictionary> stored = salvage.usable(element).dictionary();
    const String identifier = stored ? identifiers.take(*stored) : String();
    const AccountPtr account =
        stored ? BasicAccount::initWithProperties(identifier ? withIdentifier(*stored, identifier) : *stored)
               : nullptr;
    if (!account) logRejected(element);
    if (account && repair.isUsable(account)) {
      if (isNameless(*account, *stored)) version.nameless.push_back({account->identifier(), *stored});
      version.accounts.push_back(SavedProperties::of(*account).deepCopy());
    } else if (element.isDictionary() && element.fault() == Fault::none) {
      // Carrying on what makes the file a damaged one would have every sync write it again.
      version.carried.push_back({version.accounts.size(), element});
    }
  }
  repair.end();
  return version;
}

}  // namespace roster
