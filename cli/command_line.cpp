#include "cli/command_line.h"

#include <new>

#include "cli/arguments.h"

namespace vorlatch::cli {

int runCommandLine(const std::vector<std::string>& arguments, Terminal& terminal) {
  Session session{.terminal = terminal};
  try {
    ArgumentParser parser;
    for (const std::string& word : arguments) parser.take(word);
    const Run run = parser.finish();
    session.wants_json = parser.wantsJson();
    return run(session);
  } catch (const control::Failure& failure) {
    printError(session, failure.message);
    return failure.status;
  } catch (const std::bad_alloc&) {
    printError(session, "there is not enough memory");
    return kCouldNot;
  }
}

}  // namespace vorlatch::cli
