// Who edits the preferences in the chaos: vorlatchctl, several at once, and programs that know
// nothing of it.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/dice.h"
#include "tests/support/draft.h"
#include "tests/support/files.h"

namespace vorlatch {

using tests::childOf;
using tests::targetsIn;

// The contents of the preferences or the status file; empty if they do not parse.
inline plist::Dictionary dictionaryIn(const std::string& path) {
  std::optional<plist::Value> value = platform::parsePropertyList(tests::readAll(path));
  auto* dictionary = value ? value->as<plist::Dictionary>() : nullptr;
  return dictionary != nullptr ? std::move(*dictionary) : plist::Dictionary{};
}

// Replaces a file as editors do. Returns false if the disk is full; the old file then remains.
inline bool replaceFile(const std::string& path, const std::string& bytes) {
  const std::string temporary = path + ".edited";
  std::ofstream file(temporary, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  std::error_code error;
  if (file) {
    std::filesystem::rename(temporary, path, error);
    return !error;
  }
  std::filesystem::remove(temporary, error);
  return false;
}

// Settings of a target. Their effect on a process does not depend on what it was before, as that of
// bands up to 40 does.
inline plist::Dictionary anySettings(tests::Dice& dice) {
  return {{keys::kNiceValue, dice.between(kLowestNice, 19)},
          {keys::kJetsamPriority, dice.between(50, 210)},
          {keys::kMemLimitActive, dice.between(0, 500)},
          {keys::kMemLimitInactive, dice.between(0, 500)},
          {keys::kStripManaged, dice.oneIn(2)},
          {keys::kCheckInterval, dice.between(0, 1)}};
}

// Runs one vorlatchctl after the other. Its targets are its own: no other editor changes them.
class ControlEditor {
 public:
  // `expected` are the preferences as the edits of all editors have to leave them.
  ControlEditor(const Installation& installation, std::vector<std::string> own_targets,
                plist::Dictionary& expected)
      : targets(std::move(own_targets)), installation_(installation), expected_(expected) {}

  // Whether its vorlatchctl still runs. One that has ended counts as done or refused from here on.
  [[nodiscard]] bool isBusy() {
    if (process_ != nullptr && process_->hasEnded()) finish();
    return process_ != nullptr;
  }

  // Each starts an edit; the editor must not be busy.
  void beginSet(const std::string& key, const plist::Dictionary& settings) {
    // Forced, because some limits are near what an idle process has used.
    std::vector<std::string> arguments{"set", "--force", key};
    for (const auto& [name, value] : settings) {
      const auto* text = value.as<std::string>();
      arguments.push_back(name + "=" +
                          (text != nullptr ? *text : std::to_string(plist::int32Value(value))));
    }
    begin(arguments, [key, settings](plist::Dictionary& preferences) {
      plist::Dictionary& target = childOf(targetsIn(preferences), key);
      for (const auto& [name, value] : settings) target.insert_or_assign(name, value);
    });
  }
  void beginSwitch(bool on) {
    begin({on ? "enable" : "disable"}, [on](plist::Dictionary& preferences) {
      preferences.insert_or_assign(keys::kEnabled, on);
    });
  }
  // Some edit of one of its targets.
  void beginSome(tests::Dice& dice) {
    const std::string key = dice.of(targets);
    if (targetsIn(expected_).contains(key) && dice.oneIn(5)) {
      begin({"remove", key},
            [key](plist::Dictionary& preferences) { targetsIn(preferences).erase(key); });
    } else {
      beginSet(key, anySettings(dice));
    }
  }

  void finish() {
    if (process_ == nullptr) return;
    const int status = process_->exitCode();
    process_.reset();
    if (status == 0) {
      change_(expected_);
      ++done;
    } else {
      EXPECT_TRUE(status == 2 || status == 3) << "vorlatchctl ended with " << status;
      ++refused;
    }
  }

  const std::vector<std::string> targets;
  int done = 0;
  // How many ended with an error: the disk was full, or a foreign program came between.
  int refused = 0;

 private:
  void begin(const std::vector<std::string>& arguments,
             std::function<void(plist::Dictionary&)> change) {
    change_ = std::move(change);
    process_ = installation_.startControl({.arguments = arguments});
  }

  const Installation& installation_;
  plist::Dictionary& expected_;
  std::function<void(plist::Dictionary&)> change_;
  std::unique_ptr<ChildProcess> process_;
};

// Reads the preferences, and some time later puts its version in their place, locking nothing.
class ForeignEditor {
 public:
  ForeignEditor(const Installation& installation, bool is_binary)
      : path_(installation.preferencesPath()), is_binary_(is_binary) {}

  // Reads, or replaces what it has read.
  void goOn(tests::Dice& dice, const std::string& key) {
    if (!read_) {
      read_ = dictionaryIn(path_);
      return;
    }
    read_->insert_or_assign(keys::kEnabled, !dice.oneIn(10));
    childOf(targetsIn(*read_), key)
        .insert_or_assign(keys::kNiceValue, std::to_string(dice.between(-30, 30)));
    replace();
  }
  // Leaves preferences that are switched on; fails the test if they cannot be written.
  void finish() {
    read_ = dictionaryIn(path_);
    read_->insert_or_assign(keys::kEnabled, true);
    EXPECT_TRUE(replace());
  }

 private:
  bool replace() {
    const plist::Dictionary preferences = *std::exchange(read_, std::nullopt);
    return replaceFile(path_, is_binary_ ? platform::writeBinaryPropertyList(preferences)
                                         : platform::writeXmlPropertyList(preferences));
  }

  const std::string path_;
  const bool is_binary_;
  std::optional<plist::Dictionary> read_;
};

}  // namespace vorlatch
