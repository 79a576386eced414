# Installs the library, its public headers (keeping the Core/Interfaces
# layout, so a client spells includes the same in the tree and installed),
# a CMake package TarselCore and a pkg-config file tarsel-core.pc.
include(CMakePackageConfigHelpers)

install(TARGETS TarselCore EXPORT TarselCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
)
install(FILES ${TARSEL_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tarsel/Core/Interfaces)

install(EXPORT TarselCoreTargets
  NAMESPACE Tarsel::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarselCore)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/TarselCoreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TarselCoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarselCore)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/TarselCoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TarselCoreConfig.cmake
  ${PROJECT_BINARY_DIR}/TarselCoreConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TarselCore)

# The .pc file finds the prefix from its own folder, so that the package can
# be installed with any --prefix and moved.
file(RELATIVE_PATH TARSEL_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" TARSEL_PC_TO_PREFIX "${TARSEL_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/tarsel-core.pc.in
  ${PROJECT_BINARY_DIR}/tarsel-core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarsel-core.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
