#include "cli/session.h"

#include "base/display_text.h"

namespace vorlatch::cli {
namespace {

struct MakeJson {
  Json operator()(bool value) const { return value; }
  Json operator()(std::int64_t value) const { return value; }
  Json operator()(std::uint64_t value) const { return value; }
  Json operator()(double value) const { return value; }
  Json operator()(const std::string& value) const { return value; }
  Json operator()(const plist::Date& value) const { return {{"date", value.seconds_since_2001}}; }
  Json operator()(const plist::Data& value) const {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hexadecimal;
    for (const char byte : value.bytes) {
      hexadecimal += kDigits[static_cast<unsigned char>(byte) >> 4U];
      hexadecimal += kDigits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return {{"data", hexadecimal}};
  }
  Json operator()(const plist::Array& value) const {
    Json list = Json::array();
    for (const plist::Value& item : value) list.push_back(jsonOf(item));
    return list;
  }
  Json operator()(const plist::Dictionary& value) const {
    Json object = Json::object();
    for (const auto& [key, item] : value) object[key] = jsonOf(item);
    return object;
  }
};

Json versioned(const Json& json) {
  Json whole{{"schema", kJsonVersion}};
  whole.update(json);
  return whole;
}

// Returns the word for an exit status in JSON.
const char* codeOf(ExitStatus status) {
  return status == kWrongUsage ? "wrong-usage" : "failed";
}

}  // namespace

std::string textOf(const Json& json, int indent) {
  return commandsEscaped(json.dump(indent, ' ', false, Json::error_handler_t::replace));
}

std::string whole(const Json& json) {
  return textOf(versioned(json), 2) + "\n";
}

std::string streamed(const Json& json) {
  return textOf(versioned(json), -1) + "\n";
}

void print(const Session& session, const Json& json) {
  session.terminal.out(whole(json));
}

void printLine(const Session& session, std::string_view line) {
  session.terminal.out(visible(line) + "\n");
}

void printError(const Session& session, std::string_view line) {
  session.terminal.err("vorlatchctl: " + visible(line) + "\n");
}

void report(const Session& session, const control::Failure& failure) {
  if (!session.wants_json) return printError(session, failure.message);
  const Json error{{"code", codeOf(failure.status)}, {"message", failure.message}};
  session.terminal.err(streamed({{"error", error}}));
}

Json jsonOf(const plist::Value& value) {
  return std::visit(MakeJson{}, value.storage());
}

}  // namespace vorlatch::cli
