#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/base/binary_builder.h"
#include "tests/base/describe.h"

namespace vorlatch::platform {
namespace {

using namespace std::string_literals;
using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;
using test::BinaryBuilder;

std::string parsed(const std::string& bytes) {
  const std::optional<Value> value = parsePropertyList(bytes);
  return value ? test::describe(*value) : "does not parse";
}

std::string parsedXml(const std::string& element) {
  return parsed("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + element +
                "</plist>\n");
}

std::string parsedBinary(const std::string& object) {
  return parsed(BinaryBuilder{.objects = {object}}.build());
}

TEST(PropertyListXml, EveryTypeIsReadAsItself) {
  EXPECT_EQ(parsedXml("<true/>"), "true");
  EXPECT_EQ(parsedXml("<false></false>"), "false");
  EXPECT_EQ(parsedXml("<integer>-42</integer>"), "int -42");
  EXPECT_EQ(parsedXml("<real>1.5</real>"), "real 1.500000");
  EXPECT_EQ(parsedXml("<string> a b </string>"), "string  a b ");
  EXPECT_EQ(parsedXml("<date>2001-01-02T00:00:01Z</date>"), "date 86401.000000");
  EXPECT_EQ(parsedXml("<data>\n\tYWJj\n\tZA==\n</data>"), "data abcd");
  EXPECT_EQ(parsedXml("<array><integer>1</integer><array/></array>"), "[int 1;[];]");
  EXPECT_EQ(parsedXml("<dict><key>k</key><string/><key>a</key><dict></dict></dict>"),
            "{a={};k=string ;}");
}

TEST(PropertyListXml, IntegersKeepSixtyFourBitsAndTheirSign) {
  EXPECT_EQ(parsedXml("<integer>9223372036854775807</integer>"), "int 9223372036854775807");
  EXPECT_EQ(parsedXml("<integer>9223372036854775808</integer>"), "uint 9223372036854775808");
  EXPECT_EQ(parsedXml("<integer>18446744073709551615</integer>"), "uint 18446744073709551615");
  EXPECT_EQ(parsedXml("<integer>-9223372036854775808</integer>"), "int -9223372036854775808");
  EXPECT_EQ(parsedXml("<integer>-1</integer>"), "int -1");
  EXPECT_EQ(parsedXml("<integer>0x1F</integer>"), "int 31");
}

TEST(PropertyListXml, TheLastOfEqualKeysHolds) {
  EXPECT_EQ(parsedXml("<dict><key>a</key><true/><key>a</key><false/></dict>"), "{a=false;}");
}

TEST(PropertyListXml, EntitiesAndLiteralsAreText) {
  EXPECT_EQ(parsedXml("<string>&lt;&amp;&gt; &#x4e2d;</string>"), "string <&> 中");
  EXPECT_EQ(parsedXml("<string><![CDATA[<b>&amp;]]></string>"), "string <b>&amp;");
}

TEST(PropertyListXml, WhatIsNotUtf8DoesNotParse) {
  EXPECT_EQ(parsedXml("<string>\xFF</string>"), "does not parse");
  EXPECT_EQ(parsedXml("<array><string>\xC0\x80</string></array>"), "does not parse");
  EXPECT_EQ(parsedXml("<dict><key>\xED\xA0\x80</key><true/></dict>"), "does not parse");
}

TEST(PropertyListBinary, EveryTypeIsReadAsItself) {
  EXPECT_EQ(parsedBinary("\x08"s), "false");
  EXPECT_EQ(parsedBinary("\x09"s), "true");
  EXPECT_EQ(parsedBinary("\x10\xFF"s), "int 255");
  EXPECT_EQ(parsedBinary("\x22\x3F\xC0\x00\x00"s), "real 1.500000");
  EXPECT_EQ(parsedBinary("\x23\x3F\xF8\x00\x00\x00\x00\x00\x00"s), "real 1.500000");
  EXPECT_EQ(parsedBinary("\x44\x00\x01\xFFz"s), "data \x00\x01\xFFz"s);
  EXPECT_EQ(parsedBinary("\x53"s
                         "abc"),
            "string abc");
  EXPECT_EQ(parsedBinary("\x63\x5B\x88\xD8\x3D\xDE\x00"s), "string 守\xF0\x9F\x98\x80");
  EXPECT_EQ(parsedBinary("\x81\x01\x00"s), "{CF$UID=int 256;}");
  EXPECT_EQ(parsedBinary("\xA0"s), "[]");
  EXPECT_EQ(parsedBinary("\xD0"s), "{}");
}

TEST(PropertyListBinary, ASurrogateWithoutItsOtherHalfBecomesTheReplacementCharacter) {
  EXPECT_EQ(parsedBinary("\x62\xD8\x3D\x00x"s), "string \uFFFDx");
  EXPECT_EQ(parsedBinary("\x62\x00x\xDE\x00"s), "string x\uFFFD");
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), "\x61\xD8\x3D"s, "\x09"};
  EXPECT_EQ(parsed(list.build()), "{\uFFFD=true;}");
}

