// A process for tests to observe: it sleeps until it is killed. Its argument is how many MB of
// memory it uses; none without one. It prints a line when it uses them.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  constexpr std::size_t kBytesPerMb = std::size_t{1024} * 1024;
  const std::size_t used_mb = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
  const std::vector<char> used(used_mb * kBytesPerMb, 'x');
  std::puts("ready");
  std::fflush(stdout);
  while (true) pause();
}
