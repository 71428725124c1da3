// Exit statuses, and the exception that ends a command with one of them.
#pragma once

#include <string>

namespace vorlatch::control {

enum ExitStatus : int { kDone = 0, kFinding = 1, kWrongUsage = 2, kCouldNot = 3 };

// Thrown by a command that cannot continue. The message is for people and says what to do.
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

// Describes an errno value and, where known, says what to do about it.
std::string reasonOf(int error);

}  // namespace vorlatch::control
