#include "tests/blackbox/control_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <ostream>

#include <gtest/gtest.h>

#include "tests/blackbox/processes.h"

namespace vorlatch {
namespace {

constexpr int kCouldNotRun = 126;

// Never comes back.
[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments,
                         std::optional<uid_t> user, int out, int err) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  if (!user || (setgid(*user) == 0 && setuid(*user) == 0)) execv(program.c_str(), words.data());
  _exit(kCouldNotRun);
}

// What comes until the other side closes.
std::string readToEnd(int descriptor) {
  std::string all;
  std::array<char, 4096> block{};
  for (ssize_t got = 0; (got = read(descriptor, block.data(), block.size())) > 0;) {
    all.append(block.data(), static_cast<std::size_t>(got));
  }
  return all;
}

bool isNumeric(const std::vector<std::vector<std::string>>& rows, std::size_t column) {
  bool has_digit = false;
  for (std::size_t i = 1; i < rows.size(); ++i) {
    const std::string& text = rows[i][column];
    if (text.find_first_not_of("-0123456789") != std::string::npos) return false;
    has_digit = has_digit || text != "-";
  }
  return has_digit;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const ControlOutput& output) {
  return stream << "status " << output.status << "\nout:\n" << output.out << "err:\n" << output.err;
}

ControlProcess::ControlProcess(const Installation& installation,
                               const std::vector<std::string>& arguments,
                               std::optional<uid_t> user) {
  std::array<int, 2> out{-1, -1};
  std::array<int, 2> err{-1, -1};
  EXPECT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(err.data(), O_CLOEXEC), 0);
  out_.emplace(out[0]);
  err_.emplace(err[0]);
  pid_ = fork();
  if (pid_ == 0) {
    become(installation.path("usr/bin/vorlatchctl"), arguments, user, out[1], err[1]);
  }
  close(out[1]);
  close(err[1]);
}

ControlProcess::~ControlProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

bool ControlProcess::readOut() {
  const auto deadline = Clock::now() + kPatience;
  pollfd readable{.fd = out_->number(), .events = POLLIN, .revents = 0};
  if (poll(&readable, 1, millisecondsUntil(deadline)) <= 0) return false;
  std::array<char, 4096> block{};
  const ssize_t got = read(out_->number(), block.data(), block.size());
  if (got <= 0) return false;
  read_out_.append(block.data(), static_cast<std::size_t>(got));
  return true;
}

bool ControlProcess::waitForOutput(const std::string& text) {
  while (read_out_.find(text) == std::string::npos) {
    if (!readOut()) return false;
  }
  return true;
}

ControlOutput ControlProcess::wait() {
  ControlOutput output;
  while (readOut()) {
  }
  output.out = read_out_;
  output.err = readToEnd(err_->number());
  int ended = 0;
  waitpid(pid_, &ended, 0);
  pid_ = -1;
  if (WIFEXITED(ended)) output.status = WEXITSTATUS(ended);
  return output;
}

ControlOutput control(const Installation& installation, const std::vector<std::string>& arguments,
                      std::optional<uid_t> user) {
  return ControlProcess(installation, arguments, user).wait();
}

std::string rowsOf(const std::vector<std::vector<std::string>>& rows) {
  std::string all;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      std::size_t width = 0;
      for (const auto& other : rows) width = std::max(width, other[i].size());
      const std::string padding(width - row[i].size(), ' ');
      line += isNumeric(rows, i) ? padding + row[i] : row[i] + padding;
      line += "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    all += line + "\n";
  }
  return all;
}

}  // namespace vorlatch
