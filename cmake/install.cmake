# Installs the shared and static library, the public header, an exported
# CMake package (find_package(ql_is) gives ql_is::ql_is) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS ql_is ql_is_static EXPORT ql_isTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/ql_is/ql_is.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ql_is)

set(QLIS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ql_is)
install(EXPORT ql_isTargets NAMESPACE ql_is:: DESTINATION ${QLIS_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ql_isConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ql_isConfig.cmake INSTALL_DESTINATION ${QLIS_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ql_isConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ql_isConfig.cmake
              ${PROJECT_BINARY_DIR}/ql_isConfigVersion.cmake
  DESTINATION ${QLIS_CMAKE_DIR})

# Relative to the .pc file, so that the package works wherever it is
# installed or copied.
file(RELATIVE_PATH QLIS_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QLIS_PC_TO_PREFIX "${QLIS_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ql_is.pc.in ${PROJECT_BINARY_DIR}/ql_is.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ql_is.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
