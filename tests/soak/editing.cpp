#include "tests/soak/editing.h"

#include <cstdint>
#include <filesystem>
#include <fstream>

#include "config/preferences.h"
#include "platform/property_list.h"
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

// As an argument of set takes it.
std::string wordOf(const plist::Value& value) {
  if (const auto* is_on = value.as<bool>()) return *is_on ? "true" : "false";
  if (const auto* number = value.as<std::int64_t>()) return std::to_string(*number);
  return *value.as<std::string>();
}

}  // namespace

bool ControlEditor::isBusy() {
  if (process_ != nullptr && process_->hasEnded()) finish();
  return process_ != nullptr;
}

void ControlEditor::begin(const std::vector<std::string>& arguments, std::string key,
                          std::optional<plist::Value> after) {
  key_ = std::move(key);
  after_ = std::move(after);
  process_ = installation_.startControl({.arguments = arguments});
}

void ControlEditor::beginSet(const std::string& key, const Dictionary& settings) {
  const Dictionary* before = expectedOf(key);
  Dictionary after = before != nullptr ? *before : Dictionary{};
  std::vector<std::string> arguments{"set", key};
  for (const auto& [name, value] : settings) {
    arguments.push_back(name + "=" + wordOf(value));
    after.insert_or_assign(name, value);
  }
  begin(arguments, key, after);
}

void ControlEditor::beginSwitch(bool on) {
  begin({on ? "enable" : "disable"}, "", on);
}

void ControlEditor::beginWhole(tests::Dice& dice, const std::string& key, int remark) {
  beginSet(key, {{keys::kNiceValue, dice.between(kLowestNice, kHighestLinuxNice)},
                 {keys::kJetsamPriority, dice.between(kLowestPlainBand, kHighestBand)},
                 {keys::kMemLimitActive, dice.between(0, 500)},
                 {keys::kMemLimitInactive, dice.between(0, 500)},
                 {keys::kStripManaged, dice.oneIn(2)},
                 {keys::kCheckInterval, dice.between(0, 1)},
                 {keys::kRemark, "calm " + std::to_string(remark)}});
}

void ControlEditor::beginSome(tests::Dice& dice) {
  const std::string& key = dice.of(keys_);
  const Dictionary* before = expectedOf(key);
  if (before != nullptr && dice.oneIn(10)) return begin({"remove", key}, key, std::nullopt);
  if (before != nullptr && !before->empty() && dice.oneIn(10)) {
    Dictionary after = *before;
    const std::string setting = after.begin()->first;
    after.erase(setting);
    return begin({"unset", key, setting}, key, after);
  }
  Dictionary settings{{keys::kNiceValue, dice.between(kLowestNice, kHighestLinuxNice)}};
  if (dice.oneIn(2)) settings.emplace(keys::kJetsamPriority, dice.between(-1, kHighestBand));
  if (dice.oneIn(3)) settings.emplace(keys::kCheckInterval, dice.between(0, 2));
  if (dice.oneIn(3)) settings.emplace(keys::kMemLimitActive, dice.between(0, 500));
  if (dice.oneIn(3)) settings.emplace(keys::kStripManaged, dice.oneIn(2));
  beginSet(key, settings);
}

void ControlEditor::finish() {
  if (process_ == nullptr) return;
  const int status = process_->exitCode();
  process_.reset();
  if (status != 0) {
    EXPECT_TRUE(status == 2 || status == 3) << "vorlatchctl ended with " << status;
    ++refused_;
    return;
  }
  ++done_;
  if (key_.empty()) {
    expected_.insert_or_assign(keys::kEnabled, *after_);
  } else if (after_) {
    childOf(expected_, keys::kAppConfigs).insert_or_assign(key_, *after_);
  } else {
    childOf(expected_, keys::kAppConfigs).erase(key_);
  }
}

const Dictionary* ControlEditor::expectedOf(const std::string& key) const {
  const Dictionary& targets = childOf(expected_, keys::kAppConfigs);
  const auto target = targets.find(key);
  return target == targets.end() ? nullptr : target->second.as<Dictionary>();
}

void ForeignEditor::goOn(tests::Dice& dice) {
  if (!read_) {
    read_ = dictionaryIn(installation_.preferencesPath());
    return;
  }
  read_->insert_or_assign(keys::kEnabled, !dice.oneIn(10));
  if (dice.oneIn(4)) read_->insert_or_assign(keys::kLogSizeLimit, dice.between(10'000, 100'000));
  Dictionary& targets = childOf(*read_, keys::kAppConfigs);
  const std::string& key = dice.of(keys_);
  if (dice.oneIn(4)) {
    targets.erase(key);
  } else if (dice.oneIn(2)) {
    childOf(targets, key)
        .insert_or_assign(keys::kNiceValue,
                          std::to_string(dice.between(kLowestNice, kHighestLinuxNice)));
  } else {
    targets.insert_or_assign(key, Dictionary{{keys::kNiceValue, dice.between(-30, 30)},
                                             {keys::kCheckInterval, dice.between(-1, 2)}});
  }
  targets.insert_or_assign(ownName("absent" + std::to_string(dice.between(0, 5))),
                           Dictionary{{keys::kCheckInterval, dice.between(0, 1)}});
  replace(*std::exchange(read_, std::nullopt));
}

void ForeignEditor::finish() {
  Dictionary preferences = dictionaryIn(installation_.preferencesPath());
  preferences.insert_or_assign(keys::kEnabled, true);
  EXPECT_TRUE(replace(preferences));
  read_.reset();
}

bool ForeignEditor::replace(const Dictionary& preferences) {
  const bool replaced = replaceFile(installation_.preferencesPath(),
                                    is_binary_ ? platform::writeBinaryPropertyList(preferences)
                                               : platform::writeXmlPropertyList(preferences));
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

Dictionary dictionaryIn(const std::string& path) {
  std::optional<plist::Value> value = platform::parsePropertyList(tests::readAll(path));
  auto* dictionary = value ? value->as<Dictionary>() : nullptr;
  return dictionary != nullptr ? std::move(*dictionary) : Dictionary{};
}

}  // namespace vorlatch
