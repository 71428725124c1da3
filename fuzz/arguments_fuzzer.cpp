// vorlatchctl's command lines, beside a daemon at work. The input is a property list:
//   Commands     the command lines, each a list of words; one that begins with @ is a path in the
//                daemon's directory
//   Preferences, Status, Log, SetAside
//                what stands in the file: data or text as it is, any other value as a property
//                list; SetAside is what an interrupted release left behind
//   Binary       whether property lists are binary
//   Columns, Rows, Colour
//                the terminal; none without columns
//   Waits        how often a command may wait until Ctrl-C
#include <algorithm>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "config/status_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "fuzz/support/subject.h"
#include "log/log_file.h"

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Dictionary;
using plist::Value;

constexpr std::size_t kMostCommands = 4;
constexpr std::size_t kMostWords = 16;

// A word ends where the system would end it.
std::string wordOf(const Subject& subject, const Value& value) {
  const std::string bytes = bytesOf(value);
  const std::string word = bytes.substr(0, bytes.find('\0'));
  return word.starts_with('@') ? subject.file(word.substr(1)) : word;
}

std::vector<Words> commandsIn(const Subject& subject, const Dictionary& scene) {
  std::vector<Words> commands;
  const Value* value = plist::find(scene, "Commands");
  const auto* lines = value != nullptr ? value->as<Array>() : nullptr;
  if (lines == nullptr) return commands;
  for (const Value& line : *lines) {
    const auto* items = line.as<Array>();
    if (items == nullptr || commands.size() == kMostCommands) continue;
    Words words;
    for (const Value& item : *items) {
      if (words.size() < kMostWords) words.push_back(wordOf(subject, item));
    }
    commands.push_back(std::move(words));
  }
  return commands;
}

void prepare(Subject& subject, const Dictionary& scene) {
  const bool is_binary = isTrueIn(scene, "Binary");
  // What the daemon is told of first; its own files change behind its back.
  if (const auto bytes = fileIn(scene, "Preferences", is_binary)) subject.putPreferences(*bytes);
  subject.postAndRun();
  if (const auto bytes = fileIn(scene, "Status", is_binary)) {
    tests::writeAll(subject.statusFile(), *bytes);
  }
  if (const auto bytes = fileIn(scene, "Log", is_binary)) {
    tests::writeAll(subject.logFile(), *bytes);
  }
  if (const auto bytes = fileIn(scene, "SetAside", is_binary)) {
    tests::writeAll(subject.preferencesFile() + ".released", *bytes);
  }
  subject.columns = static_cast<std::size_t>(std::clamp(integerIn(scene, "Columns", 0), 0, 300));
  subject.rows = static_cast<std::size_t>(std::clamp(integerIn(scene, "Rows", 0), 0, 100));
  subject.has_colour = isTrueIn(scene, "Colour");
  const int waits = std::clamp(integerIn(scene, "Waits", 2), 0, 20);
  subject.is_interrupted = [waits](int waited) { return waited > waits; };
}

}  // namespace

const Words& vocabulary() {
  static const Words& words = *[] {
    auto* all = new Words(preferencesWords());
    for (const char* word : {"Commands",
                             "Preferences",
                             "Status",
                             "Log",
                             "SetAside",
                             "Binary",
                             "Columns",
                             "Rows",
                             "Colour",
                             "Waits",
                             "status",
                             "list",
                             "show",
                             "set",
                             "unset",
                             "remove",
                             "enable",
                             "disable",
                             "preset",
                             "apply",
                             "release",
                             "plan",
                             "match",
                             "ps",
                             "check",
                             "log",
                             "bands",
                             "doctor",
                             "__complete",
                             "--json",
                             "--watch",
                             "--interval",
                             "--dry-run",
                             "--no-apply",
                             "--replace",
                             "--replace-file",
                             "--keep-preferences",
                             "--timeout",
                             "--no-processes",
                             "-n",
                             "--lines",
                             "-f",
                             "--follow",
                             "--target",
                             "--category",
                             "--help",
                             "-h",
                             "--",
                             "-",
                             "=",
                             "[",
                             "[a,b]",
                             ",",
                             "JetsamPriority=",
                             "NiceValue=-5",
                             "CheckInterval=30",
                             "Remark=",
                             "StripManaged=off",
                             "MemLimitActive=2000",
                             "foreground",
                             "highest",
                             "home",
                             "内核",
                             "[守护]",
                             "pid",
                             "n",
                             "p",
                             "@com.zel.vorlatch.plist",
                             "@Vorlatch.log",
                             ".",
                             "1e5",
                             "+5",
                             "[03-04 05:06:07] [内核] ：成功\n"}) {
      all->emplace_back(word);
    }
    return all;
  }();
  return words;
}

void tell(std::string_view input) {
  static Subject& subject = *new Subject;
  const std::optional<Value> root = propertyListIn(input);
  if (!root || root->as<Dictionary>() == nullptr) return;
  const Dictionary& scene = *root->as<Dictionary>();
  subject.tell([&] {
    prepare(subject, scene);
    for (const Words& words : commandsIn(subject, scene)) {
      subject.type(words);
      subject.Story::run(200ms);
    }
    subject.takeChargeOfHeld();
  });
}

}  // namespace vorlatch::fuzz
