// Processes for the daemon to look after, under names that no other test uses.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>

#include "platform/property_list.h"
#include "tests/blackbox/installation.h"
#include "tests/support/files.h"

namespace vorlatch {

// Preferences that are switched on, with these targets.
inline plist::Dictionary preferencesWith(const plist::Dictionary& targets) {
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

// A name that belongs to this test process: at most 15 characters, or padded to `length`.
inline std::string ownName(const std::string& suffix, std::size_t length = 0) {
  std::string name = "vl" + std::to_string(getpid()) + suffix;
  name.resize(std::max(length, name.size()), 'x');
  return name;
}

// A program below a root, by the name or the bundle identifier under which it is configured.
struct Program {
  std::string executable;
  std::string key;
};

inline std::string installIdler(const std::string& directory, const std::string& name) {
  std::filesystem::create_directories(directory);
  std::string executable = directory + "/" + name;
  std::filesystem::copy_file(VORLATCH_IDLER, executable);
  return executable;
}

// A program of that name under the root.
inline Program programNamed(const std::string& root, const std::string& name) {
  return {.executable = installIdler(root + "/programs", name), .key = name};
}

// An app under the root: a bundle directory with its executable and an Info.plist.
inline Program appIdentified(const std::string& root, const std::string& identifier) {
  const std::string bundle = root + "/Applications/" + identifier + ".app";
  Program app{.executable = installIdler(bundle, ownName("app")), .key = identifier};
  const plist::Dictionary info{{"CFBundleIdentifier", identifier}, {"CFBundleName", "An app"}};
  tests::writeAll(bundle + "/Info.plist", platform::writeXmlPropertyList(info));
  return app;
}

// Such a program while it runs, at nice 0.
class Target {
 public:
  explicit Target(const Program& program) : process_(program.executable) {}
  [[nodiscard]] pid_t pid() const { return process_.pid(); }
  [[nodiscard]] int nice() const { return niceOf(pid()); }
  void kill() { process_.kill(); }

 private:
  ChildProcess process_;
};

}  // namespace vorlatch
