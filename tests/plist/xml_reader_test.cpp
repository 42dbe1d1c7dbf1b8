#include <gtest/gtest.h>

#include <cmath>

#include "roster/base/limits.h"
#include "roster/platform/system_log.h"
#include "roster/value/value_description.h"
#include "tests/support/binary_assembler.h"
#include "tests/support/values.h"

namespace roster::testing {
namespace {

Result<Value> parseElement(const std::string& element) {
  return parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + element + "</plist>");
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  while (count-- > 0) result += text;
  return result;
}

TEST(XmlPropertyList, ReadsElementsInEverySpelling) {
  // The tests of peers read what other libraries write; this is what people write by hand.
  const std::pair<const char*, Value> cases[] = {
      {"<string> a&lt;&amp;&gt;&quot;&apos;&#228;&#x1F600;</string>", " a<&>\"'ä😀"},
      {"<string>a<![CDATA[<&amp;]]>b<!-- c --><?d e?>f</string>", "a<&amp;bf"},
      {"<integer> -0x1F\n</integer>", -31},
      {"<integer>+0XFFFFFFFFFFFFFFFF</integer>", UINT64_MAX},
      {"<real>-1.5e-3</real>", -0.0015},
      {"<date>\n1-01-01T00:00:00Z </date>", Date{-63113904000.0}},
      {"<date>0001-01-01T00:00:00Z</date>", Date{-63113904000.0}},
      {"<date>987-12-31T23:59:59Z</date>", *dateFromText("0987-12-31T23:59:59Z")},
      {"<real>+Infinity</real>", INFINITY},
      {"<data>\n\tAA\nEC /+8=\r\n</data>", bytesValue(std::string_view("\x00\x01\x02\xff\xef", 5))},
      {"<array><data/><string/><dict/><true/></array>", array(bytesValue(""), "", Dictionary(), true)},
      {"<dict><key>a&amp;</key><true/><key/><real>1</real><key>a&amp;</key><false/></dict>",
       Dictionary({{"a&", false}, {"", 1.0}})},
  };
  for (const auto& [text, expected] : cases) {
    const Result<Value> value = parseElement(text);
    ASSERT_TRUE(value) << text << ": " << value.error().message;
    EXPECT_TRUE(*value == expected && value->kind() == expected.kind()) << text;
  }
  for (const char* document :
       {"\xEF\xBB\xBF<true/>", "<!-- a --><?b c?>\n<plist><true/></plist>\n<!-- d -->\n",
        "<!DOCTYPE plist SYSTEM \"file:///nowhere/at.all\"><true/>",
        "<!DOCTYPE plist [<!ELEMENT plist ANY> <!ATTLIST plist version CDATA \"1.0\">]><true/>"})
    EXPECT_EQ(*parse(document), true) << document;
}

TEST(XmlPropertyList, SaysWhatIsWrongAndWhere) {
  const std::pair<const char*, const char*> cases[] = {
      {"<dict><key>a</key></dict>", "a key without a value"},
      {"<dict><key>a</key><true/><true/></dict>", "a value without a key"},
      {"<array><key>a</key></array>", "a key outside a dictionary"},
      {"<true/><true/>", "a second top value"},
      {"", "a <plist> without a value"},
      {"<array><plist/></array>", "a <plist> inside another element"},
      {"<set/>", "an unknown element <set>"},
      {"<string><true/></string>", "an element <true> inside <string>"},
      {"<true>1</true>", "text where no text belongs"},
      {"<integer>0x</integer>", "\"0x\" is not an integer"},
      {"<integer>18446744073709551616</integer>", "an integer out of range: \"18446744073709551616\""},
      {"<real>1e999</real>", "a real number out of range: \"1e999\""},
      {"<date>2023-02-29T00:00:00Z</date>", "\"2023-02-29T00:00:00Z\" is not a date"},
      {"<date>123-2-28T00:00:00Z</date>", "\"123-2-28T00:00:00Z\" is not a date"},
      {"<date>2023-02-28T00:00:00.5Z</date>", "\"2023-02-28T00:00:00.5Z\" is not a date"},
      {"<data>YQ==YQ==</data>", "data that is not base64"},
      {"<data>YQ=</data>", "data that is not base64"},
      {"<string>\xC3</string>", "not well-formed (invalid token)"},
  };
  for (const auto& [text, error] : cases)
    EXPECT_EQ(errorOf(parseElement(text)), "line 2: " + std::string(error)) << text;
  EXPECT_EQ(parseElement("<array>\n<true></array>").error().message, "line 3: mismatched tag");
  EXPECT_EQ(parse("\n").error().message, "line 2: no element found");
}

TEST(XmlPropertyList, InspectedLeavesOutWhatCannotBeReadAndKeepsTheRest) {
  for (const std::string leaf :
       {"<date>2023-13-01T00:00:00Z</date>", "<integer/>", "<data>YQ==YQ==</data>", "<real>1e999</real>"}) {
    const std::string file = "<dict><key>list</key><array>" + leaf +
                             "<true/></array><key>a</key><true/><key>a</key>" + leaf +
                             "<key>z</key><string>kept</string></dict>";
    const Result<Value> value = parse(file, Soundness::inspected);
    ASSERT_TRUE(value) << errorOf(value);
    EXPECT_EQ(value->fault(), Fault::badScalar);
    EXPECT_EQ(value->dictionary()->find("list").fault(), Fault::badScalar);
    EXPECT_EQ(describe(*value), "{list = [true]; z = \"kept\"}") << "of a repeated key the last counts";
    EXPECT_FALSE(parse(file));
    EXPECT_FALSE(parse(leaf, Soundness::inspected)) << "nothing is left without it";
  }
}

TEST(XmlPropertyList, RefusesDeclaredEntitiesAndFetchesNone) {
  std::string laughs = "[<!ENTITY a0 \"" + repeated("ha", 50) + "\">";
  for (int i = 0; i < 9; ++i)
    laughs += formatted("<!ENTITY a%d '%s'>", i + 1, repeated(formatted("&a%d;", i), 10));
  const std::string attributes = "[<!ATTLIST plist " + repeated("a CDATA 'x' ", 100) + ">]";
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {laughs + "]", "<string>&a9;</string>", "an entity that XML does not define: &a9;"},
      {laughs + "]", "<true a='&a9;'/>",
       "limit on input amplification factor (from DTD and entities) breached"},
      {"SYSTEM \"x.dtd\"", "<string>&a;</string>", "an entity that XML does not define: &a;"},
      {"[<!ENTITY a SYSTEM \"/etc/hostname\">]", "<string>&a;</string>", "an entity outside the file"},
      {attributes, "<true/>", "a document type with too many attributes"},
  };
  for (const auto& [type, element, error] : cases) {
    EXPECT_EQ(errorOf(parse("<!DOCTYPE plist " + type + "><plist>" + element + "</plist>")),
              "line 1: " + std::string(error));
  }
}

TEST(XmlPropertyList, PassesOverWhatIsNestedTooDeeplyAndKeepsTheRest) {
  const std::size_t maximum = limits::maximumDepth;
  EXPECT_TRUE(parse(repeated("<array>", maximum) + repeated("</array>", maximum)));
  EXPECT_EQ(parse(repeated("<array>", maximum + 1) + repeated("</array>", maximum + 1)).error().message,
            "a value in it is nested too deeply");

  const std::string deep = repeated("<dict><key>a</key>", 100'000) + "<true/>" + repeated("</dict>", 100'000);
  const Result<Value> value = parse("<dict><key>good</key><array><true/></array><key>bad</key>" + deep +
                                        "<key>also good</key><string>x</string></dict>",
                                    Soundness::inspected);
  EXPECT_EQ(value->dictionary()->find("bad").fault(), Fault::tooDeep);
  EXPECT_EQ(value->dictionary()->find("good"), array(true));
  EXPECT_EQ(value->dictionary()->find("also good"), "x");
}

}  // namespace
}  // namespace roster::testing
