#include "tests/blackbox/target.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "platform/property_list.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;

std::string installIdler(const std::string& directory, const std::string& name) {
  fs::create_directories(directory);
  std::string executable = directory + "/" + name;
  fs::copy_file(VORLATCH_IDLER, executable);
  return executable;
}

}  // namespace

plist::Dictionary preferencesWith(const plist::Dictionary& targets) {
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

std::string ownName(const std::string& suffix, std::size_t length) {
  std::string name = "vl" + std::to_string(getpid()) + suffix;
  name.resize(std::max(length, name.size()), 'x');
  return name;
}

Program programNamed(const Installation& installation, const std::string& name) {
  return {.executable = installIdler(installation.path("programs"), name), .key = name};
}

Program appIdentified(const Installation& installation, const std::string& identifier) {
  const std::string bundle = installation.path("Applications/" + identifier + ".app");
  Program app{.executable = installIdler(bundle, ownName("app")), .key = identifier};
  const plist::Dictionary info{{"CFBundleIdentifier", identifier}, {"CFBundleName", "An app"}};
  tests::writeAll(bundle + "/Info.plist", platform::writeXmlPropertyList(info));
  return app;
}

Target::Target(const Program& program) : process_(program.executable) {}

}  // namespace vorlatch
