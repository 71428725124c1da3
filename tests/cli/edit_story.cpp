#include "tests/cli/edit_story.h"

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <set>
#include <tuple>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"

namespace vorlatch::tests {
namespace {

// Differs when the file was written again.
auto versionOf(const std::filesystem::path& path) {
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  return std::tuple(exists ? status.st_ino : 0, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
                    readAll(path));
}

std::set<std::filesystem::path> filesBeside(const std::filesystem::path& path) {
  std::set<std::filesystem::path> paths;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(path.parent_path(), missing)) {
    if (entry.path() != path) paths.insert(entry.path());
  }
  return paths;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const EditResult& result) {
  return stream << result.answer << "posts " << result.posts << "\nfile:\n"
                << result.written.value_or("left alone");
}

EditStory::EditStory() {
  device.observe(kApplyNotificationName, [this] { ++posts_; });
}

EditResult EditStory::edit(const Arguments& arguments) {
  const auto before = versionOf(preferencesFile());
  const auto others = filesBeside(preferencesFile());
  Story::run(0ms);
  posts_ = 0;
  EditResult result{.answer = answer(arguments)};
  Story::run(0ms);
  result.posts = posts_;
  if (versionOf(preferencesFile()) != before) {
    result.written = bytes();
    EXPECT_EQ(modeOf(preferencesFile()), 0666U);
  }
  EXPECT_EQ(filesBeside(preferencesFile()), others);
  return result;
}

void EditStory::expectEdit(const Arguments& arguments, const Dictionary& before,
                           const std::string& changes, const Dictionary& after,
                           const std::string& hint) {
  SCOPED_TRACE(testing::PrintToString(arguments));
  writePreferences(before);
  EXPECT_EQ(edit(with(arguments, {"--dry-run"})),
            EditResult{changes + "nothing was written\n" + hint});
  EXPECT_EQ(edit(with(arguments, {"--no-apply"})), (EditResult{changes + hint, xml(after)}));
  writePreferences(before);
  EXPECT_EQ(edit(arguments), (EditResult{changes + hint, xml(after), 1}));
}

void EditStory::expectRefusal(const Arguments& arguments, const std::string& option,
                              const std::string& answer) {
  SCOPED_TRACE(testing::PrintToString(arguments));
  EXPECT_EQ(edit(arguments), EditResult{answer});
  EXPECT_EQ(edit(with(arguments, {option})), EditResult{answer});
}

std::string xml(const Dictionary& preferences) {
  return platform::writeXmlPropertyList(preferences);
}

}  // namespace vorlatch::tests
