// The files of the page, which are compiled into the server.
#pragma once

#include <span>
#include <string_view>

namespace vorlatch::web {

struct PageFile {
  std::string_view name;  // without a folder
  const char* type;       // for Content-Type
  const char* tag;        // for ETag, with its quotation marks; changes with the contents
  std::string_view gzip;  // the contents, compressed
};

// Returns the files of web/page, as cmake/page_files.cmake wrote them.
std::span<const PageFile> pageFiles();

}  // namespace vorlatch::web
