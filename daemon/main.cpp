#include "daemon/startup.h"

int main() {
  return vorlatch::runDaemon();
}
