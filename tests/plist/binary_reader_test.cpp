#include <gtest/gtest.h>

#include <tuple>

#include "fuzz/property_list_use.h"
#include "roster/base/limits.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t nowhere = 250;

void exercise(std::string_view bytes) { EXPECT_NO_THROW(fuzzing::use(bytes)); }

TEST(BinaryPropertyList, ReadsWhatItsOwnWriterSpellsOtherwise) {
  const std::tuple<const char*, std::string, Value> cases[] = {
      {"an integer of sixteen bytes", "\x14"s + std::string(15, '\xFF') + "\xFB", -5},
      {"a real of eight bytes that four could hold", "\x23"s + bigEndian(0x3FF8000000000000, 8), 1.5},
      {"ASCII as UTF-16", "\x62\0a\0b"s, "ab"},
  };
  for (const auto& [name, object, expected] : cases) EXPECT_EQ(*parse(assemble({object})), expected) << name;
  for (const unsigned width : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
    const std::vector<std::string> objects = {dictionaryObject({1, 2, 3, 4}, width), textObject("key"),
                                              textObject("list"), "\x09", arrayObject({3, 1}, width)};
    const Result<Value> value = parse(assemble(objects, {width, 9 - width}));
    EXPECT_EQ(*value, (Dictionary{{"key", true}, {"list", array(true, "key")}})) << width;
  }
  for (const unsigned width : {1U, 2U, 4U, 8U}) {
    const std::string set = marker(0xC, 2, width) + references({1, 1}, 1);
    EXPECT_EQ(*parse(assemble({set, marker(5, 2, width) + "ab", "nobody's part"})), array("ab", "ab"))
        << width;
  }
}

TEST(BinaryPropertyList, SaysWhatHasNoPlaceAndKeepsTheRest) {
  const std::tuple<const char*, std::string, Fault> cases[] = {
      {"a null object", "\0"s, Fault::unknownObject},
      {"an integer of 32 bytes", "\x15" + bigEndian(1, 32), Fault::badNumber},
      {"an integer below 64 bits", "\x14" + std::string(8, '\xFF') + bigEndian(1, 8), Fault::badNumber},
      {"a real of two bytes", "\x21" + bigEndian(1, 2), Fault::badNumber},
      {"a length that is no integer", "\x5F" + textObject("a"), Fault::badNumber},
      {"a length of sixteen bytes", "\x5F\x14" + bigEndian(1, 16) + "a", Fault::badNumber},
      {"a lone high surrogate", "\x61\xD8\x3C", Fault::badText},
      {"text that reaches into the next object", marker(5, 6) + "one", Fault::overlaps},
      {"text longer than the file", marker(5, 0x7FFFFFFFFFFFFFFF), Fault::outOfBounds},
      {"the largest count of elements", marker(0xA, ~0ULL), Fault::outOfBounds},
      {"a reference to nothing", arrayObject({2, nowhere}), Fault::badReference},
      {"a key that is nowhere", dictionaryObject({nowhere, 2}), Fault::badReference},
      {"a number as key", dictionaryObject({3, 2}), Fault::badKey},
      {"a dictionary as its own key", dictionaryObject({1, 2}), Fault::badKey},
      {"unreadable text as key", dictionaryObject({4, 2}), Fault::badText},
      {"two that contain each other", dictionaryObject({2, 0}), Fault::containsItself},
  };
  for (const auto& [name, object, fault] : cases) {
    SCOPED_TRACE(name);
    const std::string file =
        assemble({arrayObject({1, 2}), object, textObject("key"), "\x10\x01", "\x51\xFF"});
    EXPECT_EQ(parse(file).error().message, "a value in it " + std::string(describe(fault)));
    const Result<Value> inspected = parse(file, Soundness::inspected);
    EXPECT_EQ(inspected->fault(), fault);
    EXPECT_EQ(inspected->array()->at(1), "key");
    EXPECT_FALSE(binaryPropertyList(*inspected)) << "nothing is written instead of what was lost";
    exercise(file);
  }
  EXPECT_EQ(parse(assemble({"\x80\x07"})).error().message,
            "its top value " + std::string(describe(Fault::uid)));
  EXPECT_EQ(parse("").error().message, "it is empty");
}

