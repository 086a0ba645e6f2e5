# Debian packages with CPack (`cpack -G DEB` in a release build folder; see
# scripts/ci-packages.sh), split the way Debian splits a library: one
# runtime package per shared library, named after its SONAME, a -dev
# package, and the programs with their units, man pages and completion.
# The components are those of the install rules (cmake/Install.cmake).
set(CPACK_PACKAGE_NAME syntavo-devicedetect)
set(CPACK_PACKAGE_VENDOR "syntavo")
set(CPACK_PACKAGE_CONTACT "syntavo devicedetect team <devicedetect@syntavo.example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "device-detect service client library and tools")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE syntavo-devicedetect)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Dependencies on system libraries from dpkg-shlibdeps; on each other from
# the component dependencies below, as exact versions, since the packages
# are built and installed together.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds our own libraries in the build tree, and leaves them
# to the component dependencies.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENTS_ALL platform client testing dev tools)
# The library packages run ldconfig through the trigger Debian expects.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
foreach(component PLATFORM CLIENT TESTING)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
endforeach()

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME libtavik-platform${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION "IPC platform layer of the device-detect client
 Parcels, remote objects and their death recipients, broker and system
 ability registries, the log, and the in-process and Unix-socket
 transports that the device-detect client library runs on.")

set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME libsyntavo-devicedetect-client${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_CLIENT_DEPENDS platform)
set(CPACK_COMPONENT_CLIENT_DESCRIPTION "client library of the device-detect service
 Lets an application ask the device-detect service (system ability 70635)
 which trusted devices are around, and hear when they come and go.")

set(CPACK_DEBIAN_TESTING_PACKAGE_NAME libsyntavo-devicedetect-testing${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_TESTING_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_TESTING_DEPENDS client platform)
set(CPACK_COMPONENT_TESTING_DESCRIPTION "device-detect service embedded in an application's tests
 The reference device-detect service with its simulated world, to be
 started inside an application's own test process.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libsyntavo-devicedetect-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS client platform testing)
set(CPACK_COMPONENT_DEV_DESCRIPTION "development files of the device-detect client library
 Headers, the CMake package SyntavoDeviceDetect and the pkg-config files
 of the device-detect client library, its platform layer and its test
 helper.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME devicedetect)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS client platform)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "device-detect simulator service and command-line client
 devicedetectd serves the device-detect service from a simulated world of
 devices, started on first use through its systemd user socket;
 devicedetect queries it, watches its events and changes its world.")

# Every package carries its copyright and changelog, as Debian requires.
string(TIMESTAMP DD_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)
find_program(DD_GZIP_FOR_DEB gzip)
if(DD_GZIP_FOR_DEB)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/debian/changelog.gz
    COMMAND ${DD_GZIP_FOR_DEB} -9nc ${PROJECT_BINARY_DIR}/debian/changelog > ${PROJECT_BINARY_DIR}/debian/changelog.gz
    DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog)
  add_custom_target(dd_debian_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.gz)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    # Only packages go to /usr/share/doc/<package>, not a plain install.
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog.gz
      DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endif()

include(CPack)
