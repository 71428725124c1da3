# Compiles the files of web/page, and Debian's Chart.js, into vorlatch_web, compressed as browsers take
# them.
find_program(GZIP gzip REQUIRED)
find_file(CHART_JS chart.min.js PATHS /usr/share/javascript/chart.js NO_DEFAULT_PATH REQUIRED)
set(page ${PROJECT_BINARY_DIR}/page)
file(MAKE_DIRECTORY ${page})
set(names "")
set(compressed "")

# Adds the file `source` of this machine as the page's file `name`.
function(vorlatch_page_file name source)
  list(LENGTH names index)
  add_custom_command(OUTPUT ${page}/${name}.gz ${page}/${name}.cpp
    COMMAND ${GZIP} --best --no-name --stdout ${source} > ${page}/${name}.gz
    COMMAND ${CMAKE_COMMAND} -DINPUT=${page}/${name}.gz -DOUTPUT=${page}/${name}.cpp
      -DNAMESPACE=vorlatch::web -DSYMBOL=kPageFile${index} -P ${PROJECT_SOURCE_DIR}/cmake/embed.cmake
    DEPENDS ${source} ${PROJECT_SOURCE_DIR}/cmake/embed.cmake VERBATIM)
  target_sources(vorlatch_web PRIVATE ${page}/${name}.cpp)
  set(names ${names} ${name} PARENT_SCOPE)
  set(compressed ${compressed} ${page}/${name}.gz PARENT_SCOPE)
endfunction()

file(GLOB files CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/web/page ${PROJECT_SOURCE_DIR}/web/page/*)
foreach(file IN LISTS files)
  vorlatch_page_file(${file} ${PROJECT_SOURCE_DIR}/web/page/${file})
endforeach()
vorlatch_page_file(chart.js ${CHART_JS})
add_custom_command(OUTPUT ${page}/page_files.cpp
  COMMAND ${CMAKE_COMMAND} -DFOLDER=${page} -DOUTPUT=${page}/page_files.cpp "-DNAMES=${names}"
    -P ${PROJECT_SOURCE_DIR}/cmake/page_files.cmake
  DEPENDS ${compressed} cmake/page_files.cmake VERBATIM)
target_sources(vorlatch_web PRIVATE ${page}/page_files.cpp)
