#include <filesystem>

#include "roster/platform/linux/file_calls.h"
#include "roster/store/registry_check.h"
#include "tests/store/store_test.h"
#include "tests/support/binary_assembler.h"

namespace roster::testing {
namespace {

/// A registry put together object by object, with references of four bytes.
class Assembly {
 public:
  static constexpr unsigned width = 4;
  using Number = std::uint64_t;
  using Entries = std::vector<std::pair<std::string_view, Number>>;

  Number next() const { return objects_.size(); }
  Number add(std::string object) { return objects_.push_back(std::move(object)), next() - 1; }
  Number text(std::string_view content) { return add(textObject(content)); }
  Number array(const std::vector<Number>& elements) { return add(arrayObject(elements, width)); }
  Number dictionary(const Entries& entries) {
    std::vector<Number> references;
    for (const auto& entry : entries) references.push_back(text(entry.first));
    for (const auto& entry : entries) references.push_back(entry.second);
    return add(dictionaryObject(references, width));
  }
  Number account(std::string_view identifier, Entries more = {}) {
    const Number type = text("CalDAV"), accountClass = text("X");
    more.insert(more.end(), {{"Type", type}, {"Class", accountClass}, {"Identifier", text(identifier)}});
    return dictionary(more);
  }
  std::string registry(const std::vector<Number>& accounts) {
    const Number top = dictionary({{"Accounts", array(accounts)}});
    return assemble(objects_, {.referenceWidth = width, .top = top});
  }

 private:
  std::vector<std::string> objects_;
};

class HostileRegistryTest : public StoreTest {
 protected:
  /// Loads the file, whose usable accounts must be these, and saves: the file as it was must be kept, unless
  /// it is sound, and the accounts must be found in the new one.
  void expectUsable(std::string_view row, const std::string& bytes, const std::string& expected,
                    bool isDamaged = true) {
    SCOPED_TRACE(row);
    std::filesystem::remove_all(device.path(folder));
    device.writeFile(device.registryPath(), bytes);
    log.clear();
    const Store store = AccountsManager::init();
    EXPECT_EQ(identifiers(*store->allBasicAccounts()), expected);
    store->saveAllAccounts();
    EXPECT_FALSE(store->lastSaveError());
    EXPECT_EQ(linesWith(log.lines(), "Kept the damaged registry "), isDamaged ? 1U : 0U);
    ASSERT_EQ(kept().size(), isDamaged ? 1U : 0U);
    if (isDamaged) {
      EXPECT_EQ(device.readFile(std::string(folder) + "/" + kept()[0]), bytes);
    }
    log.clear();
    EXPECT_EQ(identifiers(*AccountsManager::init()->allBasicAccounts()), expected);
    EXPECT_EQ(log.lines(), Lines());
  }

