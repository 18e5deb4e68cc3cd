# The Debian package: everything `cmake --install` puts into a prefix (the
# library, its public headers, the CMake and pkg-config files, the vyn
# program) in one package named vyn, installed below /usr.
#
#   cmake --preset release && cmake --build --preset release
#   cpack --preset release        # build/release/packages/vyn_<version>-1_<arch>.deb
#
# The run-time dependencies (C and C++ run-time libraries) are read from the
# binaries by dpkg-shlibdeps, so they follow the tool chain that built them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vyn)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "VYN developers")
set(CPACK_PACKAGE_CONTACT "VYN developers <vyn-developers@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Base services for desktop applications that drive serial-line devices")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "The shared library libvyn.so: status codes, threads and watchdog, system\n"
  "log, message queue, serial driver, the device's command set and traffic\n"
  "dump, firmware update, crash dumps, INI settings and plug-ins; with its\n"
  "headers, CMake package and pkg-config file, and the vyn program (traffic\n"
  "monitor, request sender, frame tools, device simulator).")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A shlibs file for packages built against this one, and the ldconfig
# trigger that registers the library on installation and removal.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# What building against the headers needs beyond the run-time libraries.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++ (>= 4:12), cmake (>= 3.25), pkg-config")

include(CPack)
