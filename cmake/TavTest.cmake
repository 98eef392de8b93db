# tav_add_test(NAME SOURCES source... [LIBRARIES library...] [TIMEOUT seconds])
#
# Makes one test program of GoogleTest cases and registers each case with CTest.
function(tav_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tav_test_support ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(
    ${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${TAV_TEST_ENVIRONMENT}")
endfunction()
