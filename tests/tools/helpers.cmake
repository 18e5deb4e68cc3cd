target_sources(vyn_tools_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR}/tool_process.cpp)
