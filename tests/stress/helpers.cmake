# The lifecycle stress program: a short run in every suite (label "stress"),
# a long one by hand: build/<preset>/tests/vyn_lifecycle_stress SECONDS.
add_executable(vyn_lifecycle_stress ${CMAKE_CURRENT_LIST_DIR}/lifecycle_stress.cpp)
target_link_libraries(vyn_lifecycle_stress PRIVATE vyn_static vyn_sim)
add_test(NAME LifecycleStress.ShortRun COMMAND vyn_lifecycle_stress 2)
set_tests_properties(LifecycleStress.ShortRun PROPERTIES LABELS stress TIMEOUT 240)
