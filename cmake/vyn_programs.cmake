# vyn_add_program(<name> LIBRARY <vyn|vyn_static> SOURCES <file>... [LINK <target>...])
#
# One program of the tests or the benchmarks, linked against the library it
# names and nothing chosen behind its back:
#   vyn_static  a static copy, so that the program reaches the internals and
#               the test seams and owns its singletons;
#   vyn         the shared library, when the program shares its singletons
#               with something else that links it (plug-ins it loads).
# LINK names further libraries (simulators, test support, Google Test).
function(vyn_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LIBRARY" "SOURCES;LINK")
  if(NOT arg_LIBRARY MATCHES "^(vyn|vyn_static)$")
    message(FATAL_ERROR "vyn_add_program(${name}): LIBRARY must be vyn or vyn_static, "
                        "not '${arg_LIBRARY}'")
  endif()
  if(NOT arg_SOURCES)
    message(FATAL_ERROR "vyn_add_program(${name}): no SOURCES")
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARY} ${arg_LINK})
endfunction()
