# Random stories, each in a process of its own, checked against an oracle.
add_executable(random_stories
  random/calm.cpp
  random/edits.cpp
  random/events.cpp
  random/main.cpp
  random/plan.cpp
  random/play.cpp
  random/record.cpp
  random/stage.cpp)
target_link_libraries(random_stories PRIVATE vorlatch_oracle vorlatch_story_support)
set(stories 2000)
if(VORLATCH_SANITIZE)
  set(stories 300)
endif()
add_test(NAME "${prefix}.RandomStories.GoAsTheRulesSay"
  COMMAND random_stories --stories ${stories})
set_tests_properties("${prefix}.RandomStories.GoAsTheRulesSay" PROPERTIES TIMEOUT 600)
