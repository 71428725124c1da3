#include <cxxabi.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>
#include <typeinfo>

#include "cli/command_line.h"
#include "control/failure.h"

namespace {

// The terminate handler: reports a lack of memory even where no exception may pass, as inside the
// JSON library.
[[noreturn]] void endForWantOfMemory() {
  const std::type_info* const thrown = abi::__cxa_current_exception_type();
  if (thrown == nullptr || *thrown != typeid(std::bad_alloc)) std::abort();
  constexpr std::string_view kMessage = "vorlatchctl: there is not enough memory\n";
  const ssize_t written = ::write(STDERR_FILENO, kMessage.data(), kMessage.size());
  static_cast<void>(written);  // a failure cannot be reported
  ::_exit(vorlatch::control::kCouldNot);
}

}  // namespace

int main(int argc, char** argv) {
  namespace cli = vorlatch::cli;
  std::set_terminate(endForWantOfMemory);
  cli::Terminal terminal = cli::processTerminal();
  const int status = cli::runCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc}, terminal);
  // A finding that nobody could read is a failure, too.
  if (cli::outputError() == 0 || status > vorlatch::control::kFinding) return status;
  terminal.err("vorlatchctl: standard output: " + vorlatch::control::reasonOf(cli::outputError()) +
               "\n");
  return vorlatch::control::kCouldNot;
}
