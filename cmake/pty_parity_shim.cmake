# A shim loaded with LD_PRELOAD into outside serial tools (stm32flash) so that
# they run on a pseudo-terminal: a pseudo-terminal drops the parity setting,
# and a tool that reads its settings back would refuse the port. The shim
# hands back the settings last given. It is built without the sanitizers and
# the strict warnings of our own code, because it is loaded into programs
# that are not built with them.
enable_language(C)
add_library(vyn_pty_parity_shim MODULE ${PROJECT_SOURCE_DIR}/tests/support/pty_parity_shim.c)
set_target_properties(vyn_pty_parity_shim PROPERTIES COMPILE_OPTIONS "-Wall" LINK_OPTIONS "")
target_link_libraries(vyn_pty_parity_shim PRIVATE ${CMAKE_DL_LIBS})
