# Child programs of the crash tests: a program linked against the shared
# library, as applications are.
add_executable(vyn_crash_probe ${CMAKE_CURRENT_LIST_DIR}/probes/crash_probe.cpp)
target_link_libraries(vyn_crash_probe PRIVATE vyn Threads::Threads)
target_compile_options(vyn_crash_probe PRIVATE -O1 -fno-omit-frame-pointer)

target_compile_definitions(vyn_diagnostics_tests PRIVATE
  VYN_CRASH_PROBE="$<TARGET_FILE:vyn_crash_probe>"
  VYN_DUMP_WRITER="$<TARGET_FILE:vyn_dump_writer>"
  VYN_RUNDLL="$<TARGET_FILE:vyn_rundll>")
target_link_libraries(vyn_diagnostics_tests PRIVATE vyn_minidump)
add_dependencies(vyn_diagnostics_tests vyn_crash_probe vyn_dump_writer vyn_rundll)
