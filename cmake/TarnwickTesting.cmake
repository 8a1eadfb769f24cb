# Test and fuzz target helpers shared by every folder.
#
# tarnwick_add_unit_tests(<folder> <libs...>): one GoogleTest executable per
#   *_test.cpp found below <folder>; its tests are registered with ctest. Test
#   suites about threads or processes have "Concurrency" in their name: that is
#   what the TSan run (make tsan) selects.
# tarnwick_add_fuzz_target(<name> <source> <seed-dir> <libs...>): with
#   TARNWICK_FUZZ a libFuzzer binary; otherwise a ctest case that replays the
#   seed inputs plus a few thousand deterministic mutations of them through the
#   same entry point, so every test run exercises the target under sanitizers.
include(GoogleTest)

function(tarnwick_add_unit_tests folder)
  file(GLOB_RECURSE tests CONFIGURE_DEPENDS ${folder}/*_test.cpp)
  foreach(test_source IN LISTS tests)
    get_filename_component(test_name ${test_source} NAME_WE)
    add_executable(${test_name} ${test_source})
    target_link_libraries(${test_name} PRIVATE ${ARGN} GTest::gtest GTest::gtest_main Threads::Threads)
    # Where test data lives; __FILE__ may be relative to the build folder
    # (a compiler cache rewrites paths), so it cannot be relied on.
    target_compile_definitions(${test_name} PRIVATE TARNWICK_SOURCE_ROOT="${CMAKE_SOURCE_DIR}")
    gtest_discover_tests(${test_name} DISCOVERY_TIMEOUT 60
      PROPERTIES ENVIRONMENT "TARNWICK_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
  endforeach()
endfunction()

function(tarnwick_add_fuzz_target name source seed_dir)
  if(TARNWICK_FUZZ)
    add_executable(${name} ${source})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE ${ARGN})
  else()
    add_executable(${name} ${source} ${CMAKE_SOURCE_DIR}/cmake/fuzz_replay_main.cpp)
    target_link_libraries(${name} PRIVATE ${ARGN})
    add_test(NAME ${name}.replay COMMAND ${name} ${seed_dir})
  endif()
endfunction()
