// How the daemon treats foreign files at its paths, and what users may do with its files.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <gtest/gtest.h>

#include "base/files.h"
#include "config/default_preset.h"
#include "config/log_size_cap.h"
#include "config/preferences.h"
#include "config/status_file.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "platform/property_list.h"
#include "tests/security/intercepted_calls.h"
#include "tests/security/planted.h"
#include "tests/support/story.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;

constexpr uid_t kSomebody = 65534;
const std::string kRuleLine = "[03-04 05:06:07] ----------------------------------------\n";

const Dictionary kStatusOfA{{"a", Dictionary{{"pid", 1}, {"n", 2}, {"p", 3}}}};

// The names of the daemon's files, with each digit of an unguessable number replaced by 'x'.
Lines filesOf(const Story& story) {
  static const std::string aside = ".aside.";
  Lines names;
  for (const auto& entry : fs::directory_iterator(story.file(""))) {
    std::string name = entry.path().filename();
    const std::size_t at = name.find(aside);
    for (std::size_t i = at + aside.size(); at != name.npos && i < name.size(); ++i) {
      if (std::isxdigit(static_cast<unsigned char>(name[i])) != 0) name[i] = 'x';
    }
    names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Makes every call with this name fail.
Intercepted refusing(const std::string& name) {
  return Intercepted([name](const FileCall& call, const auto& real) -> std::int64_t {
    if (call.name != name) return real(false);
    errno = EIO;
    return -1;
  });
}

class NoFile : public testing::TestWithParam<Plant> {};

TEST_P(NoFile, InTheLogsPlaceIsPutAsideAtTheStart) {
  Story story;
  const Victims victims(story.rootPath("/elsewhere"));
  const Planted planted(GetParam(), story.logFile(), victims);
  openLog();
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.logFile()), kRuleLine);
  EXPECT_EQ(modeOf(story.logFile()), 0666U);
  EXPECT_EQ(filesOf(story), (Lines{"Vorlatch.log", "Vorlatch.log.aside." + std::string(32, 'x')}));
}

TEST_P(NoFile, LogGoesOnWhenItsPathIsTaken) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 10}});
  openLog();
  writeTargetSeparator();
  fs::rename(story.logFile(), story.rootPath("/moved.log"));
  const Victims victims(story.rootPath("/elsewhere"));
  const Planted planted(GetParam(), story.logFile(), victims);
  checkLogSizeAndClearIfNeeded();
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.rootPath("/moved.log")), kRuleLine + kRuleLine);
  EXPECT_EQ(filesOf(story), (Lines{"Vorlatch.log", "com.zel.vorlatch.plist"}));
}

TEST_P(NoFile, StatusReplacesAllButADirectory) {
  Story story;
  const Victims victims(story.rootPath("/elsewhere"));
  const Planted planted(GetParam(), story.statusFile(), victims);
  updateStatusFile("a", 1, 2, 3);
  const bool gives_way = GetParam().name != "Directory";
  EXPECT_EQ(fs::is_regular_file(fs::symlink_status(story.statusFile())), gives_way);
  EXPECT_EQ(modeOf(story.statusFile()), gives_way ? 0666U : 0700U);
  EXPECT_EQ(story.status(), gives_way ? kStatusOfA : Dictionary{});
  EXPECT_EQ(filesOf(story), Lines{"com.zel.vorlatch.status.plist"});
}

INSTANTIATE_TEST_SUITE_P(Each, NoFile, testing::ValuesIn(plants()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(PrivilegedEach, NoFile, testing::ValuesIn(devicePlants()),
                         testing::PrintToStringParamName());

TEST(OwnFiles, AreMovedAsideUnderUniqueNames) {
  const Story story;
  for (int i = 0; i < 3; ++i) {
    fs::create_directory(story.logFile());
    moveAsideUnlessPlain(story.logFile());
  }
  // Both hexadecimal digits of each byte vary.
  std::array<std::string, 2> digits;
  for (const auto& entry : fs::directory_iterator(story.file(""))) {
    const std::string number = entry.path().extension().string().substr(1);
    for (std::size_t i = 0; i < number.size(); ++i) digits.at(i % 2) += number[i];
  }
  for (const std::string& each : digits) {
    EXPECT_EQ(each.size(), 3U * 16U);  // of three files: no name was taken twice
    EXPECT_NE(each.find_first_of("01234567"), each.npos);
    EXPECT_NE(each.find_first_of("89abcdef"), each.npos);
  }
}

void logIsKept(uid_t owner, fs::perms mode) {
  Story story;
  writeAll(story.logFile(), "from a backup\n");
  ASSERT_EQ(chown(story.logFile().c_str(), owner, owner), 0);
  fs::permissions(story.logFile(), mode);
  openLog();
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.logFile()), "from a backup\n" + kRuleLine);
  EXPECT_EQ(modeOf(story.logFile()), 0666U);
  EXPECT_EQ(filesOf(story), Lines{"Vorlatch.log"});
}

