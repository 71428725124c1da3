// vorlatchctl bands
#include "cli/command.h"
#include "cli/table.h"
#include "platform/jetsam_bands.h"

namespace vorlatch::cli {
namespace {

using platform::JetsamBand;
using platform::kJetsamBands;
using platform::kNoSuchBand;

ExitStatus bands(const Session& session) {
  if (session.wants_json) {
    Json list = Json::array();
    for (const JetsamBand& band : kJetsamBands) {
      list.push_back({{"name", band.name},
                      {"to_ios15", band.to_ios15 == kNoSuchBand ? Json() : Json(band.to_ios15)},
                      {"since_ios16", band.since_ios16},
                      {"reserved", band.is_reserved}});
    }
    print(session, {{"bands", list}});
    return kDone;
  }
  Table table({{.heading = english("NAME"), .is_typed = true},
               {.heading = english("TO IOS 15")},
               {.heading = english("SINCE IOS 16")},
               {.heading = "", .rank = 1}});
  for (const JetsamBand& band : kJetsamBands) {
    table.add({band.name, band.to_ios15 == kNoSuchBand ? "-" : std::to_string(band.to_ios15),
               std::to_string(band.since_ios16),
               band.is_reserved ? tr("reserved: the kernel makes it idle") : ""});
  }
  session.terminal.out(table.text(session.terminal));
  return kDone;
}

const RegisteredCommand kBands({
    .name = "bands",
    .description = english("the jetsam bands by name"),
    .examples = "  vorlatchctl bands",
    .place = 170,
    .prepare = [](Arguments&) { return Run(bands); },
});

}  // namespace
}  // namespace vorlatch::cli
