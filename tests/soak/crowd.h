// The processes of the chaos: two hundred, of ten names and ten bundles, that start and exit.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/blackbox/installation.h"
#include "tests/blackbox/processes.h"
#include "tests/blackbox/target.h"
#include "tests/support/dice.h"

namespace vorlatch {

class Crowd {
 public:
  // Installs the programs and starts all of them.
  Crowd(const Installation& installation, tests::Dice& dice);

  // The names and bundle identifiers.
  [[nodiscard]] std::vector<std::string> keys() const;

  // Starts a process or ends one, so that there are about as many as in the beginning.
  void stir();
  // Ends all processes of some target.
  void endOneTarget();
  // As many as in the beginning.
  void fillUp();

  // The process that the key means, as the machine lists processes, the youngest first: to a watch
  // timer the first of them, to a pass the first of a name and the last of a bundle. 0: none runs.
  [[nodiscard]] pid_t meant(const std::string& key, bool has_timer) const;
  // Whether such a process of the key ran then or later.
  [[nodiscard]] bool ranSince(Clock::time_point then, const std::string& key, pid_t pid) const;

  [[nodiscard]] int starts() const { return starts_; }
  [[nodiscard]] int exits() const { return exits_; }

 private:
  struct Kind {
    Program program;
    bool is_app;
    std::map<pid_t, std::unique_ptr<ChildProcess>> running;
    std::map<pid_t, Clock::time_point> ended;
  };

  void start(Kind& kind);
  void end(Kind& kind, pid_t pid);
  [[nodiscard]] int size() const { return starts_ - exits_; }

  tests::Dice& dice_;
  std::vector<Kind> kinds_;
  int starts_ = 0;
  int exits_ = 0;
};

}  // namespace vorlatch
