#include "bench/bench_plugins.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "roster/account/account_protocols.h"
#include "roster/account/creator_entries.h"
#include "roster/account/vocabulary.h"
#include "roster/notify/account_notifier.h"
#include "roster/platform/class_table.h"
#include "roster/plist/property_list.h"
#include "roster/value/mutable_dictionary.h"
#include "roster/value/value.h"

namespace roster::bench {

namespace {

std::size_t told = 0;

class FullAccount : public AccountFullAccountProtocol {
 public:
  void renewAccountCredentialsWithHandler(const CredentialRenewalHandler& handler) override { handler(0); }
};

Value entry(std::string_view kind, std::string_view className, const Value& dataclasses = {}) {
  // The library's own name, because the classes are there already.
  return Dictionary{{"Type", kind},
                    {"Description", Dictionary{{"Framework", "libroster.so.1"},
                                               {"Class", className},
                                               {kAccountSupportedDataclasses, dataclasses}}}};
}

Dictionary creatorsTable() {
  std::vector<Value> entries{entry(fullAccountCreatorType, "BenchCreator")};
  registerClass(ClassObject("BenchCreator")
                    .answering(AccountCreationProtocol{.accountWithBasicAccount = [](const auto&) {
                      return std::make_shared<FullAccount>();
                    }}));
  const std::array<std::string_view, BenchPlugins::notifiers> dataclasses = {
      kAccountDataclassMail, kAccountDataclassContacts, kAccountDataclassCalendars};
  for (const std::string_view dataclass : dataclasses) {
    const std::string name = "BenchNotifier of " + std::string(dataclass);
    registerClass(ClassObject(name).answering(
        AccountNotifierProtocol{.noteAccountChanges = [](const Array& changes) { told += changes.size(); }}));
    entries.push_back(entry(notifierCreatorType, name, Array(std::vector<Value>{dataclass})));
  }
  MutableDictionary table;
  for (const std::string_view type :
       {kExchangeAccountType, kMailAccountType, kCalDAVAccountType, kGmailAccountType, kCardDAVAccountType}) {
    table.set(type, Array(entries));
  }
  return table;
}

}  // namespace

BenchPlugins::BenchPlugins() {
  const char* resources = std::getenv("ROSTER_RESOURCES");
  if (resources == nullptr) throw std::runtime_error("ROSTER_RESOURCES does not name the resources");
  std::string pattern = (std::filesystem::temp_directory_path() / "bench-resources-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("could not make " + pattern);
  folder_ = pattern;
  std::filesystem::copy(resources, folder_, std::filesystem::copy_options::recursive);
  const Result<std::string> bytes = binaryPropertyList(creatorsTable());
  if (!bytes) throw std::runtime_error(bytes.error().message);
  std::ofstream(folder_ + "/AccountCreators.plist", std::ofstream::binary) << *bytes;
  setenv("ROSTER_RESOURCES", folder_.c_str(), 1);
}

BenchPlugins::~BenchPlugins() { std::filesystem::remove_all(folder_); }

std::size_t BenchPlugins::toldChanges() { return told; }

}  // namespace roster::bench
