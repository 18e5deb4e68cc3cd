# `docs`: the HTML reference of the public headers (VYN_PUBLIC_HEADERS, the
# installed ones) in <build>/docs/html. Doxygen runs with every warning an
# error, so a public name without a contract comment fails the target. Not
# part of `all`: only who asks for it builds it.
find_program(VYN_DOXYGEN doxygen)
list(JOIN VYN_PUBLIC_HEADERS " " VYN_DOCS_INPUT)
set(VYN_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/docs/api/Doxyfile.in ${VYN_DOCS_OUTPUT}/Doxyfile @ONLY)
if(VYN_DOXYGEN)
  add_custom_command(OUTPUT ${VYN_DOCS_OUTPUT}/html/index.html
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${VYN_DOCS_OUTPUT}/html
    COMMAND ${VYN_DOXYGEN} ${VYN_DOCS_OUTPUT}/Doxyfile
    DEPENDS ${VYN_PUBLIC_HEADERS} ${VYN_DOCS_OUTPUT}/Doxyfile
            ${PROJECT_SOURCE_DIR}/docs/api/doc_comments.py
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "API reference of the public headers (Doxygen, warnings are errors)")
  add_custom_target(docs DEPENDS ${VYN_DOCS_OUTPUT}/html/index.html)
else()
  add_custom_target(docs COMMAND ${CMAKE_COMMAND} -E echo "doxygen is missing: run scripts/install-deps.sh"
                         COMMAND ${CMAKE_COMMAND} -E false)
endif()
