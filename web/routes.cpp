#include "web/routes.h"

#include "cli/session.h"
#include "control/access_key.h"
#include "control/app_icon.h"
#include "web/commands.h"
#include "web/gate.h"

namespace vorlatch::web {
namespace {

using control::Json;
using control::Language;
using control::tr;

constexpr const char* kYear = "31536000";

Language languageNamed(std::string_view name) {
  return name.starts_with("zh") ? Language::Chinese : Language::English;
}

Answer refusal(Entry entry, const Door& door) {
  switch (entry) {
    case Entry::WrongHost:
      return errorAnswer(403, "wrong-host", tr("the page is at 127.0.0.1 or localhost alone"));
    case Entry::WrongOrigin:
      return errorAnswer(403, "wrong-origin", tr("another page sent this request"));
    case Entry::WrongMethod: {
      Answer answer = errorAnswer(405, "wrong-method", tr("this address takes %s", door.method));
      answer.headers.emplace_back("Allow", door.method);
      return answer;
    }
    default:
      return errorAnswer(401, "no-key",
                         tr("the key is missing or was replaced; vorlatchctl web prints it"));
  }
}

Answer fileAnswer(const PageFile& file, const Request& request) {
  Answer answer{
      .type = file.type, .file = file.gzip, .headers = {{"ETag", file.tag}}, .caching = "no-cache"};
  if (request.known_tag == file.tag) {
    answer.status = 304;
    answer.file = {};
  } else {
    answer.headers.emplace_back("Content-Encoding", "gzip");
  }
  return answer;
}

std::optional<Json> objectIn(const Request& request) {
  Json json = Json::parse(request.body, nullptr, false);
  return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
}

// Returns std::nullopt if there is no text at the key.
std::optional<std::string> textIn(const Json& object, const char* key) {
  const auto value = object.find(key);
  if (value == object.end() || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

// The page then stays below a folder with a random name. The browser sends the cookie only there,
// so that a server of another program, at another port of this machine, never gets it.
Answer login(const Request& request) {
  const std::optional<Json> body = objectIn(request);
  const std::optional<std::string> key = body ? textIn(*body, "key") : std::nullopt;
  if (!key) return badRequestAnswer(400);
  const std::optional<std::string> wanted = control::storedAccessKey();
  if (!wanted || !control::isSameKey(*key, *wanted)) {
    return errorAnswer(403, "wrong-key", tr("this is not the key; vorlatchctl web prints it"));
  }
  const std::string folder = "/" + control::newSecret() + "/";
  return {.body = cli::textOf(Json{{"folder", folder}}, -1) + "\n",
          .headers = {{"Set-Cookie", std::string(kCookieName) + "=" + *wanted +
                                         "; HttpOnly; SameSite=Strict; Path=" + folder +
                                         "; Max-Age=" + kYear}}};
}

// Returns the words of the command line; std::nullopt if they could be no program's arguments.
std::optional<Words> wordsIn(const Json& body) {
  const auto list = body.find("words");
  if (list == body.end() || !list->is_array()) return std::nullopt;
  Words words;
  for (const Json& word : *list) {
    if (!word.is_string()) return std::nullopt;
    words.push_back(word.get<std::string>());
    if (words.back().find('\0') != std::string::npos) return std::nullopt;
  }
  return words;
}

Answer command(const Request& request) {
  const std::optional<Json> body = objectIn(request);
  const std::optional<Words> words = body ? wordsIn(*body) : std::nullopt;
  if (!words) return badRequestAnswer(400);
  if (const auto name = textIn(*body, "lang")) control::setLanguage(languageNamed(*name));
  if (!isAllowed(*words)) {
    return errorAnswer(403, "not-allowed", tr("the page may not run this command"));
  }
  const CommandResult result = runCommand(*words, control::language());
  return {.body = "{\"status\":" + std::to_string(result.status) + ",\"output\":" + result.output +
                  ",\"error\":" + result.error + "}\n"};
}

Answer events(const Request& request) {
  constexpr std::string_view kLanguage = "lang=";
  if (request.query.starts_with(kLanguage)) {
    control::setLanguage(languageNamed(request.query.substr(kLanguage.size())));
  }
  return {.type = "text/event-stream", .listens = control::language()};
}

// Browsers complain of an error, though an app without a readable icon is no fault.
Answer icon(const Request& request) {
  constexpr std::string_view kApp = "app=";
  constexpr const char* kOneDay = "private, max-age=86400";
  std::optional<std::string> png;
  if (request.query.starts_with(kApp)) png = control::iconOfApp(request.query.substr(kApp.size()));
  if (!png) return {.status = 204, .caching = kOneDay};
  return {.type = "image/png", .body = std::move(*png), .caching = kOneDay};
}

// Returns the path below the folder that a login has named, of which only the browser keeps count.
std::string_view withoutFolder(std::string_view path) {
  constexpr std::size_t kFolderEnd = 1 + control::kSecretDigits;
  const bool has_folder = path.size() > kFolderEnd && path[kFolderEnd] == '/' &&
                          control::isSecret(path.substr(1, control::kSecretDigits));
  return has_folder ? path.substr(kFolderEnd) : path;
}

struct Route {
  std::string_view path;
  Door door;
  Answer (*answer)(const Request&);
};

constexpr Route kRoutes[] = {
    {"/api/login", {.method = "POST", .needs_key = false}, login},
    {"/api/command", {.method = "POST", .needs_key = true}, command},
    {"/api/icon", {.method = "GET", .needs_key = true}, icon},
    {"/api/events", {.method = "GET", .needs_key = true}, events},
};

constexpr Door kPageDoor{.method = "GET", .needs_key = false};
constexpr std::string_view kFirstFile = "index.html";

}  // namespace

void chooseLanguage(const Request& request) {
  control::setLanguage(languageNamed(request.accepted_languages));
}

Answer Routes::answer(const Request& request) const {
  chooseLanguage(request);
  const std::string_view path = withoutFolder(request.path);
  for (const Route& route : kRoutes) {
    if (route.path != path) continue;
    const Entry entry = judge(request, route.door, control::storedAccessKey());
    return entry == Entry::Granted ? route.answer(request) : refusal(entry, route.door);
  }
  const Entry entry = judge(request, kPageDoor, std::nullopt);
  if (entry == Entry::WrongHost || entry == Entry::WrongOrigin) return refusal(entry, kPageDoor);
  for (const PageFile& file : files_) {
    const bool is_first = path == "/" && file.name == kFirstFile;
    if (!is_first && path != "/" + std::string(file.name)) continue;
    return entry == Entry::Granted ? fileAnswer(file, request) : refusal(entry, kPageDoor);
  }
  return errorAnswer(404, "not-found", tr("there is nothing at this address"));
}

}  // namespace vorlatch::web
