# Child programs of the core tests.
add_executable(vyn_lifecycle_probe ${CMAKE_CURRENT_LIST_DIR}/probes/lifecycle_probe.cpp)
set_target_properties(vyn_lifecycle_probe PROPERTIES ENABLE_EXPORTS ON)
target_link_libraries(vyn_lifecycle_probe PRIVATE ${CMAKE_DL_LIBS})

add_executable(vyn_command_line_probe ${CMAKE_CURRENT_LIST_DIR}/probes/command_line_probe.cpp)
target_link_libraries(vyn_command_line_probe PRIVATE vyn)

target_compile_definitions(vyn_core_tests PRIVATE
  VYN_LIFECYCLE_PROBE="$<TARGET_FILE:vyn_lifecycle_probe>"
  VYN_COMMAND_LINE_PROBE="$<TARGET_FILE:vyn_command_line_probe>")
add_dependencies(vyn_core_tests vyn_lifecycle_probe vyn_command_line_probe)
