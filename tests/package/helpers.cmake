# Every public header compiles on its own, with the library's warnings: one
# generated translation unit per header, built with the rest of the tree
# (in parallel, and again only when a header changes). That a header
# includes only installed headers is checked on the installed tree below.
# Sanitizer builds leave it to the others: the headers are the same.
if(NOT VYN_SANITIZER)
  set(vyn_header_units)
  foreach(header ${VYN_PUBLIC_HEADERS})
    file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${header})
    string(MAKE_C_IDENTIFIER ${relative} unit)
    set(unit ${CMAKE_CURRENT_BINARY_DIR}/header_alone/${unit}.cpp)
    file(CONFIGURE OUTPUT ${unit} CONTENT "#include \"${relative}\"\n")
    list(APPEND vyn_header_units ${unit})
  endforeach()
  add_library(vyn_public_headers_alone OBJECT ${vyn_header_units})
  target_include_directories(vyn_public_headers_alone PRIVATE ${PROJECT_SOURCE_DIR})
endif()

# Installs the build into a temporary prefix and checks it from outside: the
# exported symbols, the installed headers, find_package(vyn) from a separate
# CMake project, pkg-config, a crash of a program built against it, and the
# installed vyn program (also after the tree has moved). Sanitizer builds are
# skipped: an outside program would need the sanitizer runtime too.
if(NOT VYN_SANITIZER)
  add_test(NAME PackageTest.InstalledTreeServesOutsideProjects
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/check_package.sh ${PROJECT_BINARY_DIR}
                   ${PROJECT_SOURCE_DIR})
  set_tests_properties(PackageTest.InstalledTreeServesOutsideProjects
                       PROPERTIES LABELS package TIMEOUT 300)
endif()
