#include <optional>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "platform/local_time.h"
#include "platform/property_list.h"
#include "tests/base/binary_builder.h"
#include "tests/base/describe.h"

namespace vorlatch::platform {
namespace {

using namespace std::string_literals;
using plist::Array;
using plist::Dictionary;
using plist::Value;
using test::BinaryBuilder;
using test::parsed;

constexpr const char* kNone = "does not parse";

TEST(PropertyLists, ReadXml) {
  const std::pair<std::string, std::string> cases[] = {
      {"<true/>", "true"},
      {"<false></false>", "false"},
      {"<integer>-42</integer>", "int -42"},
      {"<real>1.5</real>", "real 1.500000"},
      {"<string> a b </string>", "string  a b "},
      {"<date>2001-01-02T00:00:01Z</date>", "date 86401.000000"},
      {"<data>\n\tYWJj\n\tZA==\n</data>", "data abcd"},
      {"<array><integer>1</integer><array/></array>", "[int 1;[];]"},
      {"<dict><key>k</key><string/><key>a</key><dict></dict></dict>", "{a={};k=string ;}"},
      {"<integer>9223372036854775807</integer>", "int 9223372036854775807"},
      {"<integer>9223372036854775808</integer>", "uint 9223372036854775808"},
      {"<integer>18446744073709551615</integer>", "uint 18446744073709551615"},
      {"<integer>-9223372036854775808</integer>", "int -9223372036854775808"},
      {"<integer>-1</integer>", "int -1"},
      {"<integer>0x1F</integer>", "int 31"},
      // The last of equal keys holds.
      {"<dict><key>a</key><true/><key>a</key><false/></dict>", "{a=false;}"},
      {"<string>&lt;&amp;&gt; &#x4e2d;</string>", "string <&> 中"},
      {"<string><![CDATA[<b>&amp;]]></string>", "string <b>&amp;"},
      // Not UTF-8.
      {"<string>\xFF</string>", kNone},
      {"<array><string>\xC0\x80</string></array>", kNone},
      {"<dict><key>\xED\xA0\x80</key><true/></dict>", kNone},
      {"", kNone},
      {"<dict>", kNone},
  };
  for (const auto& [element, value] : cases) {
    EXPECT_EQ(parsed("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
                     element + "</plist>\n"),
              value)
        << element;
  }
}

TEST(PropertyLists, ReadBinary) {
  const std::pair<std::string, std::string> cases[] = {
      {"\x08"s, "false"},
      {"\x09"s, "true"},
      {"\x10\xFF"s, "int 255"},
      {"\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE"s, "int -2"},
      {"\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "int 9223372036854775807"},
      {"\x14"s + std::string(8, '\0') + std::string(8, '\xFF'), "uint 18446744073709551615"},
      {"\x22\x3F\xC0\x00\x00"s, "real 1.500000"},
      {"\x23\x3F\xF8\x00\x00\x00\x00\x00\x00"s, "real 1.500000"},
      {"\x44\x00\x01\xFFz"s, "data \x00\x01\xFFz"s},
      {BinaryBuilder::ascii("abc"), "string abc"},
      {"\x63\x5B\x88\xD8\x3D\xDE\x00"s, "string 守\xF0\x9F\x98\x80"},
      // A surrogate without its other half becomes the replacement character.
      {"\x62\xD8\x3D\x00x"s, "string \uFFFDx"},
      {"\x62\x00x\xDE\x00"s, "string x\uFFFD"},
      {"\x81\x01\x00"s, "{CF$UID=int 256;}"},
      {"\xA0"s, "[]"},
      {"\xD0"s, "{}"},
  };
  for (const auto& [object, value] : cases) {
    EXPECT_EQ(parsed(BinaryBuilder{.objects = {object}}.build()), value);
  }
  BinaryBuilder list;
  list.objects = {list.dictionary({1}, {2}), "\x61\xD8\x3D"s, "\x09"};
  EXPECT_EQ(parsed(list.build()), "{\uFFFD=true;}");
}

TEST(PropertyLists, RefuseWhatIsNone) {
  for (const std::string& bytes : {""s, "text"s, "bplist00"s, "bplist00\x09"s}) {
    EXPECT_EQ(parsed(bytes), kNone) << bytes;
  }
  EXPECT_EQ(writeXmlPropertyList(Array{"\xC0\x80"}), "");
}

TEST(PropertyLists, ComeBackAsWritten) {
  const Dictionary everything = test::oneOfEverything();
  const auto read = parsePropertyList(writeXmlPropertyList(everything));
  ASSERT_TRUE(read);
  EXPECT_EQ(test::describe(*read), test::describe(everything));
  // The description shows six digits, this compares all.
  EXPECT_EQ(*read, Value(everything));
  for (const auto& [key, value] : everything) {  // as the root, also what a list contains
    const auto* items = value.as<Array>();
    for (const Value& root : items != nullptr ? *items : Array{value}) {
      EXPECT_EQ(parsed(writeXmlPropertyList(root)), test::describe(root)) << key;
    }
  }
}

TEST(PropertyLists, KeepKeyedArchivesReferences) {
  const Dictionary list{{"a", plist::uidValue(7)}};
  EXPECT_EQ(parsed(writeXmlPropertyList(list)), "{a={CF$UID=int 7;};}");
  const std::string binary = writeBinaryPropertyList(list);
  EXPECT_EQ(parsed(binary), "{a={CF$UID=int 7;};}");
  EXPECT_NE(binary.find("\x80\x07"), std::string::npos);  // the object of its own kind
}

TEST(PropertyLists, GiveOneEntryAlone) {
  const std::string bytes = writeBinaryPropertyList(Dictionary{{"a", 1}, {"b", Array{2}}});
  EXPECT_EQ(test::describe(*parsePropertyList(bytes, "b")), "{b=[int 2;];}");
  EXPECT_EQ(test::describe(*parsePropertyList(bytes, "c")), "{}");
  EXPECT_EQ(test::describe(*parsePropertyList("<plist><true/></plist>", "c")), "true");
}

TEST(PropertyLists, AreWrittenAsEditorsKnowThem) {
  EXPECT_EQ(writeXmlPropertyList(Dictionary{{"b", 1}, {"a", Array{true, "x"}}}),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n<dict>\n"
            "\t<key>a</key>\n\t<array>\n\t\t<true/>\n\t\t<string>x</string>\n\t</array>\n"
            "\t<key>b</key>\n\t<integer>1</integer>\n"
            "</dict>\n</plist>\n");
}

TEST(LocalTime, HasMonthDayHourMinuteAndSecond) {
  const std::regex shape(
      "(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01]) ([01][0-9]|2[0-3]):[0-5][0-9]:([0-5][0-9]|60)");
  const std::string stamp = localTimeStamp();
  EXPECT_TRUE(std::regex_match(stamp, shape)) << stamp;
}

}  // namespace
}  // namespace vorlatch::platform
