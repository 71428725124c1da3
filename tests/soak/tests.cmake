# Tests of configurable duration: short here, long in scripts/soak. The thread stress installs its
# daemon in a separate root, for real threads and files.
add_library(vorlatch_soak INTERFACE)
target_link_libraries(vorlatch_soak INTERFACE vorlatch_blackbox vorlatch_test_main)
target_compile_definitions(vorlatch_soak INTERFACE
  VORLATCH_LOG_DOCUMENT="${PROJECT_SOURCE_DIR}/docs/log.md")
add_executable(thread_stress soak/thread_stress.cpp)
target_link_libraries(thread_stress PRIVATE vorlatch_soak)
set(stress_root "${CMAKE_CURRENT_BINARY_DIR}/stress_root")
set_target_properties(thread_stress PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY "${stress_root}/usr/libexec" BUILD_RPATH "$ORIGIN/../lib")
add_custom_command(TARGET thread_stress POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E make_directory "${stress_root}/usr/lib"
  COMMAND ${CMAKE_COMMAND} -E copy "$<TARGET_FILE:root>" "${stress_root}/usr/lib"
  VERBATIM)
# Longest under the thread sanitizer, which also finds races without visible effect.
set(stress_seconds 5)
if(VORLATCH_SANITIZE STREQUAL thread)
  set(stress_seconds 60)
endif()
add_test(NAME "${prefix}.ThreadStress" COMMAND thread_stress --seconds ${stress_seconds})
set_tests_properties("${prefix}.ThreadStress" PROPERTIES TIMEOUT 300 COST ${stress_seconds})

add_executable(real_chaos soak/real_chaos_test.cpp)
target_link_libraries(real_chaos PRIVATE vorlatch_soak)
if(VORLATCH_SANITIZE)
  # Sanitized programs are too slow, and their memory use means nothing. Only the linter needs them.
  set_target_properties(real_chaos PROPERTIES EXCLUDE_FROM_ALL ON)
else()
  add_test(NAME "${prefix}.PrivilegedRealChaos" COMMAND real_chaos --seconds 20)
  set_tests_properties("${prefix}.PrivilegedRealChaos" PROPERTIES
    TIMEOUT 300 COST 20 LABELS privileged)
endif()
