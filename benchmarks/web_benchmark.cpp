// The installed vorlatchweb with 100 targets among 200 processes: time to send the whole page, to
// answer, its memory, and its cost while a page is open and while none is. The argument is the time
// in seconds of the last two (default 60).
#include <poll.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/descriptor.h"
#include "benchmarks/crowd.h"
#include "benchmarks/held_crowd.h"
#include "benchmarks/installation.h"
#include "benchmarks/running_program.h"
#include "tests/web/raw_client.h"
#include "web/loopback.h"
#include "web/page_files.h"

namespace vorlatch {
namespace {

using benchmarks::Installation;
using benchmarks::RunningProgram;
using Clock = std::chrono::steady_clock;
using tests::RawClient;

constexpr std::size_t kTargets = 100;
constexpr std::int64_t kProcesses = 200;
constexpr int kRequests = 1000;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A port that was free a moment ago.
std::uint16_t freePort() {
  const Descriptor socket(web::listenOnThisMachine(0));
  return web::loopbackPort(socket.get()).value_or(0);
}

// Waits until the server has made its key, which it does when it listens.
std::string awaitKey() {
  while (true) {
    const auto key = readFile(Installation::preferences("com.zel.vorlatch.web.key"), 64);
    if (key && key->ends_with('\n')) return key->substr(0, key->size() - 1);
    poll(nullptr, 0, 1);
  }
}

std::string getFile(std::string_view name) {
  return "GET /" + std::string(name) + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

struct Site {
  std::uint16_t port;
  std::string key;

  [[nodiscard]] std::string status() const {
    const std::string body = R"({"words": ["status"], "lang": "en"})";
    return "POST /api/command HTTP/1.1\r\nHost: localhost\r\nCookie: vorlatch=" + key +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }
  [[nodiscard]] std::string events() const {
    return "GET /api/events HTTP/1.1\r\nHost: localhost\r\nCookie: vorlatch=" + key + "\r\n\r\n";
  }
};

// A browser asks for several files at once; here they come one after the other.
void measurePage(const Site& site) {
  const auto begin = Clock::now();
  RawClient client(site.port);
  std::size_t bytes = 0;
  for (const web::PageFile& file : web::pageFiles()) {
    client.send(getFile(file.name));
    bytes += client.readAnswer().size();
  }
  client.send(site.status());
  bytes += client.readAnswer().size();
  std::printf("all files of the page and the first status: %.1f ms, %zu kB\n",
              secondsSince(begin) * 1000, bytes / 1024);
}

void measureRequests(const Site& site, const RunningProgram& server) {
  const long before_kb = server.memoryKb("Private_Dirty:");
  RawClient client(site.port);
  const double cpu_before_ms = server.cpuMs();
  for (int i = 0; i < kRequests; ++i) {
    client.send(site.status());
    if (!client.readAnswer().starts_with("HTTP/1.1 200")) std::printf("a request was refused\n");
    // The server admits 100 requests a second on average.
    poll(nullptr, 0, 10);
  }
  const double each_ms = (server.cpuMs() - cpu_before_ms) / kRequests;
  std::printf("status of %zu targets: %.2f ms of CPU time each, so %.0f a second\n", kTargets,
              each_ms, 1000 / each_ms);
  std::printf("private dirty memory before and after %d requests: %ld and %ld kB\n", kRequests,
              before_kb, server.memoryKb("Private_Dirty:"));
}

void measureTime(const char* what, const RunningProgram& server, int seconds) {
  const long switches_before = server.contextSwitches();
  const double cpu_before_ms = server.cpuMs();
  poll(nullptr, 0, seconds * 1000);
  const double cpu_ms = server.cpuMs() - cpu_before_ms;
  std::printf("%s for %d s: %ld context switches, %.3f ms of CPU time (%.2f %% of a core)\n", what,
              seconds, server.contextSwitches() - switches_before, cpu_ms, cpu_ms / seconds / 10);
}

void measureAll(int seconds) {
  const Installation installation(VORLATCH_WEB, "/usr/libexec/vorlatchweb");
  const benchmarks::Crowd crowd(kProcesses, benchmarks::kTargetPrefix);
  benchmarks::writeFilesOf(crowd, kTargets);
  const std::uint16_t port = freePort();
  const RunningProgram server(installation, {std::to_string(port)});
  const Site site{.port = port, .key = awaitKey()};
  measurePage(site);
  measureRequests(site, server);
  {
    RawClient page(port);
    page.send(site.events());
    page.readUntil("event: status");
    measureTime("an open page", server, seconds);
  }
  poll(nullptr, 0, 1000);
  measureTime("no page", server, seconds);
}

}  // namespace
}  // namespace vorlatch

int main(int argc, char** argv) {
  constexpr int kSeconds = 60;
  vorlatch::measureAll(argc > 1 ? std::atoi(argv[1]) : kSeconds);
}
