// Feeds command lines to vorlatchctl while a daemon runs. The input is a property list:
//   Commands     the command lines, each a list of words; a word that begins with @ is a path in
//                the daemon's directory
//   Preferences, Status, Log, SetAside
//                the contents of the file: data or text is written unchanged, any other value as
//                a property list; SetAside is the file that an interrupted release left behind
//   Report       the bytes of a system's report of ended processes
//   Binary       whether property lists are binary
//   Columns, Rows, Colour
//                the terminal; there is no terminal without columns
//   Waits        how often a command may wait before Ctrl-C
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "cli/command.h"
#include "config/property_list_file.h"
#include "config/status_file.h"
#include "config/target_settings.h"
#include "control/setting_text.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "fuzz/support/system_under_test.h"
#include "log/log_file.h"

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Dictionary;
using plist::Value;

constexpr std::size_t kMostCommands = 4;
constexpr std::size_t kMostWords = 16;

// A word ends at its first NUL, as in a real argument vector.
std::string wordOf(const SystemUnderTest& system, const Value& value) {
  const std::string bytes = bytesOf(value);
  const std::string word = bytes.substr(0, bytes.find('\0'));
  return word.starts_with('@') ? system.file(word.substr(1)) : word;
}

std::vector<Words> commandsIn(const SystemUnderTest& system, const Dictionary& scene) {
  std::vector<Words> commands;
  for (const Value& line : arrayIn(scene, "Commands")) {
    const auto* items = line.as<Array>();
    if (items == nullptr || commands.size() == kMostCommands) continue;
    Words words;
    for (const Value& item : *items) {
      if (words.size() < kMostWords) words.push_back(wordOf(system, item));
    }
    // It would write files anywhere.
    const bool exports = std::find(words.begin(), words.end(), "export") != words.end();
    if (!exports) commands.push_back(std::move(words));
  }
  return commands;
}

void putReport(SystemUnderTest& system, const Dictionary& scene) {
  system.device.crash_reports = system.rootPath("/CrashReporter");
  std::filesystem::create_directory(system.device.crash_reports);
  tests::writeAll(system.device.crash_reports + "/JetsamEvent-2026-03-04-040000.ips",
                  textIn(scene, "Report"));
}

void prepare(SystemUnderTest& system, const Dictionary& scene) {
  const bool is_binary = isTrueIn(scene, "Binary");
  // The daemon is notified of the preferences; its other files change without its knowledge.
  if (const auto bytes = fileIn(scene, "Preferences", is_binary)) system.putPreferences(*bytes);
  system.postAndRun();
  const std::vector<std::pair<const char*, std::string>> files{
      {"Status", system.statusFile()},
      {"Log", system.logFile()},
      {"SetAside", system.preferencesFile() + ".released"}};
  for (const auto& [key, path] : files) {
    if (const auto bytes = fileIn(scene, key, is_binary)) tests::writeAll(path, *bytes);
  }
  putReport(system, scene);
  system.columns = static_cast<std::size_t>(std::clamp(integerIn(scene, "Columns", 0), 0, 300));
  system.rows = static_cast<std::size_t>(std::clamp(integerIn(scene, "Rows", 0), 0, 100));
  system.has_colour = isTrueIn(scene, "Colour");
  const int waits = std::clamp(integerIn(scene, "Waits", 2), 0, 20);
  system.is_interrupted = [waits](int waited) { return waited > waits; };
}

}  // namespace

const Words& vocabulary() {
  static const Words& words = *[] {
    auto* all = new Words(preferencesWords());
    for (std::string& word : tests::wordsOf(
             "Commands Preferences Status Log SetAside Report Binary Columns Rows Colour Waits "
             "--json --help -h -- - = [ [a,b] , NiceValue=-5 CheckInterval=30 "
             "StripManaged=off MemLimitActive=2000 内核 [守护] pid n p "
             "@com.zel.vorlatch.plist @Vorlatch.log . 1e5 +5")) {
      all->push_back(std::move(word));
    }
    all->emplace_back("[03-04 05:06:07] [内核] ：成功\n");
    all->emplace_back("[03-04 04:00:00] [进程] 目标: kbd 已退出\n");
    for (const char* part :
         {R"({"timestamp": "2026-03-04 04:00:00.00 +0800", "incident_id": "A"})"
          "\n",
          R"({"date": "2026-03-04 04:00:00.63 +0800", "memoryStatus": {"pageSize": 16384}, )",
          R"("processes": [{"name": "kbd", "reason": "per-process-limit", "priority": 100, )"
          R"("pid": 8, "states": ["frontmost"], "rpages": 96000, "lifetimeMax": 1}]})",
          "vm-pageshortage", "highwater"}) {
      all->emplace_back(part);
    }
    for (const cli::Command* command : cli::commands()) {
      all->emplace_back(command->name);
      cli::Arguments arguments;
      command->prepare(arguments);
      for (const cli::Argument& argument : arguments) {
        for (const std::string& name : argument.names()) all->push_back(name);
      }
    }
    for (const SettingKey& row : kSettingKeys) all->push_back(std::string(row.key) + "=");
    for (const std::string& band : control::bandNames()) all->push_back(band);
    return all;
  }();
  return words;
}

void feed(std::string_view input) {
  static SystemUnderTest& system = *new SystemUnderTest;
  const std::optional<Dictionary> scene = dictionaryIn(input);
  if (!scene) return;
  system.feed([&] {
    prepare(system, *scene);
    for (const Words& words : commandsIn(system, *scene)) {
      system.type(words);
      system.Story::run(200ms);
    }
    // No pass would restore targets that only a patrol has applied after their removal, because the
    // daemon was never notified of their file. This pass takes them over.
    Dictionary held = system.status();
    for (auto& [key, entry] : held) entry = Dictionary{};
    system.writeTargets(held);
    system.postAndRun();
  });
}

}  // namespace vorlatch::fuzz
