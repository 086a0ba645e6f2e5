# Install rules: headers, both shared libraries, the CMake package and the
# pkg-config files. Programs install themselves from their own folders.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DD_INCLUDE_SUBDIR ${CMAKE_INSTALL_INCLUDEDIR}/syntavo_devicedetect)

configure_file(${PROJECT_SOURCE_DIR}/cmake/syntavo_devicedetect_version.h.in
  ${PROJECT_BINARY_DIR}/generated/syntavo_devicedetect_version.h @ONLY)
target_include_directories(syntavo_devicedetect_client PUBLIC
  $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>)

# Install components, one per Debian package (cmake/Package.cmake): each
# shared library alone (its runtime file), `dev` (headers, the .so links,
# the CMake package, the .pc files) and `tools` (the programs and what comes
# with them).
#
# A system prefix (/usr, as in the Debian packages) needs no RUNPATH: the
# dynamic linker looks there anyway, and Debian forbids one. Elsewhere the
# RUNPATH lets a private prefix work without LD_LIBRARY_PATH.
function(dd_install_binary target component)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(dir ${CMAKE_INSTALL_BINDIR})
    install(TARGETS ${target} RUNTIME DESTINATION ${dir} COMPONENT ${component})
  else()
    set(dir ${CMAKE_INSTALL_LIBDIR})
    # Shared libraries are not executable (mode 0644), as Debian has them.
    install(TARGETS ${target} EXPORT SyntavoDeviceDetectTargets
      LIBRARY DESTINATION ${dir} COMPONENT ${component} NAMELINK_COMPONENT dev
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
      ARCHIVE DESTINATION ${dir} COMPONENT dev)
  endif()
  install(CODE "if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${dir}/$<TARGET_FILE_NAME:${target}>\")
  endif()" COMPONENT ${component})
endfunction()

dd_install_binary(tavik_platform platform)
dd_install_binary(syntavo_devicedetect_client client)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/
  ${PROJECT_SOURCE_DIR}/interfaces/innerkits/include/
  DESTINATION ${DD_INCLUDE_SUBDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h"
  # A seam for the library's own tests; applications have no use for it.
  PATTERN "parcel_test_seam.h" EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/generated/syntavo_devicedetect_version.h
  DESTINATION ${DD_INCLUDE_SUBDIR} COMPONENT dev)

install(EXPORT SyntavoDeviceDetectTargets
  NAMESPACE SyntavoDeviceDetect::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/SyntavoDeviceDetectConfig.cmake.in
  ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfig.cmake
  ${PROJECT_BINARY_DIR}/SyntavoDeviceDetectConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/SyntavoDeviceDetect COMPONENT dev)

# The .pc files locate the prefix from their own folder, so that the install
# prefix chosen at `cmake --install --prefix` (or a DESTDIR copy moved
# elsewhere) is the one they describe, not the one known at configure time.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(DD_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(DD_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  file(RELATIVE_PATH DD_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" DD_PC_UP "${DD_PC_UP}")
  set(DD_PC_PREFIX "\${pcfiledir}/${DD_PC_UP}")
  set(DD_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(DD_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/syntavo_devicedetect")
else()
  set(DD_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}/syntavo_devicedetect")
endif()
foreach(pc syntavo_devicedetect_client tavik_platform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()
