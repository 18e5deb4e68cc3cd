# Installs the build into a temporary prefix and checks it from outside: the
# exported symbols, find_package(vyn) from a separate CMake project,
# pkg-config, and the installed vyn program (also after the tree has moved).
# Sanitizer builds are skipped: an outside program would need the sanitizer
# runtime too.
if(NOT VYN_SANITIZER)
  add_test(NAME PackageTest.InstalledTreeServesOutsideProjects
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/check_package.sh ${PROJECT_BINARY_DIR}
                   ${PROJECT_SOURCE_DIR})
  set_tests_properties(PackageTest.InstalledTreeServesOutsideProjects
                       PROPERTIES LABELS package TIMEOUT 300)
endif()
