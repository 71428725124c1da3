// A process to look at: says that it runs, then waits until whoever started it ends it or is gone.
#include <unistd.h>

int main() {
  char byte = 'r';
  if (write(STDOUT_FILENO, &byte, 1) != 1) return 1;
  return read(STDIN_FILENO, &byte, 1) == 0 ? 0 : 1;
}
