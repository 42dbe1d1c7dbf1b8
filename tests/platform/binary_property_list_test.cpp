#include <gtest/gtest.h>

#include <cmath>
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

/// Two accounts with what registries hold, one with a child.
std::string registry() {
  const Dictionary child{{"Identifier", "C"}, {"Type", "CalDAV"}, {"ParentID", "A"}};
  const Dictionary settings{{"Port", 993}, {"Secure", true}, {"Ratio", 0.5}, {"Name", "Zoë 🎈"}};
  const Dictionary first{{"Identifier", "A"},
                         {"Type", "Exchange"},
                         {"Settings", settings},
                         {"Since", Date{1234.5}},
                         {"Token", bytesValue("\x01\x02\xFF")},
                         {"ChildAccounts", array(child)}};
  const Dictionary second{{"Identifier", "B"}, {"Type", "Gmail"}, {"Serial", 0xFFFFFFFFFFFFFFFFU}};
  return *binaryPropertyList(Dictionary{{"Accounts", array(first, second)}, {"Version", 3}});
}

TEST(BinaryPropertyList, ReadsEveryScalar) {
  const std::tuple<const char*, std::string, Value> cases[] = {
      {"false", "\x08", false},
      {"true", "\x09", true},
      {"one byte is unsigned", "\x10\xFF", 255},
      {"two bytes are unsigned", "\x11\xFF\xFE", 65534},
      {"four bytes are unsigned", "\x12\xFF\xFF\xFF\xFF", 4294967295},
      {"eight bytes are signed", "\x13"s + bigEndian(~0U, 4) + bigEndian(0xFFFFFFFE, 4), -2},
      {"the least integer", "\x13"s + bigEndian(1ULL << 63U, 8), std::numeric_limits<std::int64_t>::min()},
      {"sixteen bytes", "\x14"s + bigEndian(7, 16), 7},
      {"sixteen bytes above the signed range", "\x14"s + bigEndian(~0ULL, 16), ~0ULL},
      {"sixteen bytes below zero", "\x14"s + std::string(15, '\xFF') + "\xFB", -5},
      {"a short real", "\x22"s + bigEndian(0x3FC00000, 4), 1.5},
      {"a long real", "\x23"s + bigEndian(0x3FB999999999999A, 8), 0.1},
      {"a date", "\x33"s + bigEndian(0xBFF8000000000000, 8), Date{-1.5}},
      {"data", "\x43"s + "\0\x01\xFF"s, bytesValue("\0\x01\xFF"s)},
      {"no data", "\x40", bytesValue("")},
      {"text",
       "\x53"
       "abc",
       "abc"},
      {"no text", "\x50", ""},
      {"wide text", "\x63"s + "\0a\0\xE9\x20\xAC"s, "aé€"},
      {"a surrogate pair", "\x62\xD8\x3C\xDF\x88", "🎈"},
      {"no elements", "\xA0", Array()},
      {"no entries", "\xD0", Dictionary()},
  };
  for (const auto& [name, object, expected] : cases) {
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
  const std::string key = textObject("key");
  const std::tuple<const char*, std::vector<std::string>, Fault> cases[] = {
      {"a null object", {arrayObject({1}), "\0"s}, Fault::unknownObject},
      {"a UID", {arrayObject({1}), "\x80\x07"}, Fault::uid},
      {"an object of no kind", {arrayObject({1}), "\xF0"}, Fault::unknownObject},
      {"a date of four bytes",
       {arrayObject({1}),
        "\x32"
        "abcd"},
       Fault::unknownObject},
      {"an integer of 32 bytes", {arrayObject({1}), "\x15"s + std::string(32, 'x')}, Fault::badNumber},
      {"an integer beyond 64 bits",
       {arrayObject({1}), "\x14\x01"s + std::string(15, '\0')},
       Fault::badNumber},
      {"an integer below 64 bits",
       {arrayObject({1}), "\x14"s + std::string(8, '\xFF') + bigEndian(1, 8)},
       Fault::badNumber},
      {"a real of two bytes",
       {arrayObject({1}),
        "\x21"
        "ab"},
       Fault::badNumber},
      {"a length that is no integer",
       {arrayObject({1}),
        "\x5F\x51"
        "a"},
       Fault::badNumber},
      {"a length of sixteen bytes",
       {arrayObject({1}), "\x5F\x14"s + bigEndian(1, 16) + "a"},
       Fault::badNumber},
      {"text that is not ASCII", {arrayObject({1}), "\x52\xC3\xA9"}, Fault::badText},
      {"a lone high surrogate", {arrayObject({1}), "\x61\xD8\x3C"}, Fault::badText},
      {"a high surrogate without its low one", {arrayObject({1}), "\x62\xD8\x3C\x20\xAC"}, Fault::badText},
      {"a lone low surrogate", {arrayObject({1}), "\x61\xDF\x88"}, Fault::badText},
      {"text longer than the file", {arrayObject({1}), marker(5, 0x7FFFFFFFFFFFFFFF)}, Fault::outOfBounds},
      {"the largest count of elements", {arrayObject({1}), marker(0xA, ~0ULL)}, Fault::outOfBounds},
      {"the largest count of entries", {arrayObject({1}), marker(0xD, 1ULL << 63U)}, Fault::outOfBounds},
      {"a reference to nothing", {arrayObject({1, nowhere}), key}, Fault::badReference},
      {"a key that is nowhere", {dictionaryObject({nowhere, 1}), key}, Fault::badReference},
      {"a number as key", {dictionaryObject({1, 2}), "\x10\x01", key}, Fault::badKey},
      {"a dictionary as its own key", {dictionaryObject({0, 1}), key}, Fault::badKey},
      {"unreadable text as key", {dictionaryObject({1, 2}), "\x51\xFF", key}, Fault::badText},
      {"an array in itself", {arrayObject({1, 0}), key}, Fault::containsItself},
      {"two that contain each other",
       {arrayObject({1}), dictionaryObject({2, 0}), key},
       Fault::containsItself},
      {"a cycle below the top",
       {arrayObject({1, 3}), arrayObject({2}), arrayObject({1}), key},
       Fault::containsItself},
  };
  for (const auto& [name, objects, fault] : cases) {
    const std::string file = assemble(objects);
    const Result<Value> value = parse(file);
    EXPECT_FALSE(value) << name;
    EXPECT_EQ(value.error(), "a value in it " + std::string(describe(fault))) << name;
    const Result<Value> inspected = parse(file, Soundness::inspected);
    ASSERT_TRUE(inspected) << name << ": " << inspected.error();
    EXPECT_EQ(inspected->fault(), fault) << name;
    exercise(file);
  }
  EXPECT_EQ(parse(assemble({"\x80\x07"})).error(), "its top value " + std::string(describe(Fault::uid)));
  EXPECT_EQ(parse("").error(), "it is empty");
}

TEST(BinaryPropertyList, KeepsTheGoodPartsOfAFaultyFile) {
  const std::vector<std::string> objects = {
      arrayObject({1, 2, 3, 5}), dictionaryObject({4, 5}), dictionaryObject({4, 3}), "\x80\x01",
      textObject("name"),        textObject("good"),
  };
  const Result<Value> value = parse(assemble(objects), Soundness::inspected);
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

TEST(BinaryPropertyList, OneWrongLengthCostsOneValue) {
  std::vector<std::string> objects = {arrayObject({1, 2, 3}), textObject("one"), textObject("two"),
                                      textObject("three")};
  objects[1][0] = '\x56';  // now it reaches into the next one
  const Result<Value> value = parse(assemble(objects), Soundness::inspected);
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(value->fault(), Fault::overlaps);
  EXPECT_TRUE(value->array()->at(0).isNil());
  EXPECT_EQ(value->array()->at(1), "two");
  EXPECT_EQ(value->array()->at(2), "three");

  std::string unordered = assemble({arrayObject({1, 2}), textObject("one"), textObject("two")});
  std::swap_ranges(unordered.end() - 40, unordered.end() - 36, unordered.end() - 36);
  EXPECT_EQ(*parse(unordered), array("two", "one")) << "objects may stand in any order";
}

TEST(BinaryPropertyList, RefusesASmallFileThatStandsForEndlessText) {
  std::string file = assemble({marker(6, 20000) + std::string(40000, 'x')});
  const std::string table = bigEndian(8, 4);
  file.resize(file.size() - 36);
  const std::size_t tableOffset = file.size();
  for (int i = 0; i < 10000; ++i) file += table;
  file +=
      std::string(6, '\0') + "\x04\x02" + bigEndian(10000, 8) + bigEndian(0, 8) + bigEndian(tableOffset, 8);
  EXPECT_EQ(parse(file, Soundness::inspected).error(),
            "the binary property list is damaged: its objects overlap");
}

TEST(BinaryPropertyList, TheLastOfRepeatedKeysCounts) {
  // The second "a" is an object of its own, so that only its text gives it away.
  const std::vector<std::string> objects = {dictionaryObject({1, 2, 3, 1, 4, 5, 6, 7}),
                                            textObject("a"),
                                            textObject("b"),
                                            textObject("a"),
                                            "\x10\x01",
                                            "\x10\x02",
                                            "\x10\x03",
                                            "\x10\x04"};
  const Result<Value> value = parse(assemble(objects));
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(*value, (Dictionary{{"a", 4}, {"b", 2}}));
  EXPECT_EQ((Dictionary{{"a", 4}, {"b", 2}}), *value);
  EXPECT_EQ(value->dictionary()->size(), 2U);
  exercise(assemble(objects));
  const std::vector<std::string> sameText = {arrayObject({1, 2}),
                                             dictionaryObject({3, 5}),
                                             dictionaryObject({4, 6}),
                                             textObject("a"),
                                             "\x61\0a"s,
                                             "\x08",
                                             "\x09"};
  EXPECT_EQ(*parse(assemble(sameText)), array(Dictionary{{"a", false}}, Dictionary{{"a", true}}));
}

TEST(BinaryPropertyList, LongDictionariesAreSearchedFast) {
  MutableDictionary forward;
  MutableDictionary backward;
  constexpr int count = 100'000;
  for (int i = 0; i < count; ++i) forward.set("key " + std::to_string(i), i);
  for (int i = count; i-- > 0;) backward.set("key " + std::to_string(i), i);
  const Result<Value> left = parse(*binaryPropertyList(forward));
  const Result<Value> right = parse(*binaryPropertyList(backward));
  ASSERT_TRUE(left && right);
  EXPECT_TRUE(*left == *right);
  EXPECT_EQ(left->dictionary()->find("key 77777"), 77777);
  EXPECT_TRUE(left->dictionary()->find("key").isNil());
}

TEST(BinaryPropertyList, BoundsDepthAndUnfolding) {
  const auto chain = [](std::size_t levels) {
    std::vector<std::string> objects;
    for (std::size_t i = 1; i < levels; ++i) objects.push_back(arrayObject({i}, 3));
    objects.push_back(arrayObject({}, 3));
    return assemble(objects, {.referenceWidth = 3});
  };
  EXPECT_TRUE(parse(chain(limits::maximumDepth)));
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

TEST(BinaryPropertyList, SurvivesTruncationAnywhere) {
  const std::string file = registry();
  exercise(file);
  for (std::size_t size = 0; size < file.size(); ++size) {
    EXPECT_FALSE(parse(std::string_view(file).substr(0, size), Soundness::inspected)) << size;
  }
}

TEST(BinaryPropertyList, SurvivesAnyChangedByte) {
  const std::string good = registry();
  const auto change = [&good](std::size_t at, int byte) {
    std::string file = good;
    file[at] = static_cast<char>(byte);
    SCOPED_TRACE("byte " + std::to_string(at) + " is " + std::to_string(byte));
    exercise(file);
  };
  const std::size_t trailer = good.size() - 32;
  for (std::size_t at = 0; at < trailer; ++at) {
    const int byte = static_cast<unsigned char>(good[at]);
    for (const int other : {0x00, 0xFF, 0x5F, 0xA2, 0xD1, byte ^ 1, byte ^ 0x10, byte + 1, byte - 1})
      change(at, other);
  }
  for (std::size_t at = trailer; at < good.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) change(at, byte);
  }
}

}  // namespace
}  // namespace roster::testing
