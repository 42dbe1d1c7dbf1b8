#include <gtest/gtest.h>

#include <cmath>

#include "platform/limits.h"
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

std::string wide(std::string_view ascii, bool isBigEndian) {
  std::string result;
  for (const char c : ascii) result += isBigEndian ? std::string{'\0', c} : std::string{c, '\0'};
  return result;
}

TEST(XmlPropertyList, ReadsEveryElement) {
  const std::pair<const char*, Value> cases[] = {
      {"<true/>", true},
      {"<string/>", ""},
      {"<string> a&lt;&amp;&gt;&quot;&apos;&#228;&#x1F600;</string>", " a<&>\"'ä😀"},
      {"<string>a<![CDATA[<&amp;]]>b<!-- c --><?d e?>f</string>", "a<&amp;bf"},
      {"<integer> -0x1F\n</integer>", -31},
      {"<integer>+0XFFFFFFFFFFFFFFFF</integer>", UINT64_MAX},
      {"<integer>18446744073709551615</integer>", UINT64_MAX},
      {"<integer>-9223372036854775808</integer>", INT64_MIN},
      {"<real>-1.5e-3</real>", -0.0015},
      {"<real>nan</real>", std::nan("")},
      {"<real>+Infinity</real>", INFINITY},
      {"<date>2001-01-01T00:00:00Z</date>", Date{0}},
      {"<date>0001-01-01T00:00:00Z</date>", Date{-63113904000}},
      {"<data/>", bytesValue("")},
      {"<data>\n\tAA\nEC /+8=\r\n</data>", bytesValue(std::string_view("\x00\x01\x02\xff\xef", 5))},
      {"<data>YQ==</data>", bytesValue("a")},
      {"<data>YW I=</data>", bytesValue("ab")},
      {"<array/>", Array()},
      {"<array><integer>1</integer><array><true/></array></array>", array(1, array(true))},
      {"<dict><key>a&amp;</key><dict/><key/><real>1</real></dict>",
       Dictionary({{"a&", Dictionary()}, {"", 1.0}})},
      {"<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>",
       Dictionary({{"a", false}, {"b", true}})},
  };
  for (const auto& [text, expected] : cases) {
    const Result<Value> value = parseElement(text);
    ASSERT_TRUE(value) << text << ": " << value.error();
    EXPECT_EQ(value->kind(), expected.kind()) << text;
    EXPECT_EQ(*value, expected) << text;
  }
}

TEST(XmlPropertyList, ReadsEveryWayADocumentIsWrapped) {
  const std::string declaration =
      "<!ELEMENT plist ANY> <!ATTLIST plist version CDATA \"1.0\"> <!ENTITY a \"b\">";
  const std::string plain = "<plist><array><string>x</string></array></plist>";
  const std::string cases[] = {
      "\xEF\xBB\xBF" + plain,
      "<array><string>x</string></array>",
      "<!-- a --><?b c?>\n" + plain + "\n<!-- d -->\n",
      "<!DOCTYPE plist SYSTEM \"file:///nowhere/at.all\">" + plain,
      "<!DOCTYPE plist [" + declaration + "]>" + plain,
      "\xFE\xFF" + wide(plain, true),
      "\xFF\xFE" + wide(plain, false),
      wide("<?xml version=\"1.0\" encoding=\"UTF-16LE\"?>" + plain, false),
  };
  for (const std::string& text : cases) {
    const Result<Value> value = parse(text);
    ASSERT_TRUE(value) << text << ": " << value.error();
    EXPECT_EQ(*value, array("x")) << text;
  }
}

