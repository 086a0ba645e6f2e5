# Install rules: headers, both shared libraries, the CMake package and the
# pkg-config files. Programs install themselves from their own folders.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DD_INCLUDE_SUBDIR ${CMAKE_INSTALL_INCLUDEDIR}/syntavo_devicedetect)

configure_file(${PROJECT_SOURCE_DIR}/cmake/syntavo_devicedetect_version.h.in
  ${PROJECT_BINARY_DIR}/generated/syntavo_devicedetect_version.h @ONLY)
target_include_directories(syntavo_devicedetect_client PUBLIC
  $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>)

install(TARGETS tavik_platform syntavo_devicedetect_client
  EXPORT SyntavoDeviceDetectTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/
  ${PROJECT_SOURCE_DIR}/interfaces/innerkits/include/
  DESTINATION ${DD_INCLUDE_SUBDIR}
  FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/generated/syntavo_devicedetect_version.h
  DESTINATION ${DD_INCLUDE_SUBDIR})

install(EXPORT SyntavoDeviceDetectTargets
  NAMESPACE SyntavoDeviceDetect::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/SyntavoDeviceDetectConfig.cmake.in
  ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfig.cmake
  ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect)

foreach(pc syntavo_devicedetect_client tavik_platform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
