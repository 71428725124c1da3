#include "platform/listening_socket.h"

#include <cstddef>
#include <cstdlib>

// Of <launch.h>, which not every SDK has. Returns an errno value; the caller frees the list.
extern "C" int launch_activate_socket(const char* name, int** descriptors, std::size_t* count);

namespace vorlatch::platform {

std::vector<int> activatedSockets() {
  int* descriptors = nullptr;
  std::size_t count = 0;
  // The name of the list in the job's Sockets.
  if (launch_activate_socket("Listeners", &descriptors, &count) != 0) return {};
  std::vector<int> sockets(descriptors, descriptors + count);
  std::free(descriptors);
  return sockets;
}

bool startsServersOnDemand() {
  return true;
}

}  // namespace vorlatch::platform
