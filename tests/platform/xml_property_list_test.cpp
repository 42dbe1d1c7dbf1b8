#include <gtest/gtest.h>

#include <cmath>

#include "platform/limits.h"
#include "platform/property_list.h"

namespace roster {
namespace {

Array list(std::vector<Value> elements) { return Array(std::move(elements)); }

Result<Value> parse(std::string_view text, Soundness soundness = Soundness::required) {
  return parsePropertyList(Bytes(text), soundness);
}

Result<Value> parseElement(const std::string& element) {
  return parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + element + "</plist>");
}

Value bytes(std::string_view text) { return Value::data(std::as_bytes(std::span(text))); }

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  while (count-- > 0) result += text;
  return result;
}

/// ASCII text as UTF-16 of the given byte order.
std::string wide(std::string_view ascii, bool isBigEndian) {
  std::string result;
  for (const char c : ascii) result += isBigEndian ? std::string{'\0', c} : std::string{c, '\0'};
  return result;
}

TEST(XmlPropertyList, ReadsEveryElement) {
  const std::pair<const char*, Value> cases[] = {
      {"<true/>", true},
      {"<false> </false>", false},
      {"<string/>", ""},
      {"<string> a&lt;&amp;&gt;&quot;&apos;&#228;&#x1F600;</string>", " a<&>\"'ä😀"},
      {"<string>a<![CDATA[<&amp;]]>b<!-- c --><?d e?>f</string>", "a<&amp;bf"},
      {"<string>a\r\nb</string>", "a\nb"},
      {"<integer>0</integer>", 0},
      {"<integer> -0x1F\n</integer>", -31},
      {"<integer>+0XFFFFFFFFFFFFFFFF</integer>", UINT64_MAX},
      {"<integer>18446744073709551615</integer>", UINT64_MAX},
      {"<integer>9223372036854775807</integer>", INT64_MAX},
      {"<integer>-9223372036854775808</integer>", INT64_MIN},
      {"<real>-1.5e-3</real>", -0.0015},
      {"<real> +2 </real>", 2.0},
      {"<real>nan</real>", std::nan("")},
      {"<real>+Infinity</real>", INFINITY},
      {"<real>-inf</real>", -INFINITY},
      {"<date>2001-01-01T00:00:00Z</date>", Date{0}},
      {"<date>2024-02-29T23:59:59Z</date>", Date{730943999}},
      {"<date>0001-01-01T00:00:00Z</date>", Date{-63113904000}},
      {"<data/>", bytes("")},
      {"<data>\n\tAA\nEC /+8=\r\n</data>", bytes(std::string_view("\x00\x01\x02\xff\xef", 5))},
      {"<data>YQ==</data>", bytes("a")},
      {"<data>YW I=</data>", bytes("ab")},
      {"<array/>", Array()},
      {"<array><integer>1</integer><array><true/></array></array>", list({1, list({true})})},
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
  const std::string plain = "<plist><array><string>x</string></array></plist>";
  const std::string cases[] = {
      plain,
      "\xEF\xBB\xBF" + plain,
      "<array><string>x</string></array>",
      "<!-- a --><?b c?>\n" + plain + "\n<!-- d -->\n",
      "<!DOCTYPE plist SYSTEM \"file:///nowhere/at.all\">" + plain,
      "<!DOCTYPE plist [<!ELEMENT plist ANY> <!ATTLIST plist version CDATA \"1.0\"> <!ENTITY a \"b\">]>" +
          plain,
      "\xFE\xFF" + wide(plain, true),
      "\xFF\xFE" + wide(plain, false),
      wide("<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + plain, true),
      wide("<?xml version=\"1.0\" encoding=\"UTF-16LE\"?>" + plain, false),
  };
  for (const std::string& text : cases) {
    const Result<Value> value = parse(text);
    ASSERT_TRUE(value) << text << ": " << value.error();
    EXPECT_EQ(*value, Value(list({"x"}))) << text;
  }
}

TEST(XmlPropertyList, SaysWhatIsWrongAndWhere) {
  const std::pair<const char*, const char*> cases[] = {
      {"\n<dict><key>a</key></dict>", "line 3: a key without a value"},
      {"<dict><key>a</key>\n\n<key>b</key></dict>", "line 4: a key without a value"},
      {"<dict><true/></dict>", "line 2: a value without a key"},
      {"<dict><key>a</key><true/><true/></dict>", "line 2: a value without a key"},
      {"<array><key>a</key></array>", "line 2: a key outside a dictionary"},
      {"<key>a</key>", "line 2: a key outside a dictionary"},
      {"<true/><true/>", "line 2: a second top value"},
      {"", "line 2: a <plist> without a value"},
      {"<array><plist/></array>", "line 2: a <plist> inside another element"},
      {"<set/>", "line 2: an unknown element <set>"},
      {"<string><true/></string>", "line 2: an element <true> inside <string>"},
      {"<array>x</array>", "line 2: text where no text belongs"},
      {"<true>1</true>", "line 2: text where no text belongs"},
      {"<integer/>", "line 2: \"\" is not an integer"},
      {"<integer>1.5</integer>", "line 2: \"1.5\" is not an integer"},
      {"<integer>+-1</integer>", "line 2: \"+-1\" is not an integer"},
      {"<integer>0x</integer>", "line 2: \"0x\" is not an integer"},
      {"<integer>18446744073709551616</integer>",
       "line 2: an integer out of range: \"18446744073709551616\""},
      {"<integer>-9223372036854775809</integer>",
       "line 2: an integer out of range: \"-9223372036854775809\""},
      {"<real>1,5</real>", "line 2: \"1,5\" is not a real number"},
      {"<real>1e999</real>", "line 2: a real number out of range: \"1e999\""},
      {"<date>2023-02-29T00:00:00Z</date>", "line 2: \"2023-02-29T00:00:00Z\" is not a date"},
      {"<date>2023-02-28T24:00:00Z</date>", "line 2: \"2023-02-28T24:00:00Z\" is not a date"},
      {"<date>2023-02-28T00:00:00.5Z</date>", "line 2: \"2023-02-28T00:00:00.5Z\" is not a date"},
      {"<date>2023-02-28 00:00:00Z</date>", "line 2: \"2023-02-28 00:00:00Z\" is not a date"},
      {"<data>YQ=</data>", "line 2: data that is not base64"},
      {"<data>YQ==YQ==</data>", "line 2: data that is not base64"},
      {"<data>Y</data>", "line 2: data that is not base64"},
      {"<data>YW_x</data>", "line 2: data that is not base64"},
      {"<array>\n<true></array>", "line 3: mismatched tag"},
      {"<string>\xC3</string>", "line 2: not well-formed (invalid token)"},
      {"</plist><plist>", "line 2: a <plist> without a value"},
  };
  for (const auto& [text, error] : cases) EXPECT_EQ(parseElement(text).error(), error) << text;
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
      {"[<!ENTITY a \"b\">]", "<string>&a;</string>", "line 1: an entity that XML does not define: &a;"},
      {"SYSTEM \"x.dtd\"", "<string>&a;</string>", "line 1: an entity that XML does not define: &a;"},
      {"[<!ENTITY a SYSTEM \"/etc/hostname\">]", "<string>&a;</string>",
       "line 1: an entity outside the file"},
      {"[" + laughs + "]", "<string>&a11;</string>", "line 1: an entity that XML does not define: &a11;"},
      {"[" + laughs + "]", "<true a='&a11;'/>",
       "line 1: limit on input amplification factor (from DTD and entities) breached"},
      {"[" + attributes + "]", "<true/>", "line 1: a document type with too many attributes"},
  };
  for (const auto& [type, element, error] : cases) {
    const std::string text = "<!DOCTYPE plist " + type + "><plist>" + element + "</plist>";
    EXPECT_EQ(parse(text).error(), error) << text.substr(0, 100);
  }
}

TEST(XmlPropertyList, PassesOverWhatIsNestedTooDeeplyAndKeepsTheRest) {
  const auto nested = [](std::size_t depth) {
    return repeated("<array>", depth) + repeated("</array>", depth);
  };
  EXPECT_TRUE(parse(nested(limits::maximumDepth)));
  EXPECT_EQ(parse(nested(limits::maximumDepth + 1)).error(), "a value in it is nested too deeply");

  const std::string deep = repeated("<dict><key>a</key>", 100000) + "<true/>" + repeated("</dict>", 100000);
  const Result<Value> value = parse("<dict><key>good</key><array><true/></array><key>bad</key>" + deep +
                                        "<key>also good</key><string>x</string></dict>",
                                    Soundness::inspected);
  ASSERT_TRUE(value) << value.error();
  const Dictionary top = *value->dictionary();
  EXPECT_EQ(value->fault(), Fault::tooDeep);
  EXPECT_EQ(top.find("bad").fault(), Fault::tooDeep);
  EXPECT_EQ(top.find("good").fault(), Fault::none);
  EXPECT_EQ(top.find("good"), Value(list({true})));
  EXPECT_EQ(top.find("also good"), Value("x"));
}

TEST(XmlPropertyList, ReadsLargeContents) {
  std::string text = "<plist><dict>";
  for (int i = 0; i < 100000; ++i) text += "<key>" + std::to_string(i) + "</key><true/>";
  const std::string lines = repeated("&amp;\n", 500000);
  const Result<Value> value = parse(text + "<key>s</key><string>" + lines + "</string></dict></plist>");
  ASSERT_TRUE(value) << value.error();
  EXPECT_EQ(value->dictionary()->size(), 100001U);
  EXPECT_EQ(value->dictionary()->find("s").string().view().size(), 1000000U);
}

TEST(XmlPropertyList, HasOneStringForAKeyThatRepeats) {
  const Value value =
      *parse("<array><dict><key>k</key><true/></dict><dict><key>k</key><true/></dict></array>");
  const auto key = [&](std::size_t at) { return (*value.array()->at(at).dictionary()->begin()).key; };
  EXPECT_TRUE(key(0).value().isIdenticalTo(key(1).value()));
}

}  // namespace
}  // namespace roster
