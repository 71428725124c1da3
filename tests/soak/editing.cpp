#include "tests/soak/editing.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <utility>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/blackbox/property_list_bytes.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;

// What the kernel makes of a band up to 40 depends on what the process was before.
constexpr int kLowestPlainBand = 50;
constexpr int kHighestBand = 210;
constexpr int kHighestLinuxNice = 19;

Dictionary& childOf(Dictionary& parent, const std::string& key) {
  const auto entry = parent.try_emplace(key, Dictionary{}).first;
  if (entry->second.as<Dictionary>() == nullptr) entry->second = Dictionary{};
  return *entry->second.as<Dictionary>();
}

Dictionary& targetsOf(Dictionary& preferences) {
  return childOf(preferences, keys::kAppConfigs);
}

// As the arguments of set, and as they are stored.
struct Settings {
  std::vector<std::string> words;
  Dictionary values;

  void add(const char* key, int value) {
    words.push_back(std::string(key) + "=" + std::to_string(value));
    values.insert_or_assign(key, value);
  }
  void add(const char* key, bool value) {
    words.push_back(std::string(key) + (value ? "=true" : "=false"));
    values.insert_or_assign(key, value);
  }
  void add(const char* key, const std::string& value) {
    words.push_back(std::string(key) + "=" + value);
    values.insert_or_assign(key, value);
  }
};

ControlEdit setEdit(const std::string& key, const Settings& settings) {
  std::vector<std::string> arguments{"set", key};
  arguments.insert(arguments.end(), settings.words.begin(), settings.words.end());
  return {.arguments = std::move(arguments),
          .effect = [key, values = settings.values](Dictionary& preferences) {
            Dictionary& stored = childOf(targetsOf(preferences), key);
            for (const auto& [name, value] : values) stored.insert_or_assign(name, value);
          }};
}

ControlEdit someSettings(tests::Dice& dice, const std::string& key) {
  Settings settings;
  settings.add(keys::kNiceValue, dice.between(kLowestNice, kHighestLinuxNice));
  if (dice.oneIn(2)) settings.add(keys::kJetsamPriority, dice.between(-1, kHighestBand));
  if (dice.oneIn(3)) settings.add(keys::kCheckInterval, dice.between(0, 2));
  if (dice.oneIn(3)) settings.add(keys::kMemLimitActive, dice.between(0, 500));
  if (dice.oneIn(3)) settings.add(keys::kStripManaged, dice.oneIn(2));
  return setEdit(key, settings);
}

ControlEdit removeEdit(const std::string& key) {
  return {.arguments = {"remove", key},
          .effect = [key](Dictionary& preferences) { targetsOf(preferences).erase(key); }};
}

ControlEdit unsetEdit(const std::string& key, const std::string& setting) {
  return {.arguments = {"unset", key, setting}, .effect = [key, setting](Dictionary& preferences) {
            childOf(targetsOf(preferences), key).erase(setting);
          }};
}

}  // namespace

ControlEdit wholeEdit(tests::Dice& dice, const std::string& key, int remark) {
  Settings settings;
  settings.add(keys::kNiceValue, dice.between(kLowestNice, kHighestLinuxNice));
  settings.add(keys::kJetsamPriority, dice.between(kLowestPlainBand, kHighestBand));
  settings.add(keys::kMemLimitActive, dice.between(0, 500));
  settings.add(keys::kMemLimitInactive, dice.between(0, 500));
  settings.add(keys::kStripManaged, dice.oneIn(2));
  settings.add(keys::kCheckInterval, dice.between(0, 1));
  settings.add(keys::kRemark, "calm " + std::to_string(remark));
  return setEdit(key, settings);
}

ControlEdit switchEdit(bool on) {
  return {.arguments = {on ? "enable" : "disable"}, .effect = [on](Dictionary& preferences) {
            preferences.insert_or_assign(keys::kEnabled, on);
          }};
}

