#include "tests/web/server_process.h"

#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

#include "web/loopback.h"

namespace vorlatch::tests {

ServerProcess::ServerProcess(const web::Limits& limits) {
  const int listening = web::listenOnThisMachine(0);
  port_ = web::loopbackPort(listening).value();
  pid_ = ::fork();
  if (pid_ == 0) {
    const web::Routes routes(kPage);
    web::Server({listening}, routes, limits).run();
    std::_Exit(0);
  }
  ::close(listening);
}

ServerProcess::~ServerProcess() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGTERM);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM)
      << "the server ended by itself: " << status;
}

web::Limits ServerProcess::patient() {
  web::Limits limits;
  limits.requests_per_second = 1e9;
  limits.request_burst = 1e9;
  return limits;
}

std::string ServerProcess::answerTo(std::string_view bytes) const {
  RawClient client = connect();
  client.send(bytes);
  client.finish();
  return client.readAll();
}

int ServerProcess::awaitEnd() {
  int status = 0;
  ::waitpid(std::exchange(pid_, -1), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace vorlatch::tests
