#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "roster/platform/linux/file_calls.h"
#include "roster/store/registry_check.h"
#include "roster/value/value_description.h"
#include "tests/store/store_test.h"
#include "tests/support/binary_assembler.h"

namespace {

constexpr long never = -1;
/// How many allocations of this thread succeed before one fails.
thread_local long allocationsLeft = never;

void* allocate(std::size_t size) {
  if (allocationsLeft != never && allocationsLeft-- == 0) throw std::bad_alloc();
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

// These replace the library's too.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace roster::testing {
namespace {

/// Runs the work with the allocation of that number failing; returns whether there was one.
bool failsAtAllocation(long number, const auto& work) {
  allocationsLeft = number;
  try {
    work();
  } catch (const std::bad_alloc&) {
    allocationsLeft = never;
    return true;
  }
  return std::exchange(allocationsLeft, never) == never;
}

/// A dictionary with so many entries of its own, one of them erased again, that shares nothing.
MutableDictionary dictionaryOf(int size) {
  MutableDictionary made;
  for (int i = 0; i <= size; ++i) made.set("a long key for entry " + std::to_string(i), i);
  made.remove("a long key for entry 0");
  return made;
}

TEST(OutOfMemory, ADictionaryThatCannotBeChangedStaysAsItWas) {
  const Dictionary stored = *parse(*binaryPropertyList(dictionaryOf(10)))->dictionary();
  void (*const changes[])(MutableDictionary&) = {
      [](auto& dictionary) { dictionary.set("a key that is new in it", "and a long enough value"); },
      [](auto& dictionary) { dictionary.set("a long key for entry 3", "another long value"); },
      [](auto& dictionary) { dictionary.remove("a long key for entry 3"); },
      [](auto& dictionary) {
        static const Value live{MutableDictionary()};
        dictionary.set("a key of a live dictionary", live);
      }};
  for (const auto& change : changes) {
    for (const int size : {0, 10, 15, 16, 31, 32, 200, -1}) {
      const auto make = [&] { return size < 0 ? MutableDictionary::copyOf(stored) : dictionaryOf(size); };
      auto expected = make();
      change(expected);
      for (long number = 0;; ++number) {
        SCOPED_TRACE(formatted("change %d in %d entries, allocation %ld", &change - changes, size, number));
        auto dictionary = make();
        const std::string before = describe(dictionary);
        if (!failsAtAllocation(number, [&] { change(dictionary); })) break;
        ASSERT_EQ(describe(dictionary), before);
        for (const DictionaryEntry& entry : dictionary) ASSERT_EQ(dictionary.find(entry.key), entry.value);
        ASSERT_TRUE(dictionary.deepCopy().sharesContentsWith(dictionary)) << "nothing live is in it";
        change(dictionary);
        ASSERT_EQ(*binaryPropertyList(dictionary), *binaryPropertyList(expected));
      }
    }
  }
}

class OutOfMemoryTest : public StoreTest {};

TEST_F(OutOfMemoryTest, ASaveLosesNothingAndCanBeRepeated) {
  FileCalls withoutSync = fileCalls();
  withoutSync.fsync = [](int) { return 0; };
  const FileCallsOverride calls(withoutSync);
  const Value before = array(stored("a"), stored("b", {{"ChildAccounts", array(stored("c"))}}));
  const Value after = array(stored("a", {{"Note", "a text that is long enough"}}), stored("b"),
                            stored("d", {{"ChildAccounts", array(stored("e"))}}));
  for (auto [number, hasFailed] = std::pair(0L, true); hasFailed; ++number) {
    SCOPED_TRACE(number);
    device.writePropertyList(device.registryPath(), Dictionary{{"Accounts", before}, {"Version", 12}});
    const Store store = AccountsManager::init();
    store->accountWithIdentifier("a")->setAccountPropertyForKey("a text that is long enough", "Note");
    store->accountWithIdentifier("b")->setAccountPropertyForKey(Value(), "ChildAccounts");
    const AccountPtr parent = record("d");
    MutableDictionary child = MutableDictionary::copyOf(stored("e"));
    parent->setAccountPropertyForKey(array(child), "ChildAccounts");
    store->insertAccount(parent);
    hasFailed = failsAtAllocation(number, [&] { store->saveAllAccounts(); });
    const Value file = Value(*readRegistryAccounts(device.registryPath()));
    ASSERT_TRUE(file == before || file == after) << describe(file);
    ASSERT_EQ(child, stored("e"));
    store->saveAllAccounts();
    ASSERT_FALSE(store->lastSaveError());
    ASSERT_EQ(Value(*readRegistryAccounts(device.registryPath())), after);
  }
}

}  // namespace
}  // namespace roster::testing
