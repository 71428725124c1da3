# Stories in which calls of the daemon fail. The linker replaces everything that can fail: file
# calls by name, and platform functions by their mangled names.
if(NOT VORLATCH_SANITIZE STREQUAL "thread")
  add_executable(fault_test
    faults/device_story.cpp
    faults/fault_injector.cpp
    faults/main.cpp
    faults/outcomes.cpp
    faults/transcript.cpp
    faults/wrapped_seam.cpp)
  target_link_libraries(fault_test PRIVATE vorlatch_oracle vorlatch_story_support)
  vorlatch_intercept_file_calls(fault_test)
  set(failing_seam
    _ZN8vorlatch8platform11getpriorityEij
    _ZN8vorlatch8platform11setpriorityEiji
    _ZN8vorlatch8platform12proc_pidpathEiPvj
    _ZN8vorlatch8platform13proc_listpidsEjjPvi
    _ZN8vorlatch8platform14localTimeStampB5cxx11Ev
    _ZN8vorlatch8platform17parsePropertyListESt17basic_string_viewIcSt11char_traitsIcEEPKc
    _ZN8vorlatch8platform19observeNotificationEPKcSt8functionIFvvEE
    _ZN8vorlatch8platform20memorystatus_controlEjijPvm
    _ZN8vorlatch8platform20writeXmlPropertyListB5cxx11ERKNS_5plist5ValueE
    _ZN8vorlatch8platform9proc_nameEiPvj
    _ZnamRKSt9nothrow_t)
  foreach(function ${failing_seam})
    target_link_options(fault_test PRIVATE "-Wl,--wrap=${function}")
  endforeach()
  # Sanitized runs are slow, so they test only one of the errors that the daemon treats alike.
  set(single single)
  if(VORLATCH_SANITIZE)
    set(single alike)
  endif()
  foreach(faults "${single} first_start 0 1" "${single} day 0 4" "${single} day 1 4"
      "${single} day 2 4" "${single} day 3 4" "double first_start 1 150" "double day 1 150")
    string(REPLACE " " ";" arguments ${faults})
    string(REPLACE " " "_" name ${faults})
    add_test(NAME "${prefix}.Faults.${name}" COMMAND fault_test ${arguments})
    set_tests_properties("${prefix}.Faults.${name}" PROPERTIES TIMEOUT 900)
  endforeach()
endif()
if(NOT VORLATCH_SANITIZE)
  add_test(NAME "${prefix}.Faults.EveryCallIsMadeToFail"
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/faults/wrapped_calls_test.sh" "${CMAKE_NM}"
      "$<TARGET_FILE:vorlatch_core>" "$<TARGET_FILE:vorlatch_base>" -- ${failing_seam} ${vorlatch_file_calls})
endif()
