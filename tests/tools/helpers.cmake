# `vyn plugin` is tried with the example plug-ins (built in plugins/).
set(vyn_tool_test_plugins)
foreach(target vyn_example_event_counter vyn_example_dialog vyn_example_broken_no_initialize)
  string(TOUPPER ${target} macro)
  list(APPEND vyn_tool_test_plugins "${macro}=\"$<TARGET_FILE:${target}>\"")
endforeach()
target_compile_definitions(vyn_tools_tests PRIVATE ${vyn_tool_test_plugins})
add_dependencies(vyn_tools_tests vyn_example_event_counter vyn_example_dialog
                 vyn_example_broken_no_initialize)
