// Leads each path to what answers it: a file of the page, the login, a command or the events.
#pragma once

#include <span>

#include "web/answer.h"
#include "web/page_files.h"
#include "web/request.h"

namespace vorlatch::web {

class Routes {
 public:
  // The files must outlive this object.
  explicit Routes(std::span<const PageFile> files) : files_(files) {}

  // Answers a request. Reads the key file for each one, so that a replaced key holds at once.
  [[nodiscard]] Answer answer(const Request& request) const;

 private:
  const std::span<const PageFile> files_;
};

// Sets the language of texts to the first one that the browser accepts.
void chooseLanguage(const Request& request);

}  // namespace vorlatch::web
