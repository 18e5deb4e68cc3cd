# Plug-ins the tests load, and a host that exits with plug-ins still loaded.
foreach(probe probe_a probe_b)
  add_library(vyn_test_${probe} MODULE ${CMAKE_CURRENT_LIST_DIR}/probes/probe_plugin.cpp)
  set_target_properties(vyn_test_${probe} PROPERTIES PREFIX "" OUTPUT_NAME ${probe}
                        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(vyn_test_${probe} PRIVATE PROBE_NAME="${probe}")
  target_include_directories(vyn_test_${probe} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(vyn_test_${probe} PRIVATE vyn Threads::Threads)
endforeach()

vyn_add_program(vyn_plugin_exit_host LIBRARY vyn SOURCES ${CMAKE_CURRENT_LIST_DIR}/probes/exit_host.cpp)

set(vyn_plugin_test_files)
foreach(target vyn_test_probe_a vyn_test_probe_b vyn_plugin_exit_host vyn_example_event_counter
               vyn_example_dialog vyn_example_broken_no_terminate vyn_example_broken_no_initialize
               vyn_example_broken_initialize_fails vyn_example_broken_initialize_throws
               vyn_example_broken_unresolved)
  string(TOUPPER ${target} macro)
  list(APPEND vyn_plugin_test_files "${macro}=\"$<TARGET_FILE:${target}>\"")
endforeach()
target_compile_definitions(vyn_plugins_tests PRIVATE ${vyn_plugin_test_files})
add_dependencies(vyn_plugins_tests vyn_test_probe_a vyn_test_probe_b vyn_plugin_exit_host
                 vyn_example_event_counter vyn_example_dialog vyn_example_broken_no_terminate
                 vyn_example_broken_no_initialize vyn_example_broken_initialize_fails
                 vyn_example_broken_initialize_throws vyn_example_broken_unresolved)
