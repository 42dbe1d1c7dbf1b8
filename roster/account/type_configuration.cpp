#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>

#include "roster/account/basic_account.h"
#include "roster/base/process_wide.h"
#include "roster/platform/assertion.h"
#include "roster/platform/device.h"
#include "roster/platform/property_list_file.h"
#include "roster/platform/resources.h"
#include "roster/platform/system_log.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/ordered_map.h"

namespace roster {

namespace {

constexpr std::string_view sourceFile = "BasicAccount";
constexpr std::string_view initializeName = "+[BasicAccount initialize]";
/// More entries than a map searches one by one, so that the table is hashed: every new record looks up its
/// type.
constexpr std::size_t hashedTableSize = 17;
constexpr std::string_view nameTable = "BasicAccount";
constexpr std::string_view dataclassPrefix = "com.nimbal.Dataclass.";

/// What is configured for the types that the library knows, by their names.
using TypeTable = OrderedMap<Dictionary>;

/// The type configuration of this process: built under the lock, then only read, and never released.
struct TypeConfiguration {
  /// Recursive, because a handler of assertions or of log lines may itself ask about a type.
  std::recursive_mutex lock;
  bool isLoading = false;
  std::atomic<const TypeTable*> table = nullptr;
};

/// Marks the load as running, also while an exception ends it.
class LoadInProgress {
 public:
  explicit LoadInProgress(TypeConfiguration& configuration) : configuration_(configuration) {
    configuration_.isLoading = true;
  }
  LoadInProgress(const LoadInProgress&) = delete;
  LoadInProgress& operator=(const LoadInProgress&) = delete;
  ~LoadInProgress() { configuration_.isLoading = false; }

