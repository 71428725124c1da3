// What may not compile: the lines with a warning behind them, which is an error in every build, and
// no other. Clang itself compares the two (-verify).
#include "base/thread_safety.h"
#include "daemon/apply_scheduling.h"
#include "reconcile/pass_state.h"
#include "reconcile/reconciliation_pass.h"

namespace vorlatch {

struct Locked {
  Mutex mutex;
  int value GUARDED_BY(mutex) = 0;

  void change() REQUIRES(mutex) { ++value; }
};

void holdsTheLock(Locked& locked) {
  const Lock lock(locked.mutex);
  ++locked.value;
  locked.change();
}

void forgetsTheLock(Locked& locked) {
  ++locked.value;   // expected-warning {{holding lock 'locked.mutex'}}
  locked.change();  // expected-warning {{holding lock 'locked.mutex'}}
}

void locksTwice(Locked& locked) {
  const Lock lock(locked.mutex);   // expected-note {{lock acquired here}}
  const Lock again(locked.mutex);  // expected-warning {{that is already held}}
}

void runsOnTheDebounceQueue() REQUIRES(kDebounceQueue) {
  passState().knownTargets.clear();
  executeMemoryLimits();
}

void runsAnywhere() {
  passState().targetTimers.clear();        // expected-warning {{holding queue 'kDebounceQueue'}}
  passState().knownTargets.clear();        // expected-warning {{holding queue 'kDebounceQueue'}}
  passState().lastAppliedConfigs.clear();  // expected-warning {{holding queue 'kDebounceQueue'}}
  passState().lastKnownPIDs.clear();       // expected-warning {{holding queue 'kDebounceQueue'}}
  executeMemoryLimits();                   // expected-warning {{holding queue 'kDebounceQueue'}}
}

void runsOnTheMainThread() {
  kMainThread.assertHeld();
  applyMemoryLimits();
  executeMemoryLimits();  // expected-warning {{holding queue 'kDebounceQueue'}}
}

void sendsWork() REQUIRES(kDebounceQueue) {
  passState().knownTargets.clear();
  platform::async(workerQueue(), [] {
    passState().knownTargets.clear();  // expected-warning {{holding queue 'kDebounceQueue'}}
  });
}

void sweeps() REQUIRES(kWorkerQueue) {}

void sweepsOnTheWrongQueue() REQUIRES(kDebounceQueue) {
  sweeps();  // expected-warning {{holding queue 'kWorkerQueue'}}
}

}  // namespace vorlatch
