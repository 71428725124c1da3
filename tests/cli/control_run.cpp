#include "tests/cli/control_run.h"

#include <filesystem>
#include <ostream>

namespace vorlatch::tests {

std::ostream& operator<<(std::ostream& stream, const Output& output) {
  return stream << "status " << output.status << "\nout:\n" << output.out << "err:\n" << output.err;
}

ControlStory::ControlStory() {
  std::filesystem::create_directories(rootPath("/usr/libexec"));
  writeAll(rootPath("/usr/libexec/vorlatchd"), "");
}

Output ControlStory::run(const std::vector<std::string>& arguments) {
  return run(
      [&arguments](cli::Terminal& terminal) { return cli::runCommandLine(arguments, terminal); });
}

Output ControlStory::run(const std::function<int(cli::Terminal&)>& work) {
  Output output;
  int waits = 0;
  cli::Terminal terminal;
  terminal.out = [&output](std::string_view text) { output.out += text; };
  terminal.err = [&output](std::string_view text) { output.err += text; };
  terminal.wait = [this, &waits](std::chrono::milliseconds duration) {
    ++waits;
    Story::run(duration);
  };
  terminal.now = [this] { return std::chrono::nanoseconds(device.scheduler.nowNs()); };
  terminal.interrupted = [this, &waits] { return is_interrupted(waits); };
  terminal.is_terminal = columns > 0;
  terminal.columns = [this] { return columns; };
  terminal.rows = [this] { return rows; };
  terminal.has_colour = has_colour;
  output.status = work(terminal);
  return output;
}

std::int32_t ControlStory::launchDaemon() {
  return device.launch(
      {.name = "vorlatchd", .executable_path = rootPath("/usr/libexec/vorlatchd")});
}

}  // namespace vorlatch::tests
