// A process to look at: does nothing until it is killed.
#include <unistd.h>

int main() {
  while (true) pause();
}