  static std::string encoded(const Value& root) { return *binaryPropertyList(root); }
  static std::string registryOf(const Value& accounts) { return encoded(Dictionary{{"Accounts", accounts}}); }
};

TEST_F(HostileRegistryTest, OfTheWrongShapeKeepsTheSoundAccountsAndTheFile) {
  const std::string sound = registryOf(array(stored("a")));
  const std::pair<const char*, std::string> rows[] = {
      {"no byte", ""},
      {"no property list", "no property list"},
      {"half a file", sound.substr(0, sound.size() / 2)},
      {"an array", encoded(array(stored("a")))},
      {"no keys", encoded(Dictionary())},
      {"a text for the accounts", registryOf("text")},
      {"accounts under another key", encoded(Dictionary{{"Bccounts", array()}, {"Version", 12}})}};
  for (const auto& [row, bytes] : rows) {
    const std::string path = device.writeFile(device.registryPath(), bytes);
    const std::string error = errorOf(readRegistryAccounts(path));
    EXPECT_NE(error.find(path), std::string::npos) << row << error;
    expectUsable(row, bytes, "");
  }
  expectUsable("a version alone", encoded(Dictionary{{"Version", "12"}}), "", false);
  const Dictionary odd = stored("odd", {{"ChildAccounts", Dictionary{{"a", 1}}},
                                        {"Enabled Dataclasses", array(1, 2)},
                                        {"Sync Identifier", array()}});
  const Value accounts = array(stored("x", {{"Type", 5}}), odd, stored("a"));
  expectUsable("wrong types", encoded(Dictionary{{"Version", "new"}, {"Accounts", accounts}}), "odd a",
               false);
  EXPECT_EQ(root().find("Accounts"), array(odd, stored("a")));
  const Value none = array("one", stored("a"), 2);
  expectUsable("accounts that are none", registryOf(none), "a");
  EXPECT_EQ(Value(*readRegistryAccounts(device.writeFile("none", registryOf(none)))), none);
  EXPECT_TRUE(readRegistryAccounts(device.path("missing"))->empty());
}

TEST_F(HostileRegistryTest, InXmlLosesOnlyTheValuesThatCannotBeRead) {
  const std::string bad = "<date>2024-13-01T00:00:00Z</date>";
  const std::string account =
      "<dict><key>Type</key><string>CalDAV</string><key>Class</key><string>X</string><key>Identifier</key>";
  const std::string child = account + "<string>c</string><key>On</key>" + bad + "</dict>";
  expectUsable("xml",
               "<plist><dict><key>Accounts</key><array>" + account + "<string>a</string></dict>" + account +
                   "<string>b</string><key>On</key>" + bad + "<key>List</key><array>" + bad +
                   "<true/></array><key>ChildAccounts</key><array>" + child + "</array></dict></array>" +
                   "<key>On</key>" + bad + "</dict></plist>",
               "a b");
  EXPECT_EQ(storedAccount(1), stored("b", {{"List", array(true)}, {"ChildAccounts", array(stored("c"))}}));
}

TEST_F(HostileRegistryTest, DamagedAtAnyByteLosesNothingSilently) {
  FileCalls withoutSync = fileCalls();
  withoutSync.fsync = [](int) { return 0; };
  const FileCallsOverride calls(withoutSync);
  const std::string sound = registryOf(
      array(stored("a"), stored("b", {{"ChildAccounts", array(stored("c"))}}), stored("d", {{"N", 2.5}})));
  for (std::size_t i = 0; i < 4 * sound.size(); ++i) {
    constexpr int flips[] = {0x01, 0x80, 0xFF, 0};
    const int flip = flips[i % 4];
    SCOPED_TRACE("offset " + std::to_string(i / 4) +
                 (flip == 0 ? " cut off" : " flipped by " + std::to_string(flip)));
    std::string bytes = sound.substr(0, flip == 0 ? i / 4 : std::string::npos);
    if (flip != 0) bytes[i / 4] = static_cast<char>(bytes[i / 4] ^ flip);
    std::filesystem::remove_all(device.path(folder));
    device.writeFile(device.registryPath(), bytes);
    log.clear();
    const Store store = AccountsManager::init();
    const bool isReported = linesWith(log.lines(), "ERROR: Failed to create a BasicAccount from ") > 0;
    store->saveAllAccounts();
    ASSERT_FALSE(store->lastSaveError());
    const bool isKept = linesWith(log.lines(), "Kept the damaged registry ") == 1;
    EXPECT_TRUE(store->count() > 0 || isReported || isKept);
    EXPECT_EQ(files().size(), isKept ? 2U : 1U);
    EXPECT_EQ(AccountsManager::init()->count(), store->count());
  }
}

TEST_F(HostileRegistryTest, WithPartsWithoutEndKeepsTheRestOfTheAccounts) {
  Assembly assembly;
  const std::uint64_t cycle = assembly.array({assembly.next()});
  const std::uint64_t children = assembly.array({assembly.next() + 8});
  ASSERT_EQ(assembly.account("child", {{"ChildAccounts", children}}), children + 8) << "a child in itself";
  std::uint64_t deep = assembly.array({});
  for (int level = 0; level < 100'000; ++level) deep = assembly.array({deep});
  std::uint64_t bomb = assembly.text("x");
  for (int level = 0; level < 60; ++level) bomb = assembly.array({bomb, bomb});
  const std::uint64_t bombs = assembly.array(std::vector<std::uint64_t>(1000, bomb));
  const std::uint64_t bombed = assembly.array({assembly.account("bombed child", {{"Bomb", bombs}})});
  expectUsable(
      "parts without end",
      assembly.registry({assembly.account("parent", {{"ChildAccounts", children}}), assembly.account("good"),
                         assembly.account("cyclic", {{"List", cycle}, {"Note", assembly.text("kept")}}),
                         assembly.account("deep", {{"Deep", deep}}),
                         assembly.account("bombed", {{"ChildAccounts", bombed}, {"Bomb", bomb}}), cycle, deep,
                         bomb}),
      "parent good cyclic deep bombed");
  EXPECT_EQ(storedAccount(2).find("Note"), Value("kept"));
  EXPECT_NE(AccountsManager::init()->accountWithIdentifier("child"), nullptr) << "it is usable itself";
}

TEST_F(HostileRegistryTest, WhoseAccountsShareHugePartsLosesNothingAndCostsNoMoreThanItsSize) {
  // Each account alone is within all limits; together they would be hundreds of millions of values.
  const SystemLogSink own = setSystemLogSink([](std::string_view) {});
  for (const bool isDamaged : {false, true}) {
    SCOPED_TRACE(isDamaged);
    Assembly assembly;
    const std::uint64_t child = assembly.account("c");
    const std::uint64_t children = assembly.array(std::vector<std::uint64_t>(100'000, child));
    const std::uint64_t cycle = assembly.array({assembly.next()});
    const std::uint64_t other =
        assembly.account("other", isDamaged ? Assembly::Entries{{"Cycle", cycle}, {"ChildAccounts", children}}
                                            : Assembly::Entries{{"ChildAccounts", children}});
    std::vector<std::uint64_t> accounts;
    for (int i = 0; i < 500; ++i)
      accounts.insert(accounts.end(), {other, assembly.account("p", {{"ChildAccounts", children}})});
    accounts.push_back(assembly.account("last"));
    std::filesystem::remove_all(device.path(folder));
    device.writeFile(device.registryPath(), assembly.registry(accounts));
    const Store store = AccountsManager::init();
    EXPECT_NE(store->accountWithIdentifier("last"), nullptr);
    store->saveAllAccounts();
    EXPECT_FALSE(store->lastSaveError());
    EXPECT_EQ(kept().size(), isDamaged ? 1U : 0U);
    const Result<Array> saved = readRegistryAccounts(device.registryPath());
    ASSERT_TRUE(saved && saved->size() == accounts.size()) << errorOf(saved);
    for (std::size_t i = 0; i + 1 < saved->size(); ++i)
      ASSERT_EQ(saved->at(i).dictionary()->find("ChildAccounts").array()->size(), 100'000U) << i;
  }
  setSystemLogSink(own);
}

}  // namespace
}  // namespace roster::testing
