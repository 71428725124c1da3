// Who edits the preferences in the chaos: vorlatchctl, several at once, and programs that know
// nothing of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/blackbox/installation.h"
#include "tests/support/dice.h"

namespace vorlatch {

// Runs one vorlatchctl after the other. Its targets are its own: no other editor touches them.
class ControlEditor {
 public:
  // The preferences as they have to be are all editors' together.
  ControlEditor(const Installation& installation, std::vector<std::string> keys,
                plist::Dictionary& expected)
      : installation_(installation), keys_(std::move(keys)), expected_(expected) {}

  // Whether its vorlatchctl still runs; one that has ended counts as done or refused from here on.
  [[nodiscard]] bool isBusy();
  // Each starts an edit; the editor must not be busy. Some edit of one of its targets:
  void beginSome(tests::Dice& dice);
  // All settings that the target can have, at random, but such that what they make of a process
  // does not depend on what it went through before:
  void beginWhole(tests::Dice& dice, const std::string& key, int remark);
  void beginSwitch(bool on);
  // Waits until it is through.
  void finish();

  [[nodiscard]] const std::vector<std::string>& keys() const { return keys_; }
  [[nodiscard]] int done() const { return done_; }
  // How many ended with an error: the disk was full, or a foreign program came between.
  [[nodiscard]] int refused() const { return refused_; }

 private:
  // Starts vorlatchctl, which is to make this of the target, or of the switch where no key is
  // given.
  void begin(const std::vector<std::string>& arguments, std::string key,
             std::optional<plist::Value> after);
  void beginSet(const std::string& key, const plist::Dictionary& settings);
  [[nodiscard]] const plist::Dictionary* expectedOf(const std::string& key) const;

  const Installation& installation_;
  const std::vector<std::string> keys_;
  plist::Dictionary& expected_;
  std::string key_;
  std::optional<plist::Value> after_;
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
  void goOn(tests::Dice& dice);
  // Leaves preferences that are switched on; fails the test when they cannot be written.
  void finish();

  [[nodiscard]] int replacements() const { return replacements_; }

 private:
  bool replace(const plist::Dictionary& preferences);

  const Installation& installation_;
  const bool is_binary_;
  const std::vector<std::string> keys_;
  std::optional<plist::Dictionary> read_;
  int replacements_ = 0;
};

// Puts a new file in the place of the old one, as editors do; false when the disk is full, and the
// old one is still there.
bool replaceFile(const std::string& path, const std::string& bytes);

// The preferences or the status file, as they are at present; empty when they do not parse.
plist::Dictionary dictionaryIn(const std::string& path);

}  // namespace vorlatch
