#include "cli/control.h"
#include "cli/failure.h"

int main(int argc, char** argv) {
  using namespace vorlatch::cli;
  Terminal terminal = processTerminal();
  const int status = runControl({argv + (argc > 0 ? 1 : 0), argv + argc}, terminal);
  if (outputError() == 0 || status != kDone) return status;
  terminal.err("vorlatchctl: standard output: " + reasonOf(outputError()) + "\n");
  return kCouldNot;
}
