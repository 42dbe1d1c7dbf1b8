#include "store/settings_file.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "account/vocabulary.h"
#include "platform/file_system.h"
#include "platform/property_list.h"
#include "platform/system_log.h"

namespace roster {

namespace {

/// How far down a faulty element is taken apart: its properties, their elements, and the properties of those. A child
/// account is an element of a property.
constexpr int salvageDepth = 3;
/// Parts that are looked at in one faulty element. Shared parts could make a small file stand for endless ones.
constexpr std::size_t salvageWork = 100'000;

class Salvage {
 public:
  Value usable(const Value& value, int levels) {
    if (value.fault() == Fault::none) return value;
    if (levels == 0 || parts_ > salvageWork) return {};
    return value.isArray() ? usableArray(*value.array(), levels) : usableDictionary(*value.dictionary(), levels);
  }

 private:
  Value usableArray(const Array& array, int levels) {
    std::vector<Value> elements;
    for (const Value& element : array) {
      if (++parts_ > salvageWork) break;
      Value part = usable(element, levels - 1);
      if (!part.isNil()) elements.push_back(std::move(part));
    }
    return Array(std::move(elements));
  }

  Value usableDictionary(const Dictionary& dictionary, int levels) {
    MutableDictionary entries;
    for (const DictionaryEntry& entry : dictionary) {
      if (++parts_ > salvageWork) break;
      if (!entry.key.isNil()) entries.set(entry.key, usable(entry.value, levels - 1));
    }
    return entries.snapshot();
  }

  std::size_t parts_ = 0;
};

/// What about "Accounts" cannot be read as accounts; empty when there is nothing.
std::string damageOf(const Array& accounts) {
  std::size_t index = 0;
  for (const Value& element : accounts) {
    const std::string name = "its account " + std::to_string(index++);
    if (element.isNil()) return name + " cannot be read";
    if (!element.isDictionary()) return name + " is not a dictionary";
    if (element.fault() != Fault::none) {
      return name + " has a value that " + std::string(describe(element.fault()));
    }
  }
  return {};
}

Registry damaged(std::string why) {
  Registry registry;
  registry.damage = std::move(why);
  return registry;
}

/// The present moment as file names can carry it: 20261121T080905Z.
std::string utcTime() {
  using namespace std::chrono;
  const auto now = floor<seconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss time(now - today);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d%02u%02uT%02d%02d%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text.data();
}

}  // namespace

Value usablePart(const Value& element) { return Salvage().usable(element, salvageDepth); }

Registry SettingsFile::read() const {
  using Status = PropertyListFile::Status;
  const PropertyListFile file = readPropertyListFile(path_, Soundness::inspected);
  if (file.status == Status::missing) return {};
  if (file.status != Status::read) return damaged(file.error);
  const std::optional<Dictionary> root = file.value.dictionary();
  if (!root) return damaged(path_ + " is not a dictionary");

  Registry registry;
  registry.version = root->find(kPlistVersionKey).integer().value_or(0);
  const Value accounts = root->find(kPlistAccountsKey);
  registry.accounts = accounts.array();
  if (registry.accounts) {
    registry.damage = damageOf(*registry.accounts);
  } else if (root->contains(kPlistAccountsKey)) {
    registry.damage = "its \"Accounts\" are not an array";
  }
  return registry;
}

std::optional<Error> SettingsFile::write(const std::string& bytes) const {
  return replaceFile(path_, std::as_bytes(std::span(bytes)));
}

std::optional<Error> SettingsFile::keepDamaged(const std::string& damage) const {
  if (!fileExists(path_)) return std::nullopt;
  const std::string base = path_ + ".damaged-" + utcTime();
  std::string copy = base;
  for (int attempt = 2; fileExists(copy); ++attempt) copy = base + "-" + std::to_string(attempt);
  if (std::optional<Error> error = keepFileAs(path_, copy)) return error;
  systemLog("Kept the damaged registry %@ as %@: %@", path_, copy, damage);
  return std::nullopt;
}

Result<std::string> registryBytes(std::vector<Value> accounts) {
  const Dictionary root{{kPlistAccountsKey, Array(std::move(accounts))},
                        {kPlistVersionKey, currentRegistryVersion}};
  return binaryPropertyList(root);
}

}  // namespace roster
