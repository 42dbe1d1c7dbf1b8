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

using TypeTable = OrderedMap<Dictionary>;

constexpr std::string_view sourceFile = "BasicAccount";
constexpr std::string_view initializeName = "+[BasicAccount initialize]";
/// More than a map looks through one by one: every record that is made asks for its type.
constexpr std::size_t hashedTableSize = 17;

/// The type configuration of this process: built under the lock, then only read, and never released.
struct TypeConfiguration {
  /// Recursive, because whoever receives assertions and log lines may itself ask about a type.
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

/// The library's own text for each entry that names a known dataclass; the others are dropped.
std::vector<Value> knownDataclasses(const Value& configured, bool isMultitasking) {
  const std::array known = {
      kAccountDataclassContacts,    kAccountDataclassBookmarks,     kAccountDataclassCalendars,
      kAccountDataclassReminders,   kAccountDataclassMail,          kAccountDataclassNotes,
      kAccountDataclassMediaStream, kAccountDataclassDeviceLocator, kAccountDataclassContactsSearch,
      kAccountDataclassBackup,      kAccountDataclassUbiquity,      kAccountDataclassKeyValue,
      kAccountDataclassSatchel,     kAccountDataclassSharedStreams,
  };
  std::vector<Value> kept;
  for (const std::string& entry : stringList(configured).value_or(StringList())) {
    const auto* match = std::find(known.begin(), known.end(), entry);
    if (match == known.end()) continue;
    // Notes sync in the background, which takes a device that can run more than one program.
    if (*match == kAccountDataclassNotes && !isMultitasking) continue;
    kept.emplace_back(*match);
  }
  return kept;
}

std::unique_ptr<TypeTable> rewrittenTable(const Dictionary& resource, bool isMultitasking) {
  auto table = std::make_unique<TypeTable>();
  table->reserve(std::max(resource.size(), hashedTableSize));
  for (const DictionaryEntry& entry : resource) {
    const std::optional<Dictionary> configured = entry.value.dictionary();
    if (!configured) continue;
    auto rewritten = MutableDictionary::copyOf(*configured);
    std::vector<Value> known =
        knownDataclasses(configured->find(kPropertiesSupportedDataclasses), isMultitasking);
    // A type of which nothing is left keeps what it listed, so that it does not turn into a type without
    // dataclasses.
    if (!known.empty()) rewritten.set(kPropertiesSupportedDataclasses, Array(std::move(known)));
    table->set(entry.key, rewritten.deepCopy());
  }
  return table;
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

/// A resource that is a dictionary; nothing, without a message, when it is missing or unreadable.
std::optional<Dictionary> dictionaryResource(std::string_view name) {
  const std::string path = resourcePath(name, "plist");
  if (path.empty()) return std::nullopt;
  Result<Dictionary> resource = readDictionaryFile(path);
  return resource ? std::optional(*std::move(resource)) : std::nullopt;
}

/// A switch of one dataclass. The table is read once, and a failure to read it is final: all switches are
/// then off.
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
    configuration.table.store(rewrittenTable(*resource, isMultitaskingEnabledInClass()).release(),
                              std::memory_order_release);
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

std::optional<Dictionary> BasicAccount::_dataclassesProperties() {
  return dictionaryResource("DataclassesProperties");
}

std::optional<Dictionary> BasicAccount::_creatorsInfo() { return dictionaryResource("AccountCreators"); }

}  // namespace roster
