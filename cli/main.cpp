#include "cli/control.h"

int main(int argc, char** argv) {
  vorlatch::cli::Terminal terminal = vorlatch::cli::processTerminal();
  return vorlatch::cli::runControl({argv + (argc > 0 ? 1 : 0), argv + argc}, terminal);
}
