// The installed vorlatchctl as another program runs it.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "tests/blackbox/installation.h"

namespace vorlatch {

struct ControlOutput {
  int status = -1;
  std::string out;
  std::string err;
  friend bool operator==(const ControlOutput&, const ControlOutput&) = default;
};

std::ostream& operator<<(std::ostream& stream, const ControlOutput& output);

// Killed and reaped with the object.
class ControlProcess {
 public:
  ControlProcess(const Installation& installation, const std::vector<std::string>& arguments,
                 std::optional<uid_t> user = std::nullopt);
  ControlProcess(const ControlProcess&) = delete;
  ControlProcess& operator=(const ControlProcess&) = delete;
  ~ControlProcess();

  [[nodiscard]] pid_t pid() const { return pid_; }
  // Reads on until the output so far holds the text; false when it ends without.
  bool waitForOutput(const std::string& text);
  // Everything, once it has ended; status -1 when a signal ended it.
  ControlOutput wait();

 private:
  bool readOut();

  pid_t pid_ = -1;
  std::optional<Descriptor> out_;
  std::optional<Descriptor> err_;
  std::string read_out_;
};

// Runs it to its end.
ControlOutput control(const Installation& installation, const std::vector<std::string>& arguments,
                      std::optional<uid_t> user = std::nullopt);

// Rows as vorlatchctl prints them into a pipe: columns of ASCII text, those of numbers to the
// right.
std::string rowsOf(const std::vector<std::vector<std::string>>& rows);

}  // namespace vorlatch
