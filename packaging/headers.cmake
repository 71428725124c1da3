# Puts the header-only libraries into a separate folder, because this machine's own headers are installed
# in the same folder and must not be included. Boost is large, so the folder has a link to it.
set(headers ${PROJECT_BINARY_DIR}/headers)
find_path(found nlohmann/json.hpp PATHS /usr/include NO_DEFAULT_PATH NO_CACHE REQUIRED)
file(COPY ${found}/nlohmann DESTINATION ${headers})
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
target_include_directories(nlohmann_json::nlohmann_json INTERFACE ${headers})
find_path(found_boost boost/beast/version.hpp PATHS /usr/include NO_DEFAULT_PATH NO_CACHE REQUIRED)
file(CREATE_LINK ${found_boost}/boost ${headers}/boost SYMBOLIC)
add_library(Boost::headers INTERFACE IMPORTED)
target_include_directories(Boost::headers INTERFACE ${headers})