TEST(OwnFiles, TheLogIsKeptWhateverItsMode) {
  logIsKept(geteuid(), fs::perms(0400));
}

TEST(PrivilegedOwnFiles, TheLogMayBelongToAnotherUser) {
  logIsKept(kSomebody, fs::perms(0));
}

TEST(PrivilegedOwnFiles, TheStatusFileMayBelongToAnotherUser) {
  Story story;
  writeAll(story.statusFile(), "from a backup\n");
  ASSERT_EQ(chown(story.statusFile().c_str(), kSomebody, kSomebody), 0);
  fs::permissions(story.statusFile(), fs::perms(0));
  letEveryoneReadAndWrite(story.statusFile());
  EXPECT_EQ(modeOf(story.statusFile()), 0666U);
  EXPECT_EQ(readAll(story.statusFile()), "from a backup\n");
  updateStatusFile("a", 1, 2, 3);
  EXPECT_EQ(modeOf(story.statusFile()), 0666U);
  EXPECT_EQ(story.status(), kStatusOfA);
}

TEST(OwnFiles, ClearsTheReplacedLog) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 10}});
  openLog();
  fs::rename(story.logFile(), story.rootPath("/rotated.log"));
  writeAll(story.rootPath("/new.log"), "longer than it may be\n");
  fs::rename(story.rootPath("/new.log"), story.logFile());
  checkLogSizeAndClearIfNeeded();
  EXPECT_EQ(story.takeLog(), Lines{"[守护] 日志大小超过设定限制(0.0MB)，已自动清空。"});
  EXPECT_EQ(readAll(story.rootPath("/rotated.log")), "");
}

TEST(OwnFiles, ASmallLogThatComesMeanwhileIsNotCleared) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 10}});
  int call = 0;
  for (bool has_happened = true; has_happened;) {
    writeAll(story.logFile(), "longer than it may be\n");
    openLog();
    const BeforeFileCall exchange(++call, [&story] {
      writeAll(story.rootPath("/small.log"), "small\n");
      fs::rename(story.rootPath("/small.log"), story.logFile());
    });
    checkLogSizeAndClearIfNeeded();
    has_happened = exchange.hasHappened();
    EXPECT_EQ(readAll(story.logFile()) == "small\n", has_happened) << "before call " << call;
  }
  EXPECT_GT(call, 10);
}

TEST(OwnFiles, ALogThatCannotBeClearedGoesOnAtItsEnd) {
  Story story;
  story.writePreferences({{"LogSizeLimit", 10}});
  writeAll(story.logFile(), "longer than it may be\n");
  openLog();
  const Intercepted refused = refusing("ftruncate");
  checkLogSizeAndClearIfNeeded();
  writeTargetSeparator();
  EXPECT_EQ(readAll(story.logFile()), "longer than it may be\n" + kRuleLine);
  checkLogSizeAndClearIfNeeded();
  std::fputs("out\n", stdout);
  std::fflush(stdout);
  EXPECT_EQ(readAll(story.logFile()), "longer than it may be\n" + kRuleLine + "out\n");
}

TEST(OwnFiles, PreferencesMayBeALinkAndBeEditedInPlace) {
  Story story;
  story.writePreferences(defaultPreset());
  fs::permissions(story.preferencesFile(), fs::perms(0600));
  fs::rename(story.preferencesFile(), story.rootPath("/kept.plist"));
  fs::create_symlink(story.rootPath("/kept.plist"), story.preferencesFile());
  EXPECT_EQ(loadPreferences(), defaultPreset());
  const Dictionary edited{{"Enabled", false}};
  writeAll(story.preferencesFile(), platform::writeXmlPropertyList(edited));
  EXPECT_EQ(loadPreferences(), edited);
}

TEST(OwnFiles, StatusIsOpenedToAllIfNotWritten) {
  Story story;
  updateStatusFile("a", 1, 2, 3);
  const std::string before = readAll(story.statusFile());
  fs::permissions(story.statusFile(), fs::perms(0600));
  const Intercepted refused = refusing("rename");
  updateStatusFile("b", 4, 5, 6);
  EXPECT_EQ(modeOf(story.statusFile()), 0666U);
  EXPECT_EQ(readAll(story.statusFile()), before);
}

// Otherwise a file opened later could get descriptor 1 or 2, and with it the lines of the log.
TEST(OwnFiles, ClosedStreamsAreOpenedOnTheLog) {
  Story story;
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  openLog();
  writeTargetSeparator();
  struct stat log {};
  ASSERT_EQ(stat(story.logFile().c_str(), &log), 0);
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat status {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    EXPECT_EQ(status.st_ino, log.st_ino);
  }
  EXPECT_EQ(readAll(story.logFile()), kRuleLine);
}

}  // namespace
}  // namespace vorlatch::tests
