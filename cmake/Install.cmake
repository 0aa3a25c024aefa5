include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(DIRECTORY include/bic DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS BrellinImageCore bic_platform
        EXPORT BrellinImageCoreTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT BrellinImageCoreTargets
        NAMESPACE BrellinImageCore::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/BrellinImageCore)

configure_package_config_file(cmake/BrellinImageCoreConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/BrellinImageCoreConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/BrellinImageCore)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/BrellinImageCoreConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/BrellinImageCoreConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/BrellinImageCoreConfigVersion.cmake
  cmake/Dependencies.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/BrellinImageCore)
