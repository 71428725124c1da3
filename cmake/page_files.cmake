# Writes a C++ source that defines pageFiles() of web/page_files.h: the table of the page's files, whose
# contents cmake/embed.cmake defines.
#   cmake -DFOLDER=FOLDER -DOUTPUT=SOURCE.cpp -DNAMES=NAME;NAME -P page_files.cmake
# For each NAME, FOLDER has NAME.gz, and the constant kPageFileN holds its bytes, N counted from 0.
set(type_of_html "text/html; charset=utf-8")
set(type_of_css "text/css; charset=utf-8")
set(type_of_js "text/javascript; charset=utf-8")
set(type_of_webmanifest "application/manifest+json")
set(type_of_json "application/json")
set(type_of_svg "image/svg+xml")
set(type_of_png "image/png")
set(type_of_ico "image/x-icon")
set(type_of_txt "text/plain; charset=utf-8")
set(count 0)
foreach(name IN LISTS NAMES)
  string(REGEX REPLACE "^.*[.]" "" ending "${name}")
  if(NOT DEFINED type_of_${ending})
    message(FATAL_ERROR "web/page/${name}: a file of an unknown type")
  endif()
  set(symbol kPageFile${count})
  math(EXPR count "${count} + 1")
  file(SIZE ${FOLDER}/${name}.gz size)
  file(SHA256 ${FOLDER}/${name}.gz hash)
  string(SUBSTRING ${hash} 0 16 hash)
  string(APPEND declarations "extern const unsigned char ${symbol}[];\n")
  string(APPEND rows "      {.name = \"${name}\",
       .type = \"${type_of_${ending}}\",
       .tag = \"\\\"${hash}\\\"\",
       .gzip = {reinterpret_cast<const char*>(${symbol}), ${size}}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"web/page_files.h\"

#include <vector>

namespace vorlatch::web {

${declarations}
std::span<const PageFile> pageFiles() {
  static const auto& files = *new std::vector<PageFile>{
${rows}  };
  return files;
}

}  // namespace vorlatch::web
")