TEST(BinaryPropertyList, ReadsObjectsInAnyOrderButNotOnTopOfEachOther) {
  std::string unordered = assemble({arrayObject({1, 2}), textObject("one"), textObject("two")});
  std::swap_ranges(unordered.end() - 40, unordered.end() - 36, unordered.end() - 36);
  EXPECT_EQ(*parse(unordered), array("two", "one"));
  // Ten thousand long texts that are all the same bytes.
  std::string endless = "bplist00" + marker(6, 20000) + std::string(40000, 'x');
  const std::size_t table = endless.size();
  endless += references(std::vector<std::uint64_t>(10000, 8), 4) + std::string(6, '\0') + "\x04\x02" +
             references({10000, 0, table}, 8);
  EXPECT_FALSE(parse(endless, Soundness::inspected));
}

TEST(BinaryPropertyList, TheLastOfRepeatedKeysCounts) {
  // The other "a"s are objects of their own, so that only their text gives them away.
  const std::string file =
      assemble({dictionaryObject({1, 2, 3, 4, 5, 6, 7, 8}), textObject("a"), textObject("b"), textObject("a"),
                "\x61\0a"s, "\x10\x01", "\x10\x02", "\x10\x03", "\x10\x04"});
  EXPECT_EQ(*parse(file), (Dictionary{{"a", 4}, {"b", 2}}));
  EXPECT_EQ(parse(file)->dictionary()->size(), 2U);
  exercise(file);
}

TEST(BinaryPropertyList, BoundsDepthAndUnfolding) {
  const auto chain = [](std::size_t levels) {
    std::vector<std::string> objects;
    for (std::size_t i = 1; i < levels; ++i) objects.push_back(arrayObject({i}, 3));
    objects.push_back(arrayObject({}, 3));
    return assemble(objects, {.referenceWidth = 3});
  };
  for (const std::size_t levels : {limits::maximumDepth, limits::maximumDepth + 1, std::size_t{100'000}}) {
    const bool isTooDeep = parse(chain(levels), Soundness::inspected)->fault() == Fault::tooDeep;
    EXPECT_EQ(isTooDeep, levels > limits::maximumDepth) << levels;
    exercise(chain(levels));
  }
  for (const bool hasDictionaries : {false, true}) {
    std::vector<std::string> objects = {arrayObject({1, 2, 63})};
    for (std::uint64_t i = 2; i < 62; ++i)
      objects.push_back(hasDictionaries ? dictionaryObject({62, 63, i, i}) : arrayObject({i, i}));
    for (const char* text : {"leaf", "left", "good"}) objects.push_back(textObject(text));
    const std::string bomb = assemble(objects);
    const Result<Value> value = parse(bomb, Soundness::inspected);
    EXPECT_EQ(value->fault(), Fault::tooLarge) << (hasDictionaries ? "dictionaries" : "arrays");
    EXPECT_EQ(value->array()->at(2), "good");
    EXPECT_FALSE(*value == *parse(bomb, Soundness::inspected));
    exercise(bomb);
  }
}

TEST(BinaryPropertyList, SurvivesTruncationAndAnyChangedByte) {
  const Value record =
      Dictionary{{"Identifier", "A"}, {"Port", 993},           {"Secure", true},
                 {"Ratio", 0.5},      {"Since", Date{1234.5}}, {"Token", bytesValue("\x01\xFF")},
                 {"Name", "Zoë 🎈"},   {"Serial", ~0ULL},       {"ChildAccounts", array("C", 3)}};
  const std::string good = *binaryPropertyList(
      Dictionary{{"Accounts", array(record, Dictionary{{"Type", "Gmail"}})}, {"Version", 3}});
  for (std::size_t size = 0; size < good.size(); ++size)
    EXPECT_FALSE(parse(std::string_view(good).substr(0, size), Soundness::inspected)) << "cut after " << size;
  for (std::size_t offset = 0; offset < good.size(); ++offset) {
    const int byte = static_cast<unsigned char>(good[offset]);
    std::vector<int> others = {0x00, 0xFF, 0x5F, 0xA2, 0xD1, byte ^ 1, byte ^ 0x10, byte + 1, byte - 1};
    const bool isTrailer = offset >= good.size() - 32;
    for (int other = 0; isTrailer && other < 256; ++other) others.push_back(other);
    for (const int other : others) {
      SCOPED_TRACE("byte " + std::to_string(offset) + " is " + std::to_string(other));
      exercise(std::string(good).replace(offset, 1, 1, static_cast<char>(other)));
    }
  }
}

}  // namespace
}  // namespace roster::testing