TEST(PropertyListBinary, IntegersKeepSixtyFourBitsAndTheirSign) {
  EXPECT_EQ(parsedBinary("\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE"s), "int -2");
  EXPECT_EQ(parsedBinary("\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s), "int 9223372036854775807");
  EXPECT_EQ(parsedBinary("\x14"s + std::string(8, '\0') + std::string(8, '\xFF')),
            "uint 18446744073709551615");
}

const Dictionary kOneOfEverything{{"true", true},
                                  {"false", false},
                                  {"negative", -5},
                                  {"smallest", INT64_MIN},
                                  {"largest", std::numeric_limits<std::uint64_t>::max()},
                                  {"real", 0.1},
                                  {"large real", 1e300},
                                  {"infinity", std::numeric_limits<double>::infinity()},
                                  {"not a number", std::nan("")},
                                  {"text", "微信 <&> \"x\"\n"},
                                  {"empty text", ""},
                                  {"date", Date{1234}},
                                  {"data", Data{"\x00\x01\xFF"s}},
                                  {"empty data", Data{}},
                                  {"array", Array{1, Array{}, Dictionary{}}},
                                  {"", Dictionary{{"a", Dictionary{{"b", 1}}}}}};

TEST(PropertyListWriter, WhatIsWrittenReadsBackAsItWas) {
  EXPECT_EQ(parsed(writeXmlPropertyList(kOneOfEverything)), test::describe(kOneOfEverything));
}

TEST(PropertyListWriter, AKeyedArchivesReferenceStaysOne) {
  const Dictionary list{{"a", plist::uidValue(7)}};
  EXPECT_EQ(parsed(writeXmlPropertyList(list)), "{a={CF$UID=int 7;};}");
  const std::string binary = writeBinaryPropertyList(list);
  EXPECT_EQ(parsed(binary), "{a={CF$UID=int 7;};}");
  EXPECT_NE(binary.find("\x80\x07"), std::string::npos);  // the object of its own kind
}

TEST(PropertyListParser, GivesOneEntryOfADictionaryAlone) {
  const std::string bytes = writeBinaryPropertyList(Dictionary{{"a", 1}, {"b", Array{2}}});
  EXPECT_EQ(test::describe(*parsePropertyList(bytes, "b")), "{b=[int 2;];}");
  EXPECT_EQ(test::describe(*parsePropertyList(bytes, "c")), "{}");
  EXPECT_EQ(test::describe(*parsePropertyList("<plist><true/></plist>", "c")), "true");
}

TEST(PropertyListWriter, TheFormIsTheOneThatEditorsKnow) {
  EXPECT_EQ(writeXmlPropertyList(Dictionary{{"b", 1}, {"a", Array{true, "x"}}}),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>a</key>\n"
            "\t<array>\n"
            "\t\t<true/>\n"
            "\t\t<string>x</string>\n"
            "\t</array>\n"
            "\t<key>b</key>\n"
            "\t<integer>1</integer>\n"
            "</dict>\n"
            "</plist>\n");
}

}  // namespace
}  // namespace vorlatch::platform
