// The installed vorlatchweb: started by vorlatchctl, by a user, and with a socket of the service
// manager.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "tests/blackbox/installation.h"
#include "tests/support/files.h"
#include "tests/web/raw_client.h"
#include "web/loopback.h"

namespace vorlatch {
namespace {

using nlohmann::json;

constexpr int kActivatedDescriptor = 3;

std::string serverIn(const Installation& installation) {
  return installation.path("usr/libexec/vorlatchweb");
}

// vorlatchweb with a listening socket, as the service manager starts it.
class ActivatedServer {
 public:
  ActivatedServer(const std::string& program, int listening) : pid_(::fork()) {
    if (pid_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(listening, kActivatedDescriptor);
    ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    ::setenv("LISTEN_FDS", "1", 1);
    ::execl(program.c_str(), program.c_str(), nullptr);
    ::_exit(127);
  }
  ActivatedServer(const ActivatedServer&) = delete;
  ActivatedServer& operator=(const ActivatedServer&) = delete;
  ~ActivatedServer() {
    if (pid_ < 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  int exitStatus() {
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_;
};

std::string requestTo(const std::string& path, const std::string& cookie, const std::string& body) {
  return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nCookie: vorlatch=" + cookie +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(InstalledWeb, ServesOnASocketThatItIsGiven) {
  const Installation installation;
  const Descriptor listening(web::listenOnThisMachine(0));
  const std::uint16_t port = web::loopbackPort(listening.get()).value();
  const ActivatedServer server(serverIn(installation), listening.get());
  tests::RawClient client(port);
  client.send(requestTo("/api/command", "", R"({"words": ["status"]})"));
  EXPECT_EQ(tests::statusOf(client.readAnswer()), "401 Unauthorized");
  const std::string file =
      tests::readAll(installation.preferencesDirectory() + "/com.zel.vorlatch.web.key");
  const std::string key = file.substr(0, 32);
  client.send(requestTo("/api/login", "", R"({"key": ")" + key + "\"}"));
  EXPECT_EQ(tests::statusOf(client.readAnswer()), "200 OK");
  client.send(requestTo("/api/command", key, R"({"words": ["set", "org.none", "NiceValue=5"]})"));
  EXPECT_EQ(json::parse(tests::bodyOf(client.readAnswer()))["status"], 0);
  client.send(requestTo("/api/command", key, R"({"words": ["status"], "lang": "en"})"));
  const json answer = json::parse(tests::bodyOf(client.readAnswer()));
  const Output status =
      installation.control({.arguments = {"status", "--json"}, .gives_output = true});
  EXPECT_EQ(answer["output"], json::parse(status.out));
  EXPECT_EQ(answer["output"]["targets"][0]["target"], "org.none");
}

TEST(InstalledWeb, RefusesASocketThatOthersCanReach) {
  const Installation installation;
  const Descriptor listening(::socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(::listen(listening.get(), 1), 0);  // on every address
  EXPECT_EQ(ActivatedServer(serverIn(installation), listening.get()).exitStatus(), 2);
}

TEST(InstalledWeb, IsStartedByTheCommand) {
  const Installation installation;
  const Descriptor taken(web::listenOnThisMachine(0));
  const std::string port = std::to_string(web::loopbackPort(taken.get()).value());
  const Output output = installation.control(
      {.arguments = {"web", "--port", port, "--lang", "en"}, .gives_output = true});
  const std::string file =
      tests::readAll(installation.preferencesDirectory() + "/com.zel.vorlatch.web.key");
  EXPECT_EQ(output, (Output{3,
                            "http://127.0.0.1:" + port + "/#key=" + file +
                                "open it in a browser on this device; whoever has the address may "
                                "do there what vorlatchctl does\nthe page is there until Ctrl-C\n",
                            "vorlatchweb: port " + port + ": Address already in use\n"}));
}

TEST(InstalledWeb, RefusesOtherArguments) {
  const Installation installation;
  for (const Lines& arguments :
       {Lines{"x"}, Lines{"65536"}, Lines{"-1"}, Lines{""}, Lines{"1", "2"}}) {
    ChildProcess server(serverIn(installation), {.arguments = arguments, .gives_output = true});
    EXPECT_EQ(server.output(), (Output{2, "", "vorlatchweb: it takes a port, from 0 to 65535\n"}));
  }
}

}  // namespace
}  // namespace vorlatch
