// Sockets of the service manager, as sd_listen_fds(3) describes them.
#include "platform/listening_socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cstdlib>

#include "tests/linux/machine.h"

namespace vorlatch {
namespace {

constexpr int kFirstDescriptor = 3;

void announce(const std::string& pid, const char* count) {
  setenv("LISTEN_PID", pid.c_str(), 1);
  setenv("LISTEN_FDS", count, 1);
}

// Puts two sockets at the numbers that the protocol names.
void placeSockets() {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  dup2(socket, kFirstDescriptor);
  dup2(socket, kFirstDescriptor + 1);
}

TEST(ActivatedSockets, AreThoseThatWereAnnounced) {
  const Child child([] {
    placeSockets();
    announce(std::to_string(getpid()), "2");
    EXPECT_EQ(platform::activatedSockets(), (std::vector<int>{3, 4}));
    EXPECT_EQ(fcntl(kFirstDescriptor, F_GETFD), FD_CLOEXEC);
    announce(std::to_string(getpid()), "1");
    EXPECT_EQ(platform::activatedSockets(), std::vector<int>{3});
  });
}

TEST(ActivatedSockets, AreNoneForAnotherProcess) {
  const Child child([] {
    placeSockets();
    announce(std::to_string(getppid()), "1");
    EXPECT_TRUE(platform::activatedSockets().empty());
    for (const char* count : {"", "x", "-1", "0", "1x", "99999999999"}) {
      announce(std::to_string(getpid()), count);
      EXPECT_TRUE(platform::activatedSockets().empty()) << count;
    }
    unsetenv("LISTEN_FDS");
    EXPECT_TRUE(platform::activatedSockets().empty());
  });
}

TEST(ActivatedSockets, EndWhereNothingIsOpen) {
  const Child child([] {
    placeSockets();
    close(kFirstDescriptor + 1);
    announce(std::to_string(getpid()), "1000000");
    EXPECT_EQ(platform::activatedSockets(), std::vector<int>{3});
  });
}

}  // namespace
}  // namespace vorlatch
