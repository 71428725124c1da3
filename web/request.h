// One HTTP request, reduced to what the server looks at.
#pragma once

#include <string>
#include <vector>

namespace vorlatch::web {

struct Request {
  std::string method = {};
  std::string path = {};   // up to the question mark
  std::string query = {};  // behind the question mark
  // Every value of a header that guards the server, because a second one could contradict the
  // first.
  std::vector<std::string> hosts = {};
  std::vector<std::string> origins = {};
  std::vector<std::string> cookies = {};
  std::vector<std::string> authorizations = {};
  std::string accepted_languages = {};
  std::string known_tag = {};  // If-None-Match
  std::string body = {};
  bool keeps_connection = false;
};

}  // namespace vorlatch::web
