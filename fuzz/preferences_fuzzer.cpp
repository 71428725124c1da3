// Whole preferences files through the pass, a watch timer's tick, the patrol and the way back.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tests/support/story.h"

namespace {

using namespace std::chrono_literals;

struct Subject : vorlatch::tests::Story {
  Subject() {
    device.is_tracing = false;
    device.launch({.name = "backboardd"});
    device.launch({.name = "SpringBoard", .nice_value = 5});
    device.launch({.name = "WeChat",
                   .executable_path = installApp(
                       "WeChat.app",
                       vorlatch::plist::Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}})});
    start();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Subject& subject = *new Subject;
  vorlatch::tests::writeAll(subject.preferencesFile(),
                            std::string_view(reinterpret_cast<const char*>(data), size));
  subject.postAndRun();
  subject.run(1800s);
  // Back to nothing held, so that each input is told alone.
  vorlatch::tests::writeAll(subject.preferencesFile(), "");
  subject.postAndRun();
  return 0;
}
