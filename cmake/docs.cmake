# `docs`: the HTML reference of the installed headers (vyn/vyn.h and
# vyn/<area>/*.h; not internal/ or platform/) in <build>/docs/html. Doxygen
# runs with every warning an error, so a public name without a contract
# comment fails the target. Not part of `all`: only who asks for it builds it.
find_program(VYN_DOXYGEN doxygen)
file(GLOB VYN_PUBLIC_AREAS LIST_DIRECTORIES true ${PROJECT_SOURCE_DIR}/vyn/*)
set(VYN_DOCS_INPUT ${PROJECT_SOURCE_DIR}/vyn)
set(VYN_DOCS_HEADERS ${PROJECT_SOURCE_DIR}/vyn/vyn.h)
foreach(area ${VYN_PUBLIC_AREAS})
  get_filename_component(name ${area} NAME)
  if(IS_DIRECTORY ${area} AND NOT name MATCHES "^(platform|internal)$")
    string(APPEND VYN_DOCS_INPUT " ${area}")
    file(GLOB headers CONFIGURE_DEPENDS ${area}/*.h)
    list(APPEND VYN_DOCS_HEADERS ${headers})
  endif()
endforeach()
set(VYN_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/docs/api/Doxyfile.in ${VYN_DOCS_OUTPUT}/Doxyfile @ONLY)
if(VYN_DOXYGEN)
  add_custom_command(OUTPUT ${VYN_DOCS_OUTPUT}/html/index.html
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${VYN_DOCS_OUTPUT}/html
    COMMAND ${VYN_DOXYGEN} ${VYN_DOCS_OUTPUT}/Doxyfile
    DEPENDS ${VYN_DOCS_HEADERS} ${VYN_DOCS_OUTPUT}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "API reference of the installed headers (Doxygen, warnings are errors)")
  add_custom_target(docs DEPENDS ${VYN_DOCS_OUTPUT}/html/index.html)
else()
  add_custom_target(docs COMMAND ${CMAKE_COMMAND} -E echo "doxygen is missing: run scripts/install-deps.sh"
                         COMMAND ${CMAKE_COMMAND} -E false)
endif()
