// The environment of a story: the daemon on the simulated device, the oracle, and the state that
// steps change. Every action of the daemon is compared with the oracle at once; a difference throws
// Mismatch and ends the story.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/plist_value.h"
#include "tests/oracle/oracle.h"
#include "tests/simulated/device.h"
#include "tests/support/story.h"

namespace vorlatch::tests::random {

class Stage {
 public:
  Stage();

  Story story;
  simulated::Device& device;
  plist::Dictionary draft;  // the preferences as an editor keeps them

  // Actions of programs other than the daemon.
  void writeDraft(bool as_binary);
  void breakPreferences(const std::string& bytes);
  void removePreferences();
  void installBundle(const std::string& bundle, const plist::Dictionary& info);
  void breakBundle(const std::string& bundle);
  // The newest process with this name, or null.
  [[nodiscard]] simulated::Process* newest(const std::string& name) const;
  // The kernel stops refusing and overriding.
  void calmKernel();

  void start();
  void post();
  // Advances time, but stops after this number of work items.
  void run(std::chrono::nanoseconds duration, int items_max = 300);
  // Stops all disturbances and faults until every watch timer and the patrol have run, then checks
  // that every running target has the settings of the file: first without a further pass, if no
  // edit waits for one, and then after one.
  void calmDown();

  [[nodiscard]] std::size_t logBytes() const;

 private:
  void compareLastRan();
  void compareFiles();
  void compareLog() const;
  void compareTimers();
  void runUntilAllTicked();
  void checkStanding(bool after_a_pass);
  void checkTarget(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  std::int32_t foundBy(const std::string& key, bool by_tick);
  [[nodiscard]] std::string bundleDirectory(const std::string& bundle) const;

  Files files_;
  bool is_edit_waiting_ = false;  // for a pass
  std::optional<Transcript> transcript_;
  std::optional<Oracle> oracle_;
  std::uint64_t compared_ = 0;  // work items
  std::uint64_t compared_until_ns_ = 0;
};

}  // namespace vorlatch::tests::random
