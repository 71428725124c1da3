// Processes for the daemon to look after, under names that no other test uses.
#pragma once

#include <cstddef>
#include <string>

#include "tests/blackbox/installation.h"
#include "tests/blackbox/processes.h"

namespace vorlatch {

// Preferences that are switched on, with these targets.
plist::Dictionary preferencesWith(const plist::Dictionary& targets);

// A name that belongs to this test process: at most 15 characters, or padded to `length`.
std::string ownName(const std::string& suffix, std::size_t length = 0);

// A program below a root, by the name or the bundle identifier under which it is configured.
struct Program {
  std::string executable;
  std::string key;
};

// A program of that name in the root.
Program programNamed(const Installation& installation, const std::string& name);

// An app in the root: a bundle directory with its executable and an Info.plist.
Program appIdentified(const Installation& installation, const std::string& identifier);

// Such a program while it runs, at nice 0.
class Target {
 public:
  explicit Target(const Program& program);
  [[nodiscard]] pid_t pid() const { return process_.pid(); }
  [[nodiscard]] int nice() const { return niceOf(pid()); }
  void kill() { process_.kill(); }

 private:
  ChildProcess process_;
};

}  // namespace vorlatch
