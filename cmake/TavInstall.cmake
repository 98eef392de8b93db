# Installs the libraries, their headers, and what CMake and pkg-config need to find them.
#
# By component, one for each package: Runtime (libtavutils), System (libtavsystemutils), Development (what programs are
# built with), Tools (the programs).

include(CMakePackageConfigHelpers)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME Development)
set(TAV_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/tavutils")

# The parts that are headers alone, each in a folder of its name.
set(TAV_WITHOUT)
set(TAV_PARTS)
foreach(part logging testing)
  string(TOUPPER ${part} option)
  if(TAVUTILS_BUILD_${option})
    list(APPEND TAV_PARTS tav${part})
  else()
    list(APPEND TAV_WITHOUT PATTERN ${part} EXCLUDE)
  endif()
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/tav" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" ${TAV_WITHOUT})
install(
  TARGETS tavutils ${TAV_PARTS}
  EXPORT tavutilsTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
          COMPONENT Runtime
          NAMELINK_COMPONENT Development)
install(
  TARGETS tavsystemutils
  EXPORT tavutilsTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
          COMPONENT System
          NAMELINK_COMPONENT Development)
install(
  EXPORT tavutilsTargets
  NAMESPACE tavutils::
  DESTINATION "${TAV_CMAKE_DIR}")

configure_package_config_file(
  "${CMAKE_CURRENT_LIST_DIR}/tavutilsConfig.cmake.in" "${PROJECT_BINARY_DIR}/tavutilsConfig.cmake"
  INSTALL_DESTINATION "${TAV_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/tavutilsConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/tavutilsConfig.cmake" "${PROJECT_BINARY_DIR}/tavutilsConfigVersion.cmake"
  DESTINATION "${TAV_CMAKE_DIR}")

# The pkg-config files find the prefix from where they lie, so that an installation can be moved. A directory given
# as an absolute path stands as it is; cmake_path() replaces the prefix by it.
cmake_path(APPEND TAV_PC_INCLUDEDIR "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
cmake_path(APPEND TAV_PC_LIBDIR "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(TAV_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" up "${up}")
  cmake_path(APPEND TAV_PC_PREFIX "\${pcfiledir}" "${up}")
endif()
foreach(name tavutils tavsystemutils ${TAV_PARTS})
  configure_file("${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in" "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endforeach()
