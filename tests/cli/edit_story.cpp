#include "tests/cli/edit_story.h"

#include <sys/stat.h>

#include <algorithm>
#include <ostream>

#include "config/preferences.h"

namespace vorlatch::tests {

std::ostream& operator<<(std::ostream& stream, const EditResult& result) {
  const auto& [output, bytes, posts] = result;
  return stream << "status " << output.status << "\nout:\n"
                << output.out << "err:\n"
                << output.err << "posts " << posts << "\nfile:\n"
                << bytes;
}

EditStory::EditStory() {
  device.observe(kApplyNotificationName, [this] { ++posts_; });
}

EditResult EditStory::edit(const Arguments& arguments) {
  EditResult result{.output = run(arguments), .bytes = bytes()};
  Story::run(0ms);
  result.posts = std::exchange(posts_, 0);
  return result;
}

FileVersion EditStory::version() const {
  struct stat status {};
  if (stat(preferencesFile().c_str(), &status) != 0) return {};
  return {.inode = status.st_ino,
          .written = std::filesystem::last_write_time(preferencesFile()),
          .bytes = bytes()};
}

std::vector<std::string> EditStory::filesBeside() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

Arguments with(Arguments arguments, const Arguments& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

}  // namespace vorlatch::tests
