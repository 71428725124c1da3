# Copies vorlatchctl's two header-only libraries to a separate folder, because this machine's own headers
# are installed in the same folder and must not be included.
set(headers ${PROJECT_BINARY_DIR}/headers)
foreach(header CLI/CLI.hpp nlohmann/json.hpp)
  find_path(found ${header} PATHS /usr/include NO_DEFAULT_PATH NO_CACHE REQUIRED)
  get_filename_component(library ${header} DIRECTORY)
  file(COPY ${found}/${library} DESTINATION ${headers})
  unset(found)
endforeach()
foreach(library CLI11::CLI11 nlohmann_json::nlohmann_json)
  add_library(${library} INTERFACE IMPORTED)
  target_include_directories(${library} INTERFACE ${headers})
endforeach()
