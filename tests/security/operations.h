// Operations of the daemon and vorlatchctl on files in a directory that anybody may change.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/story.h"

namespace vorlatch::tests {

// One operation on one file. Both functions run in the story's root.
struct Operation {
  std::string name;
  std::string file;                     // the file that it works on
  bool writes_temporary;                // whether it creates a temporary file beside it
  std::function<void(Story&)> prepare;  // creates the files that it needs
  std::function<void()> run;
};

const std::vector<Operation>& operations();

// Prints the name for gtest.
std::ostream& operator<<(std::ostream& out, const Operation& operation);

}  // namespace vorlatch::tests
