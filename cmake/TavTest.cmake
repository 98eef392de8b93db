# tav_add_test(NAME SOURCES source... [LIBRARIES library...] [TIMEOUT seconds])
#
# Makes one test program of GoogleTest cases and registers each case with CTest.
function(tav_add_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tav_test_support tav_test_code ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_precompile_headers(${name} REUSE_FROM tav_test_support)
  endif()
  gtest_discover_tests(
    ${name}
    TEST_LIST ${name}_tests
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  # Discovery would tear the list apart, so that only its first variable were set.
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${name}_environment.cmake")
  file(
    WRITE "${script}"
    "if(${name}_tests)\n"
    "  set_tests_properties(\${${name}_tests} PROPERTIES ENVIRONMENT [==[${TAV_TEST_ENVIRONMENT}]==])\n"
    "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
endfunction()
