#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "platform/limits.h"
#include "platform/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t nowhere = 250;

/// Uses a value in every way that a program could, whatever it is; fails when a sound one lets us down.
void exercise(std::string_view bytes) {
  const Result<Value> sound = parse(bytes);
  const Result<Value> value = parse(bytes, Soundness::inspected);
  ASSERT_EQ(!value, !value.error().empty());
  if (!value) {
    EXPECT_FALSE(sound) << "what can be required can be inspected";
    return;
  }
  EXPECT_EQ(bool(sound), value->fault() == Fault::none) << sound.error();
  EXPECT_TRUE(*value == *value);
  describe(*value);
  const Result<std::string> written = binaryPropertyList(*value);
  if (const std::optional<Dictionary> dictionary = value->dictionary()) {
    MutableDictionary changed(*dictionary);
    changed.set("another", 1);
    for (const DictionaryEntry& entry : changed) {
      EXPECT_FALSE(entry.key.isNil() || entry.value.isNil());
      const bool isFaulty = entry.value.fault() != Fault::none;
      EXPECT_TRUE(isFaulty || changed.find(entry.key) == entry.value);
    }
  }
  if (!sound) return;
  ASSERT_TRUE(written) << written.error();
  EXPECT_EQ(*sound, *value);
  const Result<Value> again = parse(*written);
  ASSERT_TRUE(again) << again.error();
  EXPECT_EQ(*again, *value);
}

std::string registry() {
  const Dictionary child{{"Identifier", "C"}, {"Type", "CalDAV"}, {"ParentID", "A"}};
  const Dictionary first{{"Identifier", "A"},
                         {"Port", 993},
                         {"Secure", true},
                         {"Ratio", 0.5},
                         {"Name", "Zoë 🎈"},
                         {"Since", Date{1234.5}},
                         {"Token", bytesValue("\x01\x02\xFF")},
                         {"ChildAccounts", array(child)}};
  const Dictionary second{{"Identifier", "B"}, {"Type", "Gmail"}, {"Serial", ~0ULL}};
  return *binaryPropertyList(Dictionary{{"Accounts", array(first, second)}, {"Version", 3}});
}

TEST(BinaryPropertyList, ReadsEveryScalar) {
  const std::pair<std::string, Value> cases[] = {
      {"\x08", false},
      {"\x09", true},
      {"\x10\xFF", 255},
      {"\x11\xFF\xFE", 65534},
      {"\x12\xFF\xFF\xFF\xFF", 4294967295},
      {"\x13"s + bigEndian(~0U, 4) + bigEndian(0xFFFFFFFE, 4), -2},
      {"\x13"s + bigEndian(1ULL << 63U, 8), std::numeric_limits<std::int64_t>::min()},
      {"\x14"s + bigEndian(~0ULL, 16), ~0ULL},
      {"\x14"s + std::string(15, '\xFF') + "\xFB", -5},
      {"\x22"s + bigEndian(0x3FC00000, 4), 1.5},
      {"\x23"s + bigEndian(0x3FB999999999999A, 8), 0.1},
      {"\x33"s + bigEndian(0xBFF8000000000000, 8), Date{-1.5}},
      {"\x43"s + "\0\x01\xFF"s, bytesValue("\0\x01\xFF"s)},
      {"\x40", bytesValue("")},
      {textObject("abc"), "abc"},
      {textObject(""), ""},
      {"\x63"s + "\0a\0\xE9\x20\xAC"s, "aé€"},
      {"\x62\xD8\x3C\xDF\x88", "🎈"},
      {"\xA0", Array()},
      {"\xD0", Dictionary()},
  };
  for (const auto& [object, expected] : cases) {
    const std::string name = describe(expected);
    const Result<Value> value = parse(assemble({object}));
    ASSERT_TRUE(value) << name << ": " << value.error();
    EXPECT_EQ(value->kind(), expected.kind()) << name;
    EXPECT_EQ(*value, expected) << name << ": " << describe(*value);
    exercise(assemble({object}));
  }
}

TEST(BinaryPropertyList, ReadsEveryWidth) {
  for (const unsigned width : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}) {
    const std::vector<std::string> objects = {dictionaryObject({1, 2, 3, 4}, width), textObject("key"),
                                              textObject("list"), "\x09", arrayObject({3, 1}, width)};
    const Result<Value> value = parse(assemble(objects, {width, 9 - width}));
    ASSERT_TRUE(value) << width << ": " << value.error();
    EXPECT_EQ(*value, (Dictionary{{"key", true}, {"list", array(true, "key")}})) << width;
  }
  for (const unsigned width : {1U, 2U, 4U, 8U}) {
    const std::vector<std::string> objects = {marker(0xC, 2, width) + references({1, 1}, 1),
                                              marker(5, 2, width) + "ab",
                                              "a part that nothing refers to and nobody can read"};
    const Result<Value> set = parse(assemble(objects));
    ASSERT_TRUE(set) << set.error();
    EXPECT_EQ(*set, array("ab", "ab")) << "a set with a length of " << width << " bytes";
  }
}

