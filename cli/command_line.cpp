#include "cli/command_line.h"

#include <new>
#include <utility>

#include "cli/arguments.h"

namespace vorlatch::cli {

int runCommandLine(std::vector<std::string> arguments, Terminal& terminal) {
  Session session{.terminal = terminal};
  try {
    const Request request = parseArguments(std::move(arguments));
    session.wants_json = request.wants_json;
    return request.run(session);
  } catch (const control::Failure& failure) {
    printError(session, failure.message);
    return failure.status;
  } catch (const std::bad_alloc&) {
    printError(session, "there is not enough memory");
    return kCouldNot;
  }
}

}  // namespace vorlatch::cli
