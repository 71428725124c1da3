# Random stories, each in a process of its own, checked against an oracle: undisturbed, and while calls
# fail. The linker replaces what can fail outside the simulated device: file calls by name, and platform
# functions by their mangled names.
if(NOT VORLATCH_SANITIZE STREQUAL "thread")
  add_executable(random_stories
    faults/fault_injector.cpp
    faults/outcomes.cpp
    faults/wrapped_seam.cpp
    random/calm.cpp
    random/edits.cpp
    random/events.cpp
    random/plan.cpp
    random/play.cpp
    random/stage.cpp
    random/stories_test.cpp)
  target_link_libraries(random_stories PRIVATE vorlatch_oracle vorlatch_story)
  vorlatch_intercept_file_calls(random_stories)
  set(failing_seam
    _ZN8vorlatch8platform17parsePropertyListESt17basic_string_viewIcSt11char_traitsIcEEPKc
    _ZN8vorlatch8platform19observeNotificationEPKcSt8functionIFvvEE
    _ZN8vorlatch8platform20writeXmlPropertyListB5cxx11ERKNS_5plist5ValueE
    _ZnamRKSt9nothrow_t)
  foreach(function ${failing_seam})
    target_link_options(random_stories PRIVATE "-Wl,--wrap=${function}")
  endforeach()
  set(stories 500)
  if(VORLATCH_SANITIZE)
    set(stories 300)
  endif()
  foreach(case RandomStories.GoAsTheRulesSay FaultPairs.AreSurvived Shard/Faults.AreSurvivedAlone/0
      Shard/Faults.AreSurvivedAlone/1 Shard/Faults.AreSurvivedAlone/2)
    add_test(NAME "${prefix}.${case}"
      COMMAND random_stories --gtest_filter=${case} --stories ${stories})
    set_tests_properties("${prefix}.${case}" PROPERTIES TIMEOUT 900)
    set(stories 300)
  endforeach()
endif()
if(NOT VORLATCH_SANITIZE)
  add_test(NAME "${prefix}.Faults.EveryCallIsMadeToFail"
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/faults/wrapped_calls_test.sh" "${CMAKE_NM}"
      "$<TARGET_FILE:vorlatch_core>" "$<TARGET_FILE:vorlatch_base>" -- ${failing_seam} ${vorlatch_file_calls})
endif()