bool ControlEditor::isBusy() {
  if (process_ != nullptr && process_->hasEnded()) finish();
  return process_ != nullptr;
}

void ControlEditor::begin(ControlEdit edit) {
  Launch launch;
  launch.arguments = edit.arguments;
  edit_ = std::move(edit);
  process_ = std::make_unique<ChildProcess>(installation_.path("usr/bin/vorlatchctl"), launch);
}

void ControlEditor::beginSome(tests::Dice& dice) {
  const std::string& key = dice.of(keys_);
  const Dictionary& targets = targetsOf(expected_);
  const auto target = targets.find(key);
  const Dictionary* settings = target == targets.end() ? nullptr : target->second.as<Dictionary>();
  if (settings != nullptr && dice.oneIn(10)) return begin(removeEdit(key));
  if (settings != nullptr && !settings->empty() && dice.oneIn(10)) {
    return begin(unsetEdit(key, settings->begin()->first));
  }
  begin(someSettings(dice, key));
}

void ControlEditor::finish() {
  if (process_ == nullptr) return;
  const int status = process_->exitCode();
  if (status == 0) {
    edit_->effect(expected_);
    ++done_;
  } else {
    EXPECT_TRUE(status == 2 || status == 3) << "vorlatchctl ended with " << status;
    ++refused_;
  }
  process_.reset();
}

void ForeignEditor::goOn(tests::Dice& dice) {
  if (!read_) {
    read_ = dictionaryIn(installation_.preferencesPath());
    return;
  }
  change(dice, *read_);
  replace(*std::exchange(read_, std::nullopt));
}

void ForeignEditor::finish() {
  Dictionary preferences = dictionaryIn(installation_.preferencesPath());
  preferences.insert_or_assign(keys::kEnabled, true);
  EXPECT_TRUE(replace(preferences));
  read_.reset();
}

void ForeignEditor::change(tests::Dice& dice, Dictionary& preferences) const {
  preferences.insert_or_assign(keys::kEnabled, !dice.oneIn(10));
  if (dice.oneIn(4)) {
    preferences.insert_or_assign(keys::kLogSizeLimit, dice.between(10'000, 100'000));
  }
  Dictionary& targets = targetsOf(preferences);
  const std::string& key = dice.of(keys_);
  if (dice.oneIn(4)) {
    targets.erase(key);
  } else if (dice.oneIn(2)) {
    childOf(targets, key)
        .insert_or_assign(keys::kNiceValue, std::to_string(dice.between(kLowestNice, 19)));
  } else {
    targets.insert_or_assign(key, Dictionary{{keys::kNiceValue, dice.between(-30, 30)},
                                             {keys::kCheckInterval, dice.between(-1, 2)}});
  }
  targets.insert_or_assign(ownName("absent" + std::to_string(dice.between(0, 5))),
                           Dictionary{{keys::kCheckInterval, dice.between(0, 1)}});
}

bool ForeignEditor::replace(const Dictionary& preferences) {
  const bool is_binary = form_ == Form::Binary;
  const std::string bytes =
      is_binary ? binaryPropertyList(preferences) : platform::writeXmlPropertyList(preferences);
  const bool replaced = replaceFile(installation_.preferencesPath(), bytes);
  if (replaced) ++replacements_;
  return replaced;
}

bool replaceFile(const std::string& path, const std::string& bytes) {
  const std::string temporary = path + ".edited";
  std::ofstream file(temporary, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  std::error_code error;
  if (file) {
    fs::rename(temporary, path, error);
    return !error;
  }
  fs::remove(temporary, error);
  return false;
}

plist::Dictionary dictionaryIn(const std::string& path) {
  std::optional<plist::Value> value = platform::parsePropertyList(tests::readAll(path));
  auto* dictionary = value ? value->as<Dictionary>() : nullptr;
  return dictionary != nullptr ? std::move(*dictionary) : Dictionary{};
}

}  // namespace vorlatch