TEST(BinaryPropertyList, RefusesWhatHasNoPlaceAndSaysWhy) {
  const std::tuple<const char*, std::string, Fault> cases[] = {
      {"a null object", "\0"s, Fault::unknownObject},
      {"a UID", "\x80\x07", Fault::uid},
      {"an object of no kind", "\xF0", Fault::unknownObject},
      {"a date of four bytes", "\x32" + bigEndian(1, 4), Fault::unknownObject},
      {"an integer of 32 bytes", "\x15" + bigEndian(1, 32), Fault::badNumber},
      {"an integer beyond 64 bits", "\x14\x01" + bigEndian(0, 15), Fault::badNumber},
      {"an integer below 64 bits", "\x14" + std::string(8, '\xFF') + bigEndian(1, 8), Fault::badNumber},
      {"a real of two bytes", "\x21" + bigEndian(1, 2), Fault::badNumber},
      {"a length that is no integer", "\x5F" + textObject("a"), Fault::badNumber},
      {"a length of sixteen bytes", "\x5F\x14" + bigEndian(1, 16) + "a", Fault::badNumber},
      {"text that is not ASCII", "\x52\xC3\xA9", Fault::badText},
      {"a lone high surrogate", "\x61\xD8\x3C", Fault::badText},
      {"a high surrogate without its low one", "\x62\xD8\x3C\x20\xAC", Fault::badText},
      {"a lone low surrogate", "\x61\xDF\x88", Fault::badText},
      {"text longer than the file", marker(5, 0x7FFFFFFFFFFFFFFF), Fault::outOfBounds},
      {"the largest count of elements", marker(0xA, ~0ULL), Fault::outOfBounds},
      {"the largest count of entries", marker(0xD, 1ULL << 63U), Fault::outOfBounds},
      {"a reference to nothing", arrayObject({2, nowhere}), Fault::badReference},
      {"a key that is nowhere", dictionaryObject({nowhere, 2}), Fault::badReference},
      {"a number as key", dictionaryObject({3, 2}), Fault::badKey},
      {"a dictionary as its own key", dictionaryObject({1, 2}), Fault::badKey},
      {"unreadable text as key", dictionaryObject({4, 2}), Fault::badText},
      {"an array in itself", arrayObject({2, 1}), Fault::containsItself},
      {"two that contain each other", dictionaryObject({2, 0}), Fault::containsItself},
      {"a cycle below the top", arrayObject({5}), Fault::containsItself},
  };
  for (const auto& [name, object, fault] : cases) {
    const std::string file =
        assemble({arrayObject({1, 2}), object, textObject("key"), "\x10\x01", "\x51\xFF", arrayObject({1})});
    EXPECT_EQ(parse(file).error(), "a value in it " + std::string(describe(fault))) << name;
    const Result<Value> inspected = parse(file, Soundness::inspected);
    ASSERT_TRUE(inspected) << name << ": " << inspected.error();
    EXPECT_EQ(inspected->fault(), fault) << name;
    exercise(file);
  }
  EXPECT_EQ(parse(assemble({"\x80\x07"})).error(), "its top value " + std::string(describe(Fault::uid)));
  EXPECT_EQ(parse("").error(), "it is empty");
}

TEST(BinaryPropertyList, KeepsTheGoodPartsOfAFaultyFile) {
  const Result<Value> value =
      parse(assemble({arrayObject({1, 2, 3, 5}), dictionaryObject({4, 5}), dictionaryObject({4, 3}),
                      "\x80\x01", textObject("name"), textObject("good")}),
            Soundness::inspected);
  ASSERT_TRUE(value) << value.error();
  const Array list = *value->array();
  EXPECT_EQ(list.at(0), (Dictionary{{"name", "good"}}));
  EXPECT_EQ(list.at(0).fault(), Fault::none);
  EXPECT_EQ(list.at(1).fault(), Fault::uid);
  EXPECT_TRUE(list.at(1).dictionary()->find("name").isNil());
  EXPECT_TRUE(list.at(2).isNil());
  EXPECT_EQ(list.at(3), "good");
  EXPECT_FALSE(binaryPropertyList(*value)) << "nothing is written in the place of what was lost";
}

