// vorlatchctl web
#include <unistd.h>

#include <array>
#include <cerrno>

#include "cli/command.h"
#include "cli/qr_code.h"
#include "control/access_key.h"
#include "platform/listening_socket.h"
#include "rootprefix/libroot.h"

namespace vorlatch::cli {
namespace {

constexpr int kHighestPort = 65535;

struct Options {
  bool replaces_key = false;
  int port = control::kPagePort;
};

// Replaces this process by the server.
[[noreturn]] void becomeServer(int port) {
  std::array<char, kPathBufferBytes> buffer{};
  const char* const path = libroot_jbrootpath("/usr/libexec/vorlatchweb", buffer.data());
  std::string program = path != nullptr ? path : "";
  std::string port_text = std::to_string(port);
  std::array<char*, 3> arguments{program.data(), port_text.data(), nullptr};
  ::execv(program.c_str(), arguments.data());
  failCouldNot(program + ": " + control::reasonOf(errno));
}

// Prints the address as a picture where somebody may look at it with the phone's camera.
void printCode(const Session& session, const std::string& address) {
  if (session.terminal.columns() < kQrColumns || address.size() > kQrTextBytesMax) return;
  session.terminal.out(qrCode(address));
}

ExitStatus web(const Session& session, const Options& options) {
  const std::string key = options.replaces_key ? control::replaceAccessKey() : control::accessKey();
  const std::string address = "http://127.0.0.1:" + std::to_string(options.port) + "/#key=" + key;
  if (session.wants_json) {
    print(session, {{"address", address}});
    return kDone;
  }
  printCode(session, address);
  printLine(session, address);
  printLine(session, tr("open it in a browser on this device; whoever has the address may do "
                        "there what vorlatchctl does"));
  if (platform::startsServersOnDemand()) return kDone;
  printLine(session, tr("the page is there until Ctrl-C"));
  becomeServer(options.port);
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "--new-key",
                .description = english("replace the key, so that earlier addresses open nothing"),
                .value = &options->replaces_key},
               {.name = "--port",
                .description = english("the port of the page"),
                .value = &options->port,
                .lowest = 1,
                .highest = kHighestPort}};
  return [options](const Session& session) { return web(session, *options); };
}

const RegisteredCommand kWeb({
    .name = "web",
    .description = english("the address of the page that does all this in a browser"),
    .examples = "  vorlatchctl web\n  vorlatchctl web --new-key",
    .place = 185,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
