#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <ostream>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/property_list_bytes.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMillion = 1'000'000;

struct Case {
  std::string name;
  // Puts it into the place of a well-formed file, whose bytes are given.
  std::function<void(const Installation&, const std::string& well_formed)> put;
};

std::ostream& operator<<(std::ostream& out, const Case& unusable) {
  return out << unusable.name;
}

std::string inBinary(const std::string& xml) {
  return binaryPropertyList(*platform::parsePropertyList(xml));
}

Case bytes(const std::string& name, const std::function<std::string(const std::string&)>& make) {
  return {name, [make](const Installation& installation, const std::string& well_formed) {
            installation.writePreferencesBytes(make(well_formed));
          }};
}

Case instead(const std::string& name, const std::function<void(const std::string& path)>& make) {
  return {name, [make](const Installation& installation, const std::string&) {
            fs::remove(installation.preferencesPath());
            make(installation.preferencesPath());
          }};
}

std::vector<Case> unusablePreferences() {
  return {
      bytes("Empty", [](const auto&) { return ""; }),
      bytes("NotAPropertyList", [](const auto&) { return "Enabled = YES;"; }),
      bytes("TruncatedXml", [](const auto& xml) { return xml.substr(0, xml.size() / 2); }),
      bytes("TruncatedBinary",
            [](const auto& xml) {
              const std::string binary = inBinary(xml);
              return binary.substr(0, binary.size() / 2);
            }),
      bytes("AListInXml",
            [](const auto&) {
              return platform::writeXmlPropertyList(plist::Array{preferencesWith({})});
            }),
      bytes("AListInBinary",
            [](const auto&) { return binaryPropertyList(plist::Array{preferencesWith({})}); }),
      bytes("XmlNestedAMillionDeep", [](const auto&) { return nestedXml(kMillion); }),
      bytes("BinaryNestedAMillionDeep", [](const auto&) { return nestedBinary(kMillion); }),
      {"LargerThanAnyPreferences",
       [](const Installation& installation, const std::string& well_formed) {
         // Blanks behind the end, by themselves harmless.
         installation.writePreferencesBytes(well_formed + std::string(135 * kMillion, ' '));
       }},
      instead("Missing", [](const auto&) {}),
      instead("ADirectory", [](const auto& path) { fs::create_directory(path); }),
      instead("AFifo", [](const auto& path) { EXPECT_EQ(mkfifo(path.c_str(), 0666), 0); }),
      instead("ALinkToItself", [](const auto& path) { fs::create_symlink(path, path); }),
      instead("ADevice", [](const auto& path) { fs::create_symlink("/dev/zero", path); }),
  };
}

class UnusablePreferences : public testing::TestWithParam<Case> {};

TEST_P(UnusablePreferences, SwitchTheDaemonOffUntilTheyAreReplaced) {
  Installation installation;
  const Program program = programNamed(installation, ownName("held"));
  const Target target(program);
  const std::string done =
      "[守护] " + program.key + " PID:" + std::to_string(target.pid()) + " 完成";
  const std::string well_formed =
      platform::writeXmlPropertyList(preferencesWith({{program.key, plist::Dictionary{}}}));
  installation.writePreferencesBytes(well_formed);
  installation.start();
  ASSERT_TRUE(installation.waitForLog(0, done));
  std::size_t seen = installation.log().size();

  GetParam().put(installation, well_formed);
  installation.post();
  const Lines handed_back = switchedOffLines() + restoredLines(program.key, target.pid());
  EXPECT_EQ(installation.logBehind(seen, handed_back.size()), handed_back);
  EXPECT_EQ(installation.status(), "{}");
  seen += handed_back.size();

  fs::remove_all(installation.preferencesPath());
  installation.writePreferencesBytes(well_formed);
  installation.post();
  EXPECT_TRUE(installation.waitForLog(seen, done));
}

INSTANTIATE_TEST_SUITE_P(Each, UnusablePreferences, testing::ValuesIn(unusablePreferences()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace vorlatch