 private:
  TypeConfiguration& configuration_;
};

TypeConfiguration& typeConfiguration() {
  static TypeConfiguration configuration;
  return configuration;
}

/// Whether the library knows the dataclass and the device can sync it.
bool isUsable(std::string_view dataclass, bool isMultitasking) {
  // Notes sync in the background, which takes a device that can run more than one program.
  if (dataclass == kAccountDataclassNotes && !isMultitasking) return false;
  return contains(BasicAccount::allSupportedDataclasses(), dataclass);
}

/// What is configured for a type, with the usable dataclasses alone. A type of which nothing would be left
/// keeps what it lists, so that it does not turn into a type without dataclasses.
Dictionary usableEntry(const Dictionary& configured, bool isMultitasking) {
  const Array listed = configured.find(kPropertiesSupportedDataclasses).array().value_or(Array());
  std::vector<Value> usable;
  usable.reserve(listed.size());
  for (const Value& dataclass : listed) {
    if (isUsable(dataclass.string(), isMultitasking)) usable.push_back(dataclass);
  }
  // As it is with every type of the table that is shipped, unless the device is a small one.
  if (usable.empty() || usable.size() == listed.size()) return configured;
  auto entry = MutableDictionary::copyOf(configured);
  entry.set(kPropertiesSupportedDataclasses, Array(std::move(usable)));
  return entry.deepCopy();
}

TypeTable typeTable(const Dictionary& resource, bool isMultitasking) {
  TypeTable types;
  types.reserve(std::max(resource.size(), hashedTableSize));
  for (const DictionaryEntry& entry : resource) {
    if (const auto configured = entry.value.dictionary()) {
      types.append(entry.key, usableEntry(*configured, isMultitasking));
    }
  }
  return types;
}

/// The names of the types: those of the vocabulary first, in its order.
StringList typeNames(const TypeTable& types) {
  const std::array canonical = {kSubscribedCalendarAccountType,
                                kCalDAVAccountType,
                                kCardDAVAccountType,
                                kBookmarkDAVAccountType,
                                kSMTPAccountType,
                                kExchangeAccountType,
                                kLDAPAccountType,
                                kMailAccountType,
                                kNuvolaAccountType,
                                kGmailAccountType,
                                kYahooAccountType,
                                kOnMyDeviceAccountType,
                                kIMAPNotesAccountType,
                                kNimbalAccountType,
                                kFjordIMAPAccountType};
  StringList names;
  for (const std::string_view name : canonical) {
    if (types.contains(name)) names.emplace_back(name);
  }
  for (const TypeTable::Entry& entry : types) {
    const std::string_view name = entry.key;
    if (!name.empty() && !contains(names, name)) names.emplace_back(name);
  }
  return names;
}

std::optional<Dictionary> typeTableResource() {
  const std::string path = resourcePath("AccountTypesProperties", "plist");
  if (path.empty()) {
    assertionFailed(initializeName, sourceFile, "Could not find AccountTypesProperties.plist");
    return std::nullopt;
  }
  Result<Dictionary> resource = readDictionaryFile(path);
  if (resource) return *std::move(resource);
  systemLog("%@", resource.error().message);
  assertionFailed(initializeName, sourceFile, "Could not load the dataclasses configuration file");
  return std::nullopt;
}

/// The configuration of one type; empty for an unknown one.
Dictionary typeEntry(std::string_view type) {
  BasicAccount::initialize();
  const TypeTable* table = typeConfiguration().table.load(std::memory_order_acquire);
  const Dictionary* entry = table == nullptr ? nullptr : table->find(type);
  return entry == nullptr ? Dictionary() : *entry;
}

/// The name for people that the library's texts give; nil when they give none.
String localizedName(std::string_view keyPrefix, std::string_view name) {
  const std::string text = localizedString(std::string(keyPrefix).append(name), nameTable);
  return text.empty() ? String() : String(text);
}

/// A resource that is a dictionary; nothing, without a message, when it is missing or unreadable.
std::optional<Dictionary> dictionaryResource(std::string_view name) {
  const std::string path = resourcePath(name, "plist");
  if (path.empty()) return std::nullopt;
  Result<Dictionary> resource = readDictionaryFile(path);
  return resource ? std::optional(*std::move(resource)) : std::nullopt;
}

/// A switch of one dataclass. The table is read once; when that fails, all switches stay off.
bool dataclassSwitch(std::string_view dataclass, std::string_view name) {
  static const Dictionary& table = immortal(BasicAccount::_dataclassesProperties().value_or(Dictionary()));
  const std::optional<Dictionary> entry = table.find(dataclass).dictionary();
  return entry && entry->find(name).booleanValue();
}

std::optional<StringList> userActions(std::string_view key, std::string_view dataclass,
                                      std::string_view type) {
  std::optional<StringList> actions = stringList(typeEntry(type).find(key));
  if (BasicAccount::multipleStoresSupportedByDataclass(dataclass)) return actions;
  return BasicAccount::removeActionsIncompatibleWithSingleStoreDataclass(std::move(actions));
}

}  // namespace

void BasicAccount::initialize(bool (*isMultitaskingEnabledInClass)()) {
  TypeConfiguration& configuration = typeConfiguration();
  if (configuration.table.load(std::memory_order_acquire) != nullptr) return;
  const std::lock_guard guard(configuration.lock);
  if (configuration.isLoading || configuration.table.load(std::memory_order_relaxed) != nullptr) return;
  const LoadInProgress inProgress(configuration);
  if (const std::optional<Dictionary> resource = typeTableResource()) {
    auto table = std::make_unique<const TypeTable>(typeTable(*resource, isMultitaskingEnabledInClass()));
    configuration.table.store(table.release(), std::memory_order_release);
  }
}

bool BasicAccount::isMultitaskingEnabled() {
  static constexpr std::string_view singleTasking = "armv6";
  return !(deviceInformation("CPUArchitecture") == singleTasking);
}

const StringList& BasicAccount::allSupportedDataclasses() {
  static const StringList& all = immortal(StringList{
      std::string(kAccountDataclassMail),
      std::string(kAccountDataclassContacts),
      std::string(kAccountDataclassCalendars),
      std::string(kAccountDataclassReminders),
      std::string(kAccountDataclassBookmarks),
      std::string(kAccountDataclassNotes),
      std::string(kAccountDataclassMediaStream),
      std::string(kAccountDataclassDeviceLocator),
      std::string(kAccountDataclassContactsSearch),
      std::string(kAccountDataclassBackup),
      std::string(kAccountDataclassUbiquity),
      std::string(kAccountDataclassKeyValue),
      std::string(kAccountDataclassSatchel),
      std::string(kAccountDataclassSharedStreams),
  });
  return all;
}

std::optional<StringList> BasicAccount::supportedDataclassesForAccountType(std::string_view type) {
  return stringList(typeEntry(type).find(kPropertiesSupportedDataclasses));
}

std::optional<StringList> BasicAccount::userActionsToEnableDataclassForAccountType(std::string_view dataclass,
                                                                                   std::string_view type) {
  return userActions(kPropertiesEnableDataclassActions, dataclass, type);
}

std::optional<StringList> BasicAccount::userActionsToDisableDataclassForAccountType(
    std::string_view dataclass, std::string_view type) {
  return userActions(kPropertiesDisableDataclassActions, dataclass, type);
}

std::optional<StringList> BasicAccount::removeActionsIncompatibleWithSingleStoreDataclass(
    std::optional<StringList> actions) {
  if (!actions) return std::nullopt;
  const auto last = std::find(actions->rbegin(), actions->rend(), kDataclassToggleActionKeepLocalData);
  if (last != actions->rend()) actions->erase(std::next(last).base());
  return actions;
}

std::optional<StringList> BasicAccount::deleteAccountActionsForAccountType(std::string_view type) {
  return stringList(typeEntry(type).find(kPropertiesDeleteAccountActions));
}

bool BasicAccount::showRemindersSeparatelyForAccountType(std::string_view type) {
  return typeEntry(type).find(kPropertiesShowRemindersSeparately).booleanValue();
}

bool BasicAccount::multipleStoresSupportedByDataclass(std::string_view dataclass) {
  return dataclassSwitch(dataclass, kDataclassSupportsMultipleStores);
}

bool BasicAccount::displayToggleForDataclass(std::string_view dataclass) {
  return dataclassSwitch(dataclass, kDataclassDisplaySwitch);
}

bool BasicAccount::userConfirmationIsRequiredByDataclass(std::string_view dataclass) {
  return dataclassSwitch(dataclass, kDataclassRequiresUserConfirmation);
}

bool BasicAccount::_isValidAccountType(std::string_view type) {
  if (type.empty()) return false;
  initialize();
  const TypeTable* table = typeConfiguration().table.load(std::memory_order_acquire);
  return table != nullptr && table->contains(type);
}

const StringList& BasicAccount::allAccountTypes() {
  static const StringList& none = immortal(StringList());
  initialize();
  const TypeTable* table = typeConfiguration().table.load(std::memory_order_acquire);
  if (table == nullptr) return none;
  static const StringList& names = immortal(typeNames(*table));
  return names;
}

String BasicAccount::localizedNameForAccountType(std::string_view type) {
  return localizedName("ACCOUNT_TYPE_", type);
}

String BasicAccount::localizedNameForDataclass(std::string_view dataclass) {
  if (!dataclass.starts_with(dataclassPrefix)) return {};
  return localizedName("DATACLASS_", dataclass.substr(dataclassPrefix.size()));
}

std::optional<Dictionary> BasicAccount::_dataclassesProperties() {
  return dictionaryResource("DataclassesProperties");
}

std::optional<Dictionary> BasicAccount::_creatorsInfo() { return dictionaryResource("AccountCreators"); }

}  // namespace roster
