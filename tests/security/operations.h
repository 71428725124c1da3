// What the daemon and vorlatchctl do with files that everybody may exchange.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/story.h"

namespace vorlatch::tests {

// One of them on one file. Both functions run in the story's root.
struct Operation {
  std::string name;
  std::string file;                     // that it works on
  bool writes_temporary;                // beside it
  std::function<void(Story&)> prepare;  // the files as it finds them
  std::function<void()> run;
};

const std::vector<Operation>& operations();

// For the names of tests.
std::ostream& operator<<(std::ostream& out, const Operation& operation);

}  // namespace vorlatch::tests
