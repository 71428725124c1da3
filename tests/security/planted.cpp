#include "tests/security/planted.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/support/files.h"
#include "tests/support/text.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;

std::string asText(const struct stat& status) {
  return text("mode ", std::oct, status.st_mode, std::dec, " inode ", status.st_ino, " size ",
              status.st_size, " changed ", status.st_mtim.tv_sec, ".", status.st_mtim.tv_nsec);
}

std::string entriesOf(const std::string& directory) {
  std::string all;
  std::vector<fs::path> paths;
  for (const auto& entry : fs::directory_iterator(directory)) paths.push_back(entry.path());
  std::sort(paths.begin(), paths.end());
  for (const fs::path& path : paths) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0);
    all += path.filename().string() + " " + asText(status);
    if (S_ISREG(status.st_mode)) all += " " + readAll(path);
    all += "\n";
    if (S_ISDIR(status.st_mode)) all += entriesOf(path);
  }
  return all;
}

Plant link(const std::string& name, const std::string& victim) {
  return {name, [victim](const std::string& path, const Victims& victims) {
            fs::create_symlink(victims.path(victim), path);
          }};
}

Descriptor readerOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return Descriptor(S_ISFIFO(status.st_mode) ? open(path.c_str(), O_RDONLY | O_NONBLOCK) : -1);
}

}  // namespace

Victims::Victims(std::string directory) : directory_(std::move(directory)) {
  fs::remove_all(directory_);
  fs::create_directories(path("directory"));
  writeAll(path("secret"),
           platform::writeXmlPropertyList(plist::Dictionary{{"Remark", std::string(kSecret)}}));
  writeAll(path("directory/file"), "in a directory\n");
  EXPECT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  for (const char* name : {"secret", "directory/file"}) {
    fs::permissions(path(name), fs::perms(0600));
  }
  fs::permissions(path("directory"), fs::perms(0700));
}

std::string Victims::asTheyStand() const {
  return entriesOf(directory_);
}

bool Victims::isSecretIn(const std::string& directory) const {
  const auto entries = fs::directory_iterator(directory);
  return std::any_of(begin(entries), end(entries), [this](const fs::directory_entry& entry) {
    return fs::is_regular_file(entry.symlink_status()) &&
           !fs::equivalent(entry.path(), path("secret")) &&
           readAll(entry.path()).find(kSecret) != std::string::npos;
  });
}

const std::vector<Plant>& plants() {
  static const std::vector<Plant>& all = *new std::vector<Plant>{
      link("Link", "secret"),
      link("DanglingLink", "missing"),
      link("LinkToADirectory", "directory"),
      link("LinkToAFifo", "fifo"),
      {"LinkToItself", [](const auto& path, const auto&) { fs::create_symlink(path, path); }},
      {"HardLink", [](const auto& path,
                      const auto& victims) { fs::create_hard_link(victims.path("secret"), path); }},
      {"Fifo", [](const auto& path, const auto&) { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }},
      {"Directory",
       [](const auto& path, const auto&) {
         fs::create_directory(path);
         fs::permissions(path, fs::perms(0700));
         writeAll(path + "/file", "in a directory");
       }},
  };
  return all;
}

const std::vector<Plant>& devicePlants() {
  static const auto make_device = [](const std::string& path) {
    EXPECT_EQ(mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)), 0) << "a second /dev/null";
  };
  static const std::vector<Plant>& all = *new std::vector<Plant>{
      {"Device", [](const auto& path, const auto&) { make_device(path); }},
      {"LinkToADevice",
       [](const auto& path, const auto& victims) {
         const std::string device = victims.path("device");
         if (!fs::exists(device)) make_device(device);
         fs::create_symlink(device, path);
       }},
  };
  return all;
}

std::ostream& operator<<(std::ostream& out, const Plant& plant) {
  return out << plant.name;
}

Planted::Planted(const Plant& plant, const std::string& path, const Victims& victims)
    : entry_([&] {
        fs::remove_all(path);
        plant.put(path, victims);
        return open(path.c_str(), O_PATH | O_NOFOLLOW);
      }()),
      fifo_(readerOf(path)) {}

std::string Planted::asItStands() const {
  struct stat status {};
  EXPECT_EQ(fstat(entry_.get(), &status), 0);
  std::string text = asText(status) + "\n";
  // The descriptor reaches the object even after it was renamed.
  const std::string held = "/proc/self/fd/" + std::to_string(entry_.get());
  if (S_ISDIR(status.st_mode) && status.st_nlink > 0) text += entriesOf(held);
  std::array<char, 64> bytes{};
  const ssize_t got = fifo_.isOpen() ? read(fifo_.get(), bytes.data(), bytes.size()) : 0;
  if (got > 0) text += "written into it: " + std::string(bytes.data(), static_cast<size_t>(got));
  return text;
}

}  // namespace vorlatch::tests
