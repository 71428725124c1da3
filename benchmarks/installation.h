// Installs a program beside this one: notifications reach only daemons in the same root, and a
// program's root depends on where it is installed.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "platform/linux/installation.h"

namespace vorlatch::benchmarks {

class Installation {
 public:
  // `place` is the program's path below the root.
  Installation(const char* program, const std::string& place) : program_(path(place)) {
    removeAll();
    for (const std::string& file : {program_, path("/usr/lib/libroot.so"), preferences("")}) {
      std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    }
    std::filesystem::copy_file(program, program_);
    std::filesystem::copy_file(VORLATCH_LIBROOT, path("/usr/lib/libroot.so"));
    // Pages not yet on disk would count as the program's private dirty memory.
    sync();
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  ~Installation() { removeAll(); }

  static std::string preferences(const std::string& name) {
    return path("/var/mobile/Library/Preferences/" + name);
  }

  // Starts the program without its standard output.
  [[nodiscard]] pid_t start(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), program_);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    posix_spawn(&pid, program_.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
  }

 private:
  static std::string path(const std::string& below) { return platform::installationRoot() + below; }
  static void removeAll() {
    std::error_code ignored;
    for (const char* made : {"/usr", "/var"}) std::filesystem::remove_all(path(made), ignored);
  }

  const std::string program_;
};

}  // namespace vorlatch::benchmarks
