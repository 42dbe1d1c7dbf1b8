#include "bench/generated_registry.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>

#include "roster/account/vocabulary.h"
#include "roster/plist/property_list.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value.h"

namespace roster::bench {

namespace {

struct Kind {
  std::string_view type;
  std::string_view accountClass;
};

class Generator {
 public:
  Value account(std::size_t index, std::string& identifier) {
    const std::array kinds = {
        Kind{kExchangeAccountType, "ExchangeAccount"}, Kind{kMailAccountType, "IMAPAccount"},
        Kind{kCalDAVAccountType, "CalDAVAccount"},     Kind{kGmailAccountType, "GmailAccount"},
        Kind{kCardDAVAccountType, "CardDAVAccount"},
    };
    const Kind& kind = kinds[index % kinds.size()];
    const std::string name = "Alexandra Keller " + std::to_string(index);
    const std::string user = "alexandra.keller." + std::to_string(index);
    identifier = uuid();
    std::array<std::byte, 32> token{};
    for (std::byte& byte : token) byte = static_cast<std::byte>(random_());
    auto properties = MutableDictionary::copyOf(Dictionary{
        {kAccountType, kind.type},
        {kAccountClass, kind.accountClass},
        {kAccountIdentifier, identifier},
        {kAccountSyncIdentifier, uuid()},
        {kAccountDisplayName, name + " at example.org"},
        {kAccountUsername, user + "@mail.example.org"},
        {"Account URL", "https://dav.example.org/principals/users/" + user + "/"},
        {kAccountProvisionedDataclasses, dataclasses(4)},
        {kAccountEnabledDataclasses, dataclasses(3)},
        {"Settings", Dictionary{{"Days to sync", static_cast<int>(index % 31)},
                                {"Signature", "Sent from the device of " + name},
                                {"Push", true}}},
        {"Port", 993},
        {"Uses TLS", true},
        {"Created", Date{6.0e8 + static_cast<double>(index)}},
        {"Token", Value::data(token)},
    });
    if (index % 10 == 0) {
      properties.set(kAccountChildAccounts, Array({child(index, 0), child(index, 1)}));
    }
    return properties.deepCopy();
  }

 private:
  Value child(std::size_t index, int childIndex) {
    return Dictionary{
        {kAccountType, kCalDAVAccountType},
        {kAccountClass, "CalDAVAccount"},
        {kAccountIdentifier, uuid()},
        {kAccountSyncIdentifier, uuid()},
        {kAccountDisplayName, "Child " + std::to_string(childIndex) + " of account " + std::to_string(index)},
        {kAccountEnabledDataclasses, dataclasses(2)},
    };
  }

  static Value dataclasses(std::size_t count) {
    const std::array all = {kAccountDataclassMail, kAccountDataclassContacts, kAccountDataclassCalendars,
                            kAccountDataclassNotes};
    return Array(std::vector<Value>(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count)));
  }

  std::string uuid() {
    std::array<char, 37> text{};
    std::snprintf(text.data(), text.size(), "%08X-%04X-4%03X-8%03X-%012llX", static_cast<unsigned>(random_()),
                  static_cast<unsigned>(random_() & 0xFFFFU), static_cast<unsigned>(random_() & 0xFFFU),
                  static_cast<unsigned>(random_() & 0xFFFU),
                  static_cast<unsigned long long>(random_() & 0xFFFFFFFFFFFFU));
    return text.data();
  }

  std::mt19937_64 random_{20261121};
};

GeneratedRegistry generateRegistry(std::size_t accounts) {
  GeneratedRegistry registry;
  registry.identifiers.resize(accounts);
  Generator generator;
  std::vector<Value> records;
  records.reserve(accounts);
  for (std::size_t index = 0; index < accounts; ++index) {
    records.push_back(generator.account(index, registry.identifiers[index]));
  }
  const Dictionary root{{kPlistAccountsKey, Array(std::move(records))}, {kPlistVersionKey, 12}};
  Result<std::string> bytes = binaryPropertyList(root);
  if (!bytes) throw std::runtime_error(bytes.error().message);
  registry.bytes = *std::move(bytes);
  return registry;
}

}  // namespace

const GeneratedRegistry& registryOf(std::size_t accounts) {
  static std::map<std::size_t, GeneratedRegistry> registries;
  auto found = registries.find(accounts);
  if (found == registries.end()) found = registries.emplace(accounts, generateRegistry(accounts)).first;
  return found->second;
}

BenchDevice::BenchDevice(const std::string& registry) {
  std::string pattern = (std::filesystem::current_path() / "bench-device-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("could not make " + pattern);
  root_ = pattern;
  setenv("ROSTER_ROOT", root_.c_str(), 1);
  const std::string folder = root_ + "/var/lib/roster/Preferences";
  std::filesystem::create_directories(folder);
  registryPath_ = folder + "/com.nimbal.roster.plist";
  std::ofstream(registryPath_, std::ofstream::binary) << registry;
}

BenchDevice::~BenchDevice() {
  unsetenv("ROSTER_ROOT");
  std::filesystem::remove_all(root_);
}

}  // namespace roster::bench
