#include "tests/cli/control_run.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/session.h"
#include "platform/property_list.h"

namespace vorlatch::tests {
namespace {

using nlohmann::ordered_json;

plist::Value valueOf(const ordered_json& json) {
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_float()) return json.get<double>();
  const bool is_large = json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX;
  if (is_large) return json.get<std::uint64_t>();
  if (json.is_number()) return json.get<std::int64_t>();
  if (json.is_string()) return json.get<std::string>();
  Array array;
  Dictionary entries;
  for (const auto& [key, value] : json.items()) {
    if (json.is_array()) array.push_back(valueOf(value));
    entries.insert_or_assign(key, valueOf(value));
  }
  return json.is_array() ? plist::Value(array) : plist::Value(entries);
}

}  // namespace

ControlStory::ControlStory() {
  std::filesystem::create_directories(rootPath("/usr/libexec"));
  writeAll(rootPath("/usr/libexec/vorlatchd"), "");
}

std::string ControlStory::answer(const Arguments& arguments) {
  const Output output = run(arguments);
  std::string text = output.out;
  if (!output.err.empty()) text += "err: " + output.err;
  if (output.status != 0) text += "exit " + std::to_string(output.status) + "\n";
  const std::vector<std::pair<std::string, std::string>> names{{preferencesFile(), "{preferences}"},
                                                               {statusFile(), "{status}"},
                                                               {logFile(), "{log}"},
                                                               {rootPath(""), "{root}"}};
  for (const auto& [path, name] : names) {
    for (auto at = text.find(path); at != text.npos; at = text.find(path, at)) {
      text.replace(at, path.size(), name);
    }
  }
  return text;
}

std::string ControlStory::answer(const std::string& line) {
  return answer(wordsOf(line));
}

Output ControlStory::run(const Arguments& arguments) {
  Output output;
  int waits = 0;
  cli::Terminal terminal;
  terminal.out = [&output](std::string_view text) { output.out += text; };
  terminal.err = [&output](std::string_view text) { output.err += text; };
  terminal.wait = [this, &waits](std::chrono::milliseconds duration) {
    ++waits;
    Story::run(duration);
  };
  terminal.now = [this] { return std::chrono::nanoseconds(device.scheduler.nowNs()); };
  terminal.wall_seconds = [this] { return device.wallSeconds(); };
  terminal.interrupted = [this, &waits] { return is_interrupted(waits); };
  terminal.is_terminal = columns > 0;
  terminal.columns = [this] { return columns; };
  terminal.rows = [this] { return rows; };
  terminal.has_colour = has_colour;
  terminal.variable = [this](const char* name) {
    const auto entry = variables.find(name);
    return entry != variables.end() ? entry->second : std::string();
  };
  terminal.wall_seconds = [this] { return device.wallSeconds(); };
  output.status = cli::runCommandLine(arguments, terminal);
  return output;
}

std::string ControlStory::installApp(const std::string& executable,
                                     const std::string& bundle_identifier,
                                     const std::string& english_name,
                                     const std::string& chinese_name) {
  // The system keeps each app in a folder with a random name.
  const std::string folder = rootPath("/containers");
  const std::string bundle = folder + "/of " + executable + "/" + executable + ".app";
  std::filesystem::create_directories(bundle + "/zh-Hans.lproj");
  const auto write = [](const std::string& path, const Dictionary& contents) {
    writeAll(path, platform::writeXmlPropertyList(contents));
  };
  write(bundle + "/Info.plist", {{"CFBundleIdentifier", bundle_identifier},
                                 {"CFBundleExecutable", executable},
                                 {"CFBundleDisplayName", english_name}});
  write(bundle + "/zh-Hans.lproj/InfoPlist.strings", {{"CFBundleDisplayName", chinese_name}});
  device.applications = {rootPath("/none"), folder};
  return bundle + "/" + executable;
}

std::int32_t ControlStory::launchDaemon() {
  return device.launch(
      {.name = "vorlatchd", .executable_path = rootPath("/usr/libexec/vorlatchd")});
}

Dictionary dictionary(const std::string& json) {
  return *valueOf(ordered_json::parse(json)).as<Dictionary>();
}

std::string pretty(const std::string& json) {
  return cli::whole(ordered_json::parse(json));
}

Arguments wordsOf(const std::string& line) {
  Arguments words{""};
  for (const char c : line) {
    if (c == ' ') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

}  // namespace vorlatch::tests
