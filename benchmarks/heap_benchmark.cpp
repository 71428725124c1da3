// The daemon's peak heap use over a day with targets as users configure them.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/scenario/heap_day.h"

int main() {
  using namespace std::chrono_literals;
  std::printf("%10s %12s\n", "targets", "peak, kB");
  for (const int targets : {7, 50, 100, 200, 500}) {
    std::fflush(stdout);
    // One process per day, because the daemon redirects the standard streams to its log.
    const pid_t child = fork();
    if (child == 0) {
      const int console = dup(STDOUT_FILENO);
      vorlatch::tests::HeapDay day;
      const std::size_t bytes =
          day.peakBytes(vorlatch::tests::ordinaryPreferences(targets, -5),
                        vorlatch::tests::ordinaryPreferences(targets, -6), 2h);
      dprintf(console, "%10d %12zu\n", targets, bytes / 1000);
      std::_Exit(day.heldTargets() == static_cast<std::size_t>(targets) ? 0 : 1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) return 1;
  }
}
