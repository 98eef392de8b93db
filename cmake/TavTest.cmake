# The test programs that are there for what several threads do to each other; their tests have the label "threads".
add_custom_target(tav_threaded_tests)

# tav_add_test(NAME [TOGETHER] [THREADS] [KEEPS_NOTHING] SOURCES source... [LIBRARIES library...] [TIMEOUT seconds])
#
# Makes one test program of GoogleTest cases and registers each case with CTest. Under a sanitizer, cases that may share
# a process (TOGETHER) are registered as one test: starting and ending a process takes much longer there than a case.
# And where no memory is kept on purpose (KEEPS_NOTHING), nobody need know exactly who asked for each block.
function(tav_add_test name)
  cmake_parse_arguments(ARG "TOGETHER;THREADS;KEEPS_NOTHING" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE tav_test_support tav_test_code ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_precompile_headers(${name} REUSE_FROM tav_test_support)
  endif()
  set(environment "${TAV_TEST_ENVIRONMENT}")
  if(ARG_KEEPS_NOTHING)
    list(TRANSFORM environment REPLACE "fast_unwind_on_malloc=0" "fast_unwind_on_malloc=1")
  endif()
  set(label)
  if(ARG_THREADS)
    add_dependencies(tav_threaded_tests ${name})
    set(label LABELS threads)
  endif()
  if(ARG_TOGETHER AND TAVUTILS_SANITIZE)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(
      ${name}
      PROPERTIES ${label} TIMEOUT 600 ENVIRONMENT "${environment}" SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\] [0-9]+ test")
    return()
  endif()
  gtest_discover_tests(
    ${name}
    TEST_LIST ${name}_tests
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${label} TIMEOUT ${ARG_TIMEOUT})
  # Discovery would tear the list apart, so that only its first variable were set.
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${name}_environment.cmake")
  file(
    WRITE "${script}"
    "if(${name}_tests)\n"
    "  set_tests_properties(\${${name}_tests} PROPERTIES ENVIRONMENT [==[${environment}]==])\n"
    "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
endfunction()
