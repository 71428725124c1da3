// Who edits the preferences in the chaos: vorlatchctl, several at once, and programs that know
// nothing of it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/plist_value.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/processes.h"
#include "tests/support/dice.h"

namespace vorlatch {

// What one vorlatchctl is to do, and what has become of the preferences when it has done so.
struct ControlEdit {
  std::vector<std::string> arguments;
  std::function<void(plist::Dictionary& preferences)> effect;
};

// Gives the target all settings that it can have, at random, but such that what they make of a
// process does not depend on what it went through before.
ControlEdit wholeEdit(tests::Dice& dice, const std::string& key, int remark);
// Switches the daemon on or off.
ControlEdit switchEdit(bool on);

// Runs one vorlatchctl after the other. Its targets are its own: no other editor touches them.
class ControlEditor {
 public:
  // The preferences as they have to be are all editors' together.
  ControlEditor(const Installation& installation, std::vector<std::string> keys,
                plist::Dictionary& expected)
      : installation_(installation), keys_(std::move(keys)), expected_(expected) {}

  // Whether its vorlatchctl still runs; one that has ended counts as done or refused from here on.
  [[nodiscard]] bool isBusy();
  // Starts one; it must not be busy.
  void begin(ControlEdit edit);
  // Some edit of one of its targets that the preferences as they have to be allow.
  void beginSome(tests::Dice& dice);
  // Waits until it is through.
  void finish();

  [[nodiscard]] const std::vector<std::string>& keys() const { return keys_; }
  [[nodiscard]] int done() const { return done_; }
  // How many ended with an error: the disk was full, or a foreign program came between.
  [[nodiscard]] int refused() const { return refused_; }

 private:
  const Installation& installation_;
  const std::vector<std::string> keys_;
  plist::Dictionary& expected_;
  std::optional<ControlEdit> edit_;
  std::unique_ptr<ChildProcess> process_;
  int done_ = 0;
  int refused_ = 0;
};

// Reads the preferences, and some time later puts its version in their place, locking nothing.
class ForeignEditor {
 public:
  enum class Form { Xml, Binary };
  ForeignEditor(const Installation& installation, Form form, std::vector<std::string> keys)
      : installation_(installation), form_(form), keys_(std::move(keys)) {}

  // Reads, or replaces what it has read.
  void goOn(tests::Dice& dice);
  // Leaves preferences that are switched on; fails the test when they cannot be written.
  void finish();

  [[nodiscard]] int replacements() const { return replacements_; }

 private:
  void change(tests::Dice& dice, plist::Dictionary& preferences) const;
  bool replace(const plist::Dictionary& preferences);

  const Installation& installation_;
  const Form form_;
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
