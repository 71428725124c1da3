# Copies vorlatchctl's header-only library to a separate folder, because this machine's own headers are
# installed in the same folder and must not be included.
set(headers ${PROJECT_BINARY_DIR}/headers)
find_path(found nlohmann/json.hpp PATHS /usr/include NO_DEFAULT_PATH NO_CACHE REQUIRED)
file(COPY ${found}/nlohmann DESTINATION ${headers})
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
target_include_directories(nlohmann_json::nlohmann_json INTERFACE ${headers})
