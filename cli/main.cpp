// vorlatchctl: tells the running daemon to apply its preferences.
#include <cstdio>
#include <string_view>

#include "config/preferences.h"
#include "platform/notifications.h"

namespace {

constexpr int kWrongUsage = 2;
constexpr int kCouldNot = 3;

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || std::string_view(argv[1]) != "apply") {
    std::fprintf(stderr, "usage: vorlatchctl apply\n");
    return kWrongUsage;
  }
  if (!vorlatch::platform::postNotification(vorlatch::kApplyNotificationName)) {
    std::fprintf(stderr, "vorlatchctl: the notification could not be posted\n");
    return kCouldNot;
  }
  return 0;
}
