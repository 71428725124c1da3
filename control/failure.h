// How a command ends other than well.
#pragma once

#include <string>

namespace vorlatch::control {

enum ExitStatus : int { kDone = 0, kFinding = 1, kWrongUsage = 2, kCouldNot = 3 };

// Thrown by a command that cannot go on; what it says is for people and names what to do.
struct Failure {
  ExitStatus status;
  std::string message;
};

[[noreturn]] inline void failWrongUsage(std::string message) {
  throw Failure{kWrongUsage, std::move(message)};
}
[[noreturn]] inline void failCouldNot(std::string message) {
  throw Failure{kCouldNot, std::move(message)};
}

// What an errno means, and what to do about it where that is known.
std::string reasonOf(int error);

}  // namespace vorlatch::control
