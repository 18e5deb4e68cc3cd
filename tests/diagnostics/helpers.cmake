# Child programs of the crash tests: a program linked against the shared
# library, as applications are.
add_executable(vyn_crash_probe ${CMAKE_CURRENT_LIST_DIR}/probes/crash_probe.cpp)
target_link_libraries(vyn_crash_probe PRIVATE vyn Threads::Threads)
target_compile_options(vyn_crash_probe PRIVATE -O1 -fno-omit-frame-pointer)

# The same program against the static library, for the watchdog's test seam.
add_executable(vyn_crash_probe_static ${CMAKE_CURRENT_LIST_DIR}/probes/crash_probe.cpp)
target_link_libraries(vyn_crash_probe_static PRIVATE vyn_static)
target_compile_definitions(vyn_crash_probe_static PRIVATE VYN_PROBE_STATIC)
target_compile_options(vyn_crash_probe_static PRIVATE -O1 -fno-omit-frame-pointer)

target_compile_definitions(vyn_diagnostics_tests PRIVATE
  VYN_CRASH_PROBE="$<TARGET_FILE:vyn_crash_probe>"
  VYN_CRASH_PROBE_STATIC="$<TARGET_FILE:vyn_crash_probe_static>"
  VYN_DUMP_WRITER="$<TARGET_FILE:vyn_dump_writer>"
  VYN_RUNDLL="$<TARGET_FILE:vyn_rundll>"
  VYN_HELPER_DIR="$<TARGET_FILE_DIR:vyn_dump_writer>")
target_sources(vyn_diagnostics_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/crash_test_support.cpp)
target_link_libraries(vyn_diagnostics_tests PRIVATE vyn_minidump)
add_dependencies(vyn_diagnostics_tests vyn_crash_probe vyn_crash_probe_static vyn_dump_writer vyn_rundll)