TEST(BinaryPropertyList, RefusesObjectsThatOverlap) {
  const std::string reachesIntoTheNext = marker(5, 6) + "one";
  const Result<Value> value =
      parse(assemble({arrayObject({1, 2}), reachesIntoTheNext, textObject("two")}), Soundness::inspected);
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(value->fault(), Fault::overlaps);
  EXPECT_TRUE(value->array()->at(0).isNil());
  EXPECT_EQ(value->array()->at(1), "two");

  std::string unordered = assemble({arrayObject({1, 2}), textObject("one"), textObject("two")});
  std::swap_ranges(unordered.end() - 40, unordered.end() - 36, unordered.end() - 36);
  EXPECT_EQ(*parse(unordered), array("two", "one")) << "objects may stand in any order";

  std::string endless = "bplist00" + marker(6, 20000) + std::string(40000, 'x');
  const std::size_t table = endless.size();
  endless += references(std::vector<std::uint64_t>(10000, 8), 4) + std::string(6, '\0') + "\x04\x02";
  endless += references({10000, 0, table}, 8);
  EXPECT_EQ(parse(endless, Soundness::inspected).error(),
            "the binary property list is damaged: its objects overlap");
}

TEST(BinaryPropertyList, TheLastOfRepeatedKeysCounts) {
  // The second "a" is an object of its own, so that only its text gives it away.
  const std::string file =
      assemble({dictionaryObject({1, 2, 3, 1, 4, 5, 6, 7}), textObject("a"), textObject("b"), textObject("a"),
                "\x10\x01", "\x10\x02", "\x10\x03", "\x10\x04"});
  const Result<Value> value = parse(file);
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(*value, (Dictionary{{"a", 4}, {"b", 2}}));
  EXPECT_EQ((Dictionary{{"a", 4}, {"b", 2}}), *value);
  EXPECT_EQ(value->dictionary()->size(), 2U);
  exercise(file);
  const std::string narrowAndWide =
      assemble({arrayObject({1, 2}), dictionaryObject({3, 5}), dictionaryObject({4, 6}), textObject("a"),
                "\x61\0a"s, "\x08", "\x09"});
  EXPECT_EQ(*parse(narrowAndWide), array(Dictionary{{"a", false}}, Dictionary{{"a", true}}));
}

TEST(BinaryPropertyList, LongDictionariesAreSearchedFast) {
  MutableDictionary forward;
  MutableDictionary backward;
  for (int i = 0; i < 100'000; ++i) {
    forward.set("key " + std::to_string(i), i);
    backward.set("key " + std::to_string(99'999 - i), 99'999 - i);
  }
  EXPECT_TRUE(*parse(*binaryPropertyList(forward)) == *parse(*binaryPropertyList(backward)));
}

TEST(BinaryPropertyList, BoundsDepthAndUnfolding) {
  const auto chain = [](std::size_t levels) {
    std::vector<std::string> objects;
    for (std::size_t i = 1; i < levels; ++i) objects.push_back(arrayObject({i}, 3));
    objects.push_back(arrayObject({}, 3));
    return assemble(objects, {.referenceWidth = 3});
  };
  EXPECT_EQ(parse(chain(limits::maximumDepth + 1), Soundness::inspected)->fault(), Fault::tooDeep);
  for (const std::size_t levels : {limits::maximumDepth, limits::maximumDepth + 1, std::size_t{100'000}}) {
    exercise(chain(levels));
  }

  for (const bool hasDictionaries : {false, true}) {
    std::vector<std::string> objects = {arrayObject({1, 2, 63})};
    for (std::uint64_t i = 1; i < 61; ++i) {
      objects.push_back(hasDictionaries ? dictionaryObject({62, 63, i + 1, i + 1})
                                        : arrayObject({i + 1, i + 1}));
    }
    for (const char* text : {"leaf", "left", "good"}) objects.push_back(textObject(text));
    const std::string bomb = assemble(objects);
    const Result<Value> value = parse(bomb, Soundness::inspected);
    ASSERT_TRUE(value) << value.error();
    EXPECT_EQ(value->fault(), Fault::tooLarge);
    EXPECT_EQ(value->array()->at(2), "good");
    EXPECT_FALSE(*value == *parse(bomb, Soundness::inspected));
    exercise(bomb);
  }
}

TEST(BinaryPropertyList, SurvivesTruncationAndAnyChangedByte) {
  const std::string good = registry();
  exercise(good);
  for (std::size_t size = 0; size < good.size(); ++size)
    EXPECT_FALSE(parse(std::string_view(good).substr(0, size), Soundness::inspected)) << size;
  for (std::size_t at = 0; at < good.size(); ++at) {
    const int byte = static_cast<unsigned char>(good[at]);
    std::vector<int> others = {0x00, 0xFF, 0x5F, 0xA2, 0xD1, byte ^ 1, byte ^ 0x10, byte + 1, byte - 1};
    const bool isTrailer = at >= good.size() - 32;
    for (int other = 0; isTrailer && other < 256; ++other) others.push_back(other);
    for (const int other : others) {
      std::string file = good;
      file[at] = static_cast<char>(other);
      SCOPED_TRACE("byte " + std::to_string(at) + " is " + std::to_string(other));
      exercise(file);
    }
  }
}

}  // namespace
}  // namespace roster::testing
