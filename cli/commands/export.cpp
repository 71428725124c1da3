// vorlatchctl export
#include <algorithm>

#include "cli/command.h"
#include "control/preferences_edit.h"
#include "control/transfer.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::optional<std::string> file;  // empty or "-": the standard output
  bool replaces = false;
};

// Prints XML for people. Leaves its indentation, and makes other control characters visible.
void printLines(const Session& session, std::string_view xml) {
  while (!xml.empty()) {
    const std::size_t indentation = std::min(xml.find_first_not_of('\t'), xml.size());
    session.terminal.out(xml.substr(0, indentation));
    xml.remove_prefix(indentation);
    const std::size_t end = std::min(xml.find('\n'), xml.size());
    printLine(session, xml.substr(0, end));
    xml.remove_prefix(std::min(end + 1, xml.size()));
  }
}

ExitStatus exportTo(const Session& session, const Options& options) {
  const std::string xml = control::preferencesAsXml();
  if (options.file && *options.file != "-") {
    control::writeUserFile(*options.file, xml, options.replaces);
    if (session.wants_json) {
      print(session, {{"file", *options.file}});
    } else {
      printLine(session, tr("written to %s", *options.file));
    }
  } else if (session.wants_json) {
    print(session, {{"preferences", jsonOf(*control::dictionaryIn(xml))}});
  } else if (session.terminal.is_terminal) {
    printLines(session, xml);
  } else {
    session.terminal.out(xml);
  }
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "FILE",
                .description = english("the file to write; without one, they are printed"),
                .value = &options->file},
               {.name = "--force",
                .description = english("replace the file if it exists"),
                .value = &options->replaces}};
  return [options](const Session& session) { return exportTo(session, *options); };
}

const RegisteredCommand kExport({
    .name = "export",
    .description = english("the preferences as an XML property list"),
    .examples = "  vorlatchctl export > preferences.plist\n  vorlatchctl export backup.plist",
    .place = 94,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
