# Compiles the files of web/page into vorlatch_web, compressed as browsers take them.
find_program(GZIP gzip REQUIRED)
set(page ${PROJECT_BINARY_DIR}/page)
file(MAKE_DIRECTORY ${page})
file(GLOB names CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/web/page ${PROJECT_SOURCE_DIR}/web/page/*)
set(compressed "")
set(count 0)
foreach(name IN LISTS names)
  set(source ${PROJECT_SOURCE_DIR}/web/page/${name})
  add_custom_command(OUTPUT ${page}/${name}.gz ${page}/${name}.cpp
    COMMAND ${GZIP} --best --no-name --stdout ${source} > ${page}/${name}.gz
    COMMAND ${CMAKE_COMMAND} -DINPUT=${page}/${name}.gz -DOUTPUT=${page}/${name}.cpp
      -DNAMESPACE=vorlatch::web -DSYMBOL=kPageFile${count} -P ${PROJECT_SOURCE_DIR}/cmake/embed.cmake
    DEPENDS ${source} cmake/embed.cmake VERBATIM)
  list(APPEND compressed ${page}/${name}.gz)
  target_sources(vorlatch_web PRIVATE ${page}/${name}.cpp)
  math(EXPR count "${count} + 1")
endforeach()
add_custom_command(OUTPUT ${page}/page_files.cpp
  COMMAND ${CMAKE_COMMAND} -DFOLDER=${page} -DOUTPUT=${page}/page_files.cpp "-DNAMES=${names}"
    -P ${PROJECT_SOURCE_DIR}/cmake/page_files.cmake
  DEPENDS ${compressed} cmake/page_files.cmake VERBATIM)
target_sources(vorlatch_web PRIVATE ${page}/page_files.cpp)
