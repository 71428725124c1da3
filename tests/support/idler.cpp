// A process for tests to observe: it sleeps until it is killed.
#include <unistd.h>

int main() {
  while (true) pause();
}
