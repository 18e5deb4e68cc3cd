# The library's helper programs: the dump writer that the crash handlers
# start, and the host that shows the crash message box. Both are built next
# to the library, where it looks for them first, and installed into the
# helper folder that the library looks into once installed.
file(GLOB VYN_DUMP_WRITER_SOURCES CONFIGURE_DEPENDS
     ${CMAKE_CURRENT_SOURCE_DIR}/dump_writer/*.cpp)
add_executable(vyn_dump_writer ${VYN_DUMP_WRITER_SOURCES})
target_include_directories(vyn_dump_writer PRIVATE ${PROJECT_SOURCE_DIR})
# The writer is started at every crash: without the C++ runtime to load and
# relocate it starts several milliseconds sooner. (The sanitizers want the
# shared runtime.)
if(NOT VYN_SANITIZER)
  target_link_options(vyn_dump_writer PRIVATE -static-libstdc++ -static-libgcc)
endif()

add_executable(vyn_rundll ${CMAKE_CURRENT_SOURCE_DIR}/rundll/main.cpp)
target_link_libraries(vyn_rundll PRIVATE ${CMAKE_DL_LIBS})

set_target_properties(vyn_dump_writer PROPERTIES OUTPUT_NAME vyn-dump-writer
                      RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/vyn)
set_target_properties(vyn_rundll PROPERTIES OUTPUT_NAME vyn-rundll
                      RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/vyn)
# A crash needs them wherever the library is used.
add_dependencies(vyn vyn_dump_writer vyn_rundll)
install(TARGETS vyn_dump_writer vyn_rundll
        RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/vyn)

# Our reader of the minidump format, for `vyn dump info` and the tests.
add_library(vyn_minidump STATIC ${CMAKE_CURRENT_SOURCE_DIR}/minidump/minidump_reader.cpp)
target_include_directories(vyn_minidump PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(vyn_minidump PUBLIC vyn_platform)
