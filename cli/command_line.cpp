#include "cli/command_line.h"

#include <algorithm>
#include <new>

#include "cli/arguments.h"
#include "cli/language.h"

namespace vorlatch::cli {

int runCommandLine(const std::vector<std::string>& arguments, Terminal& terminal) {
  Session session{.terminal = terminal};
  chooseLanguage("", terminal);
  try {
    ArgumentParser parser;
    session.wants_json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    for (const std::string& word : arguments) {
      parser.take(word);
      chooseLanguage(parser.language(), terminal);
    }
    const Run run = parser.finish();
    session.wants_json = parser.wantsJson();
    session.asked_for_english = parser.language().starts_with("en");
    return run(session);
  } catch (const control::Failure& failure) {
    report(session, failure);
    return failure.status;
  } catch (const std::bad_alloc&) {
    printError(session, "there is not enough memory");
    return kCouldNot;
  }
}

}  // namespace vorlatch::cli