TEST(XmlPropertyList, SaysWhatIsWrongAndWhere) {
  const std::pair<const char*, const char*> cases[] = {
      {"<dict><key>a</key></dict>", "a key without a value"},
      {"<dict><true/></dict>", "a value without a key"},
      {"<dict><key>a</key><true/><true/></dict>", "a value without a key"},
      {"<array><key>a</key></array>", "a key outside a dictionary"},
      {"<key>a</key>", "a key outside a dictionary"},
      {"<true/><true/>", "a second top value"},
      {"", "a <plist> without a value"},
      {"</plist><plist>", "a <plist> without a value"},
      {"<array><plist/></array>", "a <plist> inside another element"},
      {"<set/>", "an unknown element <set>"},
      {"<string><true/></string>", "an element <true> inside <string>"},
      {"<true>1</true>", "text where no text belongs"},
      {"<integer/>", "\"\" is not an integer"},
      {"<integer>1.5</integer>", "\"1.5\" is not an integer"},
      {"<integer>+-1</integer>", "\"+-1\" is not an integer"},
      {"<integer>0x</integer>", "\"0x\" is not an integer"},
      {"<integer>18446744073709551616</integer>", "an integer out of range: \"18446744073709551616\""},
      {"<integer>-9223372036854775809</integer>", "an integer out of range: \"-9223372036854775809\""},
      {"<real>1,5</real>", "\"1,5\" is not a real number"},
      {"<real>1e999</real>", "a real number out of range: \"1e999\""},
      {"<date>2023-02-29T00:00:00Z</date>", "\"2023-02-29T00:00:00Z\" is not a date"},
      {"<date>2023-02-28T00:00:00.5Z</date>", "\"2023-02-28T00:00:00.5Z\" is not a date"},
      {"<data>YQ==YQ==</data>", "data that is not base64"},
      {"<data>Y</data>", "data that is not base64"},
      {"<data>YW_x</data>", "data that is not base64"},
      {"<string>\xC3</string>", "not well-formed (invalid token)"},
  };
  for (const auto& [text, error] : cases) {
    EXPECT_EQ(parseElement(text).error(), "line 2: " + std::string(error)) << text;
  }
  EXPECT_EQ(parseElement("<array>\n<true></array>").error(), "line 3: mismatched tag");
  EXPECT_EQ(parse("\n").error(), "line 2: no element found");
}

TEST(XmlPropertyList, RefusesDeclaredEntitiesAndFetchesNone) {
  std::string laughs = "<!ENTITY a0 \"" + repeated("ha", 50) + "\">";
  for (int i = 1; i < 12; ++i) {
    const std::string inner = "&a" + std::to_string(i - 1) + ";";
    laughs += "<!ENTITY a" + std::to_string(i) + " \"" + repeated(inner, 10) + "\">";
  }
  const std::string attributes = "<!ATTLIST plist " + repeated("a CDATA 'x' ", 100) + ">";
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {"[<!ENTITY a \"b\">]", "<string>&a;</string>", "an entity that XML does not define: &a;"},
      {"SYSTEM \"x.dtd\"", "<string>&a;</string>", "an entity that XML does not define: &a;"},
      {"[<!ENTITY a SYSTEM \"/etc/hostname\">]", "<string>&a;</string>", "an entity outside the file"},
      {"[" + laughs + "]", "<string>&a11;</string>", "an entity that XML does not define: &a11;"},
      {"[" + laughs + "]", "<true a='&a11;'/>",
       "limit on input amplification factor (from DTD and entities) breached"},
      {"[" + attributes + "]", "<true/>", "a document type with too many attributes"},
  };
  for (const auto& [type, element, error] : cases) {
    const std::string text = "<!DOCTYPE plist " + type + "><plist>" + element + "</plist>";
    EXPECT_EQ(parse(text).error(), "line 1: " + std::string(error)) << text.substr(0, 100);
  }
}

TEST(XmlPropertyList, PassesOverWhatIsNestedTooDeeplyAndKeepsTheRest) {
  const std::size_t most = limits::maximumDepth;
  EXPECT_TRUE(parse(repeated("<array>", most) + repeated("</array>", most)));
  EXPECT_EQ(parse(repeated("<array>", most + 1) + repeated("</array>", most + 1)).error(),
            "a value in it is nested too deeply");

  const std::string deep = repeated("<dict><key>a</key>", 100000) + "<true/>" + repeated("</dict>", 100000);
  const Result<Value> value = parse("<dict><key>good</key><array><true/></array><key>bad</key>" + deep +
                                        "<key>also good</key><string>x</string></dict>",
                                    Soundness::inspected);
  ASSERT_TRUE(value) << value.error();
  const Dictionary top = *value->dictionary();
  EXPECT_EQ(value->fault(), Fault::tooDeep);
  EXPECT_EQ(top.find("bad").fault(), Fault::tooDeep);
  EXPECT_EQ(top.find("good").fault(), Fault::none);
  EXPECT_EQ(top.find("good"), array(true));
  EXPECT_EQ(top.find("also good"), Value("x"));
}

TEST(XmlPropertyList, ReadsLargeContents) {
  std::string text = "<dict><key>s</key><string>" + repeated("&amp;\n", 500000) + "</string>";
  for (int i = 0; i < 100000; ++i) text += "<key>" + std::to_string(i) + "</key><true/>";
  const Result<Value> value = parse(text + "</dict>");
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(value->dictionary()->size(), 100001U);
  EXPECT_EQ(value->dictionary()->find("s").string().view().size(), 1000000U);
}

}  // namespace
}  // namespace roster::testing
