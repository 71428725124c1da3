// Preferences that cannot be used switch the daemon off until they are replaced.
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/base/binary_builder.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMillion = 1'000'000;

std::string nestedXml(std::size_t depth) {
  std::string bytes = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
  for (std::size_t i = 0; i < depth; ++i) bytes += "<array>";
  for (std::size_t i = 0; i < depth; ++i) bytes += "</array>";
  return bytes + "\n</plist>\n";
}

std::string nestedBinary(std::size_t depth) {
  test::BinaryBuilder list{.objects = {}, .reference_size = 4};
  for (std::size_t i = 1; i < depth; ++i) list.objects.push_back(list.array({i}));
  list.objects.push_back(list.array({}));
  return list.build();
}

TEST(MalformedPreferences, SwitchOffUntilReplaced) {
  Installation installation;
  const std::string path = installation.preferencesPath();
  const Program program = programNamed(installation.path(""), ownName("held"));
  const Target target(program);
  const std::string done = doneLine(program.key, target.pid());
  const plist::Dictionary preferences = preferencesWith({{program.key, plist::Dictionary{}}});
  const std::string xml = platform::writeXmlPropertyList(preferences);
  const std::string binary = platform::writeBinaryPropertyList(preferences);
  installation.writePreferencesBytes(xml);
  installation.start();
  ASSERT_TRUE(installation.waitForLog(0, done));

  const auto put = [&](const std::string& bytes) {
    return [&installation, bytes] { installation.writePreferencesBytes(bytes); };
  };
  const auto link = [&](const std::string& to) {
    return [&path, to] { fs::create_symlink(to, path); };
  };
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"empty", put("")},
      {"not a property list", put("Enabled = YES;")},
      {"truncated XML", put(xml.substr(0, xml.size() / 2))},
      {"truncated binary", put(binary.substr(0, binary.size() / 2))},
      {"a list in XML", put(platform::writeXmlPropertyList(plist::Array{preferences}))},
      {"a list in binary", put(platform::writeBinaryPropertyList(plist::Array{preferences}))},
      {"XML nested a million deep", put(nestedXml(kMillion))},
      {"binary nested a million deep", put(nestedBinary(kMillion))},
      // Blanks behind the end, by themselves harmless.
      {"larger than any preferences",
       [&] { installation.writePreferencesBytes(xml + std::string(135 * kMillion, ' ')); }},
      {"missing", [] {}},
      {"a directory", [&] { fs::create_directory(path); }},
      {"a FIFO", [&] { EXPECT_EQ(mkfifo(path.c_str(), 0666), 0); }},
      {"a link to itself", link(path)},
      {"a device", link("/dev/zero")},
  };
  for (const auto& [name, make] : cases) {
    SCOPED_TRACE(name);
    std::size_t seen = installation.log().size();
    fs::remove(path);
    make();
    installation.post();
    const Lines handed_back = switchedOffLines() + restoredLines(program.key, target.pid());
    EXPECT_EQ(installation.logBehind(seen, handed_back.size()), handed_back);
    EXPECT_EQ(installation.status(), "{}");
    seen += handed_back.size();

    fs::remove_all(path);
    installation.writePreferencesBytes(xml);
    installation.post();
    ASSERT_TRUE(installation.waitForLog(seen, done));
  }
}

}  // namespace
}  // namespace vorlatch
