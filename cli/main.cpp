#include "cli/control.h"
#include "cli/failure.h"

int main(int argc, char** argv) {
  namespace cli = vorlatch::cli;
  cli::Terminal terminal = cli::processTerminal();
  const int status = cli::runControl({argv + (argc > 0 ? 1 : 0), argv + argc}, terminal);
  if (cli::outputError() == 0 || status != cli::kDone) return status;
  terminal.err("vorlatchctl: standard output: " + cli::reasonOf(cli::outputError()) + "\n");
  return cli::kCouldNot;
}
