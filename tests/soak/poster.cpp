// Posts the notification as often as its argument says, a thousand times a second, to the daemons
// of the root in which it is installed.
#include <poll.h>

#include <cstdlib>

#include "config/preferences.h"
#include "platform/notifications.h"

int main(int argc, char** argv) {
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  for (int i = 0; i < count; ++i) {
    if (!vorlatch::platform::postNotification(vorlatch::kApplyNotificationName)) return 1;
    poll(nullptr, 0, 1);
  }
  return count > 0 ? 0 : 2;
}
