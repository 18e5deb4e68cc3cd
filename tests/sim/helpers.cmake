# The simulator tests run stm32flash, an independent client of the
# bootloader's protocol, on the simulated chip.
# Without it the test that runs it fails and says so.
find_program(VYN_STM32FLASH stm32flash)
target_compile_definitions(vyn_sim_tests PRIVATE
  VYN_STM32FLASH="${VYN_STM32FLASH}"
  VYN_PTY_PARITY_SHIM="$<TARGET_FILE:vyn_pty_parity_shim>")
add_dependencies(vyn_sim_tests vyn_pty_parity_shim)
