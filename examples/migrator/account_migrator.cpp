#include <fcntl.h>
#include <roster/roster.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

/// A migrator: turns the mail application's old account list into accounts of the registry, and writes a
/// registry of an older version anew. README.md shows the old list. Files are set aside and never removed,
/// so whatever this does not understand is still there.

namespace {

using roster::AccountsManager;
using roster::Error;
using roster::systemLog;
using Account = roster::AccountPtr;

constexpr std::string_view hostnameKey = "Hostname";

/// What the registry keeps under the names that it had in the old list.
constexpr std::array<std::string_view, 6> keptKeys = {hostnameKey,  "AccountPath",    "PortNumber",
                                                      "SSLEnabled", "EmailAddresses", "FullUserName"};

// ---- Files

/// A name beside the file that is still free. It stays so, because the migration lock is held.
std::string nameAside(const std::string& path) {
  std::string name = path + ".migrated";
  std::error_code ignored;
  for (int attempt = 2; exists(std::filesystem::symlink_status(name, ignored)); ++attempt) {
    name = path + ".migrated-" + std::to_string(attempt);
  }
  return name;
}

/// Waits until a file, or the names in a folder, are on the disk: a power failure undoes what is not.
std::error_code sync(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {errno, std::generic_category()};
  const bool isSynced = fsync(fd) == 0;
  const std::error_code error(isSynced ? 0 : errno, std::generic_category());
  close(fd);
  return error;
}

/// The same for the names in the file's folder, unless there is an error already.
void syncFolderOf(const std::string& path, std::error_code& error) {
  if (!error) error = sync(std::filesystem::path(path).parent_path());
}

/// Renames the file, so that the next run does not find it. False when that fails.
bool setAside(const std::string& path) {
  const std::string name = nameAside(path);
  std::error_code error;
  std::filesystem::rename(path, name, error);
  syncFolderOf(path, error);
  if (error) {
    systemLog("AccountMigrator: could not rename %@ to %@: %@", path, name, error.message());
  } else {
    systemLog("AccountMigrator: %@ is now %@", path, name);
  }
  return !error;
}

/// The registry is written anew from what this library understands of it; the old one may hold more. A save
/// puts a new file in its place, so a second name is enough to keep it; where a folder allows none, a copy.
bool keepRegistry() {
  const std::string path = roster::rosterAccountsPath();
  const std::string name = nameAside(path);
  std::error_code error;
  std::filesystem::create_hard_link(path, name, error);
  if (error == std::errc::no_such_file_or_directory) return true;
  if (error == std::errc::operation_not_permitted || error == std::errc::operation_not_supported) {
    std::filesystem::copy_file(path, name, error);
    if (!error) error = sync(name);
  }
  syncFolderOf(path, error);
  if (error) systemLog("AccountMigrator: could not keep %@ as %@: %@", path, name, error.message());
  return !error;
}

// ---- Accounts

/// The class of an old type's accounts; empty for one that is not known.
std::string_view classForOldType(std::string_view type) {
  if (type == "IMAP") return "IMAPAccount";
  return type == "POP" ? "POPAccount" : std::string_view();
}

bool isSameMailbox(const roster::BasicAccount& left, const roster::BasicAccount& right) {
  const auto hasSame = [&](std::string_view key) {
    return left.accountPropertyForKey(key) == right.accountPropertyForKey(key);
  };
  return hasSame(roster::kAccountClass) && hasSame(hostnameKey) && hasSame(roster::kAccountUsername);
}

/// The account that an entry of the list describes; fails, with the reason, when it does not describe one.
roster::Result<Account> accountFromEntry(const roster::Value& entry) {
  const auto refused = [](const std::string& why) { return Error(std::errc::invalid_argument, why); };
  const auto old = entry.dictionary();
  if (!old || entry.fault() != roster::Fault::none) return refused("it cannot be read");
  const roster::String type = old->find("Type").string();
  const roster::String name = old->find("AccountName").string();
  const roster::String user = old->find("Username").string();
  const std::string_view accountClass = classForOldType(type);
  if (accountClass.empty()) return refused("its type \"" + type.str() + "\" is not known");
  if (user.isEmpty() || old->find(hostnameKey).string().isEmpty()) return refused("it names no mailbox");

  const roster::Value mail = roster::arrayValue({std::string(roster::kAccountDataclassMail)});
  auto account = roster::BasicAccount::accountWithTypeClass(roster::kMailAccountType, accountClass);
  if (!account) throw std::runtime_error("a record of a mail account cannot be made");
  for (const std::string_view key : keptKeys) account->setAccountPropertyForKey(old->find(key), key);
  account->setAccountPropertyForKey(name.isEmpty() ? user : name, roster::kAccountDisplayName);
  account->setAccountPropertyForKey(user, roster::kAccountUsername);
  account->setAccountPropertyForKey(mail, roster::kAccountProvisionedDataclasses);
  account->setEnabledForDataclass(true, roster::kAccountDataclassMail);
  return account;
}

/// Adds each mailbox once, also when the list has it twice, or when it was saved again after the registry had
/// been removed.
void addAccounts(AccountsManager& store, const roster::Array& entries) {
  const auto known = store.allBasicAccounts();
  long index = 0;
  for (const roster::Value& entry : entries) {
    roster::Result<Account> account = accountFromEntry(entry);
    const auto isSame = [&](const Account& other) { return isSameMailbox(*other, **account); };
    if (account && std::any_of(known->begin(), known->end(), isSame)) {
      account = Error(std::errc::file_exists, "its mailbox is there already");
    }
    if (account) {
      store.insertAccount(*account);
    } else {
      systemLog("AccountMigrator: account %ld of the mail list is left out: %@", index,
                account.error().message);
    }
    ++index;
  }
}

bool save(AccountsManager& store) {
  try {
    store.saveAllAccounts();
  } catch (const roster::AssertionFailure& failure) {
    // A notifier is set up wrongly. The registry was written before the notifiers were told.
    systemLog("AccountMigrator: not everybody was told of the accounts: %@", failure.what());
  }
  return !store.lastSaveError();
}

class AccountsDataMigrator : public roster::AccountMigrationProtocol {
 public:
  bool executeMigrationSteps() override {
    // This comes first: if the next run found only the preferences, it would remove the registry for them,
    // without a mail list to make it from again.
    if (!setSyncPreferencesAside()) return false;
    const std::string path = roster::mailAccountsPath();
    const roster::Result<roster::Value> list =
        roster::readPropertyListFile(path, roster::Soundness::inspected);
    const bool isThere = list || !isMissingFile(list.error());
    if (isThere && !list) systemLog("AccountMigrator: %@", list.error().message);
    // A file that could not be read now may be readable in the next run; anything else never becomes a list.
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(path, error);
    if (isThere && !list && isFile && list.error().code != std::errc::bad_message) return false;

    if (!keepRegistry()) return false;
    const auto store = AccountsManager::initInsideOfMigration();
    if (list) addMailAccounts(*store, *list);
    store->setDataVersion(AccountsManager::currentVersion());
    if (!save(*store)) return false;
    // Last, so that a run that ends before this leaves the list for the next one.
    return !isThere || setAside(path);
  }

 private:
  static bool setSyncPreferencesAside() {
    const std::string path = roster::tsAccountPath();
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return true;
    systemLog("AccountMigrator: there is no way to migrate %@", path);
    return setAside(path);
  }

  static void addMailAccounts(AccountsManager& store, const roster::Value& list) {
    const auto root = list.dictionary();
    const auto entries = root ? root->find("MailAccounts").array() : std::nullopt;
    if (entries) return addAccounts(store, *entries);
    systemLog("AccountMigrator: %@ has no array \"MailAccounts\"", roster::mailAccountsPath());
  }
};

void registerClasses(roster::PluginClasses& classes) {
  classes.add(
      roster::ClassObject("AccountsDataMigrator").answering(roster::AccountMigratorProtocol{.init = [] {
        return std::make_shared<AccountsDataMigrator>();
      }}));
}

}  // namespace

ROSTER_PLUGIN(registerClasses)
