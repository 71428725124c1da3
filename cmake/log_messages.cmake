# Writes a C++ source that defines the tables of control/log_messages.h from the tables of docs/log.md:
#   cmake -DINPUT=docs/log.md -DOUTPUT=SOURCE.cpp -P log_messages.cmake
cmake_policy(SET CMP0054 NEW)

# Returns a cell as a C++ string. In Markdown, a bar within a cell has a backslash.
function(quote result cell)
  string(REPLACE "\\|" "|" cell "${cell}")
  string(REPLACE "\\" "\\\\" cell "${cell}")
  string(REPLACE "\"" "\\\"" cell "${cell}")
  set(${result} "\"${cell}\"" PARENT_SCOPE)
endfunction()

function(expect_same_fields line english)
  string(REGEX MATCHALL "%(d|s|[.]1f)" fields "${line}")
  string(REGEX MATCHALL "%(d|s|[.]1f)" english_fields "${english}")
  if(NOT english STREQUAL "" AND NOT fields STREQUAL english_fields)
    message(FATAL_ERROR "${INPUT}: other fields in English: ${line}")
  endif()
endfunction()

set(code "[a-z][a-z-]*")
set(is_of_target false)
file(READ ${INPUT} page)
# Not as a list of lines, because CMake does not divide a list within square brackets.
while(NOT page STREQUAL "")
  string(FIND "${page}" "\n" length)
  string(SUBSTRING "${page}" 0 ${length} line)
  math(EXPR length "${length} + 1")
  string(SUBSTRING "${page}" ${length} -1 page)
  if(line MATCHES "^## (.*)$")
    if(CMAKE_MATCH_1 STREQUAL "A target")
      set(is_of_target true)
    else()
      set(is_of_target false)
    endif()
  elseif(line MATCHES "^\\| (Line|Category|Word) \\|")
    set(table ${CMAKE_MATCH_1})
  elseif(NOT line MATCHES "^\\| ")
    continue()
  elseif(table STREQUAL "Line" AND
      line MATCHES "^\\| `(\\[([^]`]+)\\] )?([^`]+)` \\| (${code}) \\| (`([^`]+)` )?\\|")
    set(row_code ${CMAKE_MATCH_4})
    quote(category "${CMAKE_MATCH_2}")
    quote(form "${CMAKE_MATCH_3}")
    quote(english "${CMAKE_MATCH_6}")
    expect_same_fields("${CMAKE_MATCH_3}" "${CMAKE_MATCH_6}")
    string(APPEND messages "    {\"${row_code}\", ${category}, ${form}, ${english}, ${is_of_target}},\n")
  elseif(table STREQUAL "Category" AND line MATCHES "^\\| ([^ |]+) \\| ([a-z]+) \\|")
    string(APPEND categories "    {\"${CMAKE_MATCH_1}\", \"${CMAKE_MATCH_2}\"},\n")
  elseif(table STREQUAL "Word" AND line MATCHES "^\\| ([^|]+) \\| (${code}) \\| `([^`]+)` \\|")
    set(row_code ${CMAKE_MATCH_2})
    quote(word "${CMAKE_MATCH_1}")
    quote(english "${CMAKE_MATCH_3}")
    string(APPEND words "    {\"${row_code}\", ${word}, ${english}},\n")
  else()
    message(FATAL_ERROR "${INPUT}: a row of another form: ${line}")
  endif()
endwhile()

file(WRITE ${OUTPUT} "#include \"control/log_messages.h\"

namespace vorlatch::control {
namespace {

constexpr LogMessage kMessages[] = {
${messages}};
constexpr LogCategory kCategories[] = {
${categories}};
constexpr LogWord kWords[] = {
${words}};

}  // namespace

std::span<const LogMessage> logMessages() {
  return kMessages;
}

std::span<const LogCategory> logCategories() {
  return kCategories;
}

std::span<const LogWord> logWords() {
  return kWords;
}

}  // namespace vorlatch::control
")
