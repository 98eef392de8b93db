# How this project's own targets are compiled. Both targets are linked PRIVATE, so that none of it reaches consumers.

add_library(tav_warnings INTERFACE)
target_compile_options(tav_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(TAVUTILS_WARNINGS_AS_ERRORS)
  target_compile_options(tav_warnings INTERFACE -Werror)
endif()

add_library(tav_code INTERFACE)
target_link_libraries(tav_code INTERFACE tav_warnings)
# Functions bound at load cost each forked child fewer page faults than functions bound at first use.
target_link_options(tav_code INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack -Wl,--as-needed)

if(TAVUTILS_HARDENING AND NOT TAVUTILS_SANITIZE)
  target_compile_definitions(tav_code INTERFACE _GLIBCXX_ASSERTIONS)
  target_compile_options(
    tav_code INTERFACE
    -fstack-protector-strong
    -fstack-clash-protection
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection=full>
    # Fortification needs optimised code.
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
endif()

if(TAVUTILS_SANITIZE)
  target_compile_options(
    tav_code INTERFACE -fsanitize=${TAVUTILS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tav_code INTERFACE -fsanitize=${TAVUTILS_SANITIZE})
endif()

# For the libraries alone: a program that may not write large files must not have to write its own counts.
add_library(tav_coverage INTERFACE)
if(TAVUTILS_COVERAGE)
  target_compile_options(tav_coverage INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tav_coverage INTERFACE --coverage)
endif()

# The tests are compiled for every build and run once in each: here the compiler's time counts, not the program's. A
# sanitizer watches their memory and threads like the library's, but looks for undefined behaviour in the library alone.
add_library(tav_test_code INTERFACE)
target_link_libraries(tav_test_code INTERFACE tav_warnings)
target_compile_options(tav_test_code INTERFACE -O0 -g1)
if(TAVUTILS_SANITIZE)
  target_compile_options(tav_test_code INTERFACE -fsanitize=${TAVUTILS_SANITIZE} -fno-sanitize=undefined)
  target_link_options(tav_test_code INTERFACE -fsanitize=${TAVUTILS_SANITIZE})
endif()

# tav_precompile(TARGET header...): large headers are read once. Only clang gains enough by it; g++ also sees that each
# file includes what it uses.
function(tav_precompile target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# tav_hide_symbols(TARGET): only what the public headers mark leaves the library.
function(tav_hide_symbols target)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
