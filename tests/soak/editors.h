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

inline int anyNice(tests::Dice& dice) {
  return dice.between(kLowestNice, 19);
}

// Random settings of a target. Whole settings contain every setting, and their effect on a process
// does not depend on what it was before, as that of bands up to 40 does.
inline plist::Dictionary anySettings(tests::Dice& dice, bool is_whole) {
  plist::Dictionary settings{{keys::kNiceValue, anyNice(dice)}};
  const auto add = [&](const char* key, const plist::Value& value) {
    if (is_whole || dice.oneIn(3)) settings.emplace(key, value);
  };
  add(keys::kJetsamPriority, dice.between(is_whole ? 50 : -1, 210));
  add(keys::kMemLimitActive, dice.between(0, 500));
  add(keys::kMemLimitInactive, dice.between(0, 500));
  add(keys::kStripManaged, dice.oneIn(2));
  add(keys::kCheckInterval, dice.between(0, is_whole ? 1 : 2));
  return settings;
}

// Runs one vorlatchctl after the other. Its targets are its own: no other editor changes them.
class ControlEditor {
 public:
  // `expected` are the preferences as the edits of all editors have to leave them.
  ControlEditor(const Installation& installation, std::vector<std::string> keys,
                plist::Dictionary& expected)
      : installation_(installation), keys_(std::move(keys)), expected_(expected) {}

  // Whether its vorlatchctl still runs. One that has ended counts as done or refused from here on.
  [[nodiscard]] bool isBusy() {
    if (process_ != nullptr && process_->hasEnded()) finish();
    return process_ != nullptr;
  }

  // Each starts an edit; the editor must not be busy.
  void beginSet(const std::string& key, const plist::Dictionary& settings) {
    std::vector<std::string> arguments{"set", key};
    for (const auto& [name, value] : settings) arguments.push_back(name + "=" + wordOf(value));
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
    const std::string key = dice.of(keys_);
    if (!targetsIn(expected_).contains(key) || !dice.oneIn(5)) {
      beginSet(key, anySettings(dice, false));
    } else if (dice.oneIn(2)) {
      begin({"remove", key},
            [key](plist::Dictionary& preferences) { targetsIn(preferences).erase(key); });
    } else if (const auto& target = childOf(targetsIn(expected_), key); !target.empty()) {
      const std::string name = target.begin()->first;
      begin({"unset", key, name}, [key, name](plist::Dictionary& preferences) {
        childOf(targetsIn(preferences), key).erase(name);
      });
    }
  }

  void finish() {
    if (process_ == nullptr) return;
    const int status = process_->exitCode();
    process_.reset();
    if (status == 0) {
      change_(expected_);
      ++done_;
    } else {
      EXPECT_TRUE(status == 2 || status == 3) << "vorlatchctl ended with " << status;
      ++refused_;
    }
  }

  [[nodiscard]] const std::vector<std::string>& keys() const { return keys_; }
  [[nodiscard]] int done() const { return done_; }
  // How many ended with an error: the disk was full, or a foreign program came between.
  [[nodiscard]] int refused() const { return refused_; }

 private:
  static std::string wordOf(const plist::Value& value) {
    if (const auto* is_on = value.as<bool>()) return *is_on ? "true" : "false";
    if (const auto* number = value.as<std::int64_t>()) return std::to_string(*number);
    return *value.as<std::string>();
  }
  void begin(const std::vector<std::string>& arguments,
             std::function<void(plist::Dictionary&)> change) {
    change_ = std::move(change);
    process_ = installation_.startControl({.arguments = arguments});
  }

  const Installation& installation_;
  const std::vector<std::string> keys_;
  plist::Dictionary& expected_;
  std::function<void(plist::Dictionary&)> change_;
  std::unique_ptr<ChildProcess> process_;
  int done_ = 0;
  int refused_ = 0;
};

// Reads the preferences, and some time later puts its version in their place, locking nothing.
class ForeignEditor {
 public:
  ForeignEditor(const Installation& installation, bool is_binary, std::vector<std::string> keys)
      : installation_(installation), is_binary_(is_binary), keys_(std::move(keys)) {}

  // Reads, or replaces what it has read.
  void goOn(tests::Dice& dice) {
    if (!read_) {
      read_ = dictionaryIn(installation_.preferencesPath());
      return;
    }
    read_->insert_or_assign(keys::kEnabled, !dice.oneIn(10));
    if (dice.oneIn(4)) read_->insert_or_assign(keys::kLogSizeLimit, dice.between(10'000, 100'000));
    plist::Dictionary& targets = targetsIn(*read_);
    const std::string& key = dice.of(keys_);
    if (dice.oneIn(4)) {
      targets.erase(key);
    } else {
      childOf(targets, key)
          .insert_or_assign(keys::kNiceValue, std::to_string(dice.between(-30, 30)));
      childOf(targets, key).insert_or_assign(keys::kCheckInterval, dice.between(-1, 2));
    }
    childOf(targets, ownName("absent" + std::to_string(dice.between(0, 5))))
        .insert_or_assign(keys::kCheckInterval, dice.between(0, 1));
    replace(*std::exchange(read_, std::nullopt));
  }
  // Leaves preferences that are switched on; fails the test if they cannot be written.
  void finish() {
    plist::Dictionary preferences = dictionaryIn(installation_.preferencesPath());
    preferences.insert_or_assign(keys::kEnabled, true);
    EXPECT_TRUE(replace(preferences));
    read_.reset();
  }
  [[nodiscard]] int replacements() const { return replacements_; }

 private:
  bool replace(const plist::Dictionary& preferences) {
    const bool is_replaced = replaceFile(installation_.preferencesPath(),
                                         is_binary_ ? platform::writeBinaryPropertyList(preferences)
                                                    : platform::writeXmlPropertyList(preferences));
    if (is_replaced) ++replacements_;
    return is_replaced;
  }

  const Installation& installation_;
  const bool is_binary_;
  const std::vector<std::string> keys_;
  std::optional<plist::Dictionary> read_;
  int replacements_ = 0;
};

}  // namespace vorlatch
