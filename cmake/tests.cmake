# Tier 1: unit tests, one binary; tier 2: scenarios through vmdctl-sim;
# tier 3: the Windows builds under Wine (when VMDCTL_WIN_BUILD_DIR is set).
find_package(GTest REQUIRED)
include(GoogleTest)

file(GLOB_RECURSE UNIT_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*_test.cpp)
add_executable(vmdctl_unit_tests ${UNIT_TEST_SOURCES})
target_include_directories(vmdctl_unit_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests)
target_link_libraries(vmdctl_unit_tests PRIVATE vmdctl_simlib vmdctl_host vmdctl_core GTest::gtest GTest::gtest_main GTest::gmock)
target_compile_definitions(vmdctl_unit_tests PRIVATE VMDCTL_SOURCE_DIR="${CMAKE_SOURCE_DIR}" VMDCTL_BINARY_DIR="${CMAKE_BINARY_DIR}")
if(VMDCTL_UNIT_TESTS_AS_ONE)
  # One process for them all, where each start costs (the sanitized build).
  add_test(NAME unit.all COMMAND vmdctl_unit_tests)
  set_tests_properties(unit.all PROPERTIES TIMEOUT 600)
else()
  gtest_discover_tests(vmdctl_unit_tests DISCOVERY_TIMEOUT 60 TEST_PREFIX "unit.")
endif()
# Every test file includes the test framework and most the machine's JSON:
# parsed once for the binary, not once a file.
target_precompile_headers(vmdctl_unit_tests PRIVATE <gtest/gtest.h> <gmock/gmock.h> <nlohmann/json.hpp>)
# The test files are compiled 13 to a batch (a unity build) in every build:
# the framework's templates they all use are then compiled once a batch, not
# once a file, which halves the time. So each file keeps its helpers in a
# namespace named after the file.
set_target_properties(vmdctl_unit_tests PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 13)

# The fault tier: every command line of tests/fault run again with each call
# failed, in process on the simulated machine. VMDCTL_FAULT_LONG=1 runs
# every call with every code.
file(GLOB FAULT_TIER_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/fault/*.cpp)
list(FILTER FAULT_TIER_SOURCES EXCLUDE REGEX "_test\\.cpp$")
add_executable(vmdctl_fault_tier ${FAULT_TIER_SOURCES})
target_include_directories(vmdctl_fault_tier PRIVATE ${CMAKE_SOURCE_DIR}/tests)
target_link_libraries(vmdctl_fault_tier PRIVATE vmdctl_simlib vmdctl_host vmdctl_core)
set_target_properties(vmdctl_fault_tier PROPERTIES UNITY_BUILD ON)
add_test(NAME fault COMMAND vmdctl_fault_tier)
set_tests_properties(fault PROPERTIES TIMEOUT 600)

# No include points up the layers.
add_test(NAME layers COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/check_layers.py ${CMAKE_SOURCE_DIR})

set(SCENARIO_RUNNER ${CMAKE_SOURCE_DIR}/tests/scenario/run_scenario.py)
file(GLOB_RECURSE SCENARIOS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/scenario/cases/*.scn)
foreach(scn ${SCENARIOS})
  file(RELATIVE_PATH rel ${CMAKE_SOURCE_DIR}/tests/scenario/cases ${scn})
  string(REGEX REPLACE "\\.scn$" "" name ${rel})
  add_test(NAME scenario.${name}
           COMMAND ${Python3_EXECUTABLE} ${SCENARIO_RUNNER} --sim $<TARGET_FILE:vmdctl-sim> ${scn})
endforeach()

# The request trace itself: a trace file that cannot be written, the trace's
# own lines, and the runner's trace patterns.
add_test(NAME scenario.trace_checks
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/scenario/trace_checks.py $<TARGET_FILE:vmdctl-sim>)

if(VMDCTL_WIN_BUILD_DIR)
  set(WINE_PREFIX ${CMAKE_BINARY_DIR}/wineprefix)
  # One prefix for the whole run: creating it costs seconds.
  add_test(NAME wine.prefix COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/make_prefix.sh ${WINE_PREFIX})
  set_tests_properties(wine.prefix PROPERTIES FIXTURES_SETUP wineprefix)
  add_test(NAME wine.stop COMMAND sh -c "WINEPREFIX='${WINE_PREFIX}' wineserver -k 2>/dev/null; exit 0")
  set_tests_properties(wine.stop PROPERTIES FIXTURES_CLEANUP wineprefix)
  foreach(scn ${SCENARIOS})
    file(RELATIVE_PATH rel ${CMAKE_SOURCE_DIR}/tests/scenario/cases ${scn})
    string(REGEX REPLACE "\\.scn$" "" name ${rel})
    add_test(NAME wine.scenario.${name}
             COMMAND ${Python3_EXECUTABLE} ${SCENARIO_RUNNER} --wine ${WINE_PREFIX}
                     --sim ${VMDCTL_WIN_BUILD_DIR}/vmdctl-sim.exe ${scn})
    set_tests_properties(wine.scenario.${name} PROPERTIES FIXTURES_REQUIRED wineprefix)
  endforeach()
  file(GLOB_RECURSE WINE_CASES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/wine/cases/*.scn)
  foreach(scn ${WINE_CASES})
    file(RELATIVE_PATH rel ${CMAKE_SOURCE_DIR}/tests/wine/cases ${scn})
    string(REGEX REPLACE "\\.scn$" "" name ${rel})
    add_test(NAME wine.real.${name}
             COMMAND ${Python3_EXECUTABLE} ${SCENARIO_RUNNER} --wine ${WINE_PREFIX}
                     --real ${VMDCTL_WIN_BUILD_DIR}/vmdctl.exe ${scn})
    # One instance at a time, as on Windows: a second vmdctl.exe started
    # while one runs in the same Wine session finds its mutex and refuses.
    set_tests_properties(wine.real.${name} PROPERTIES FIXTURES_REQUIRED wineprefix RESOURCE_LOCK vmdctl_instance)
  endforeach()
  # Registered whether or not the Windows build holds its unit tests yet: the
  # test command builds both side by side, and a missing program must fail.
  add_test(NAME wine.unit_tests
           COMMAND env WINEPREFIX=${WINE_PREFIX} WINEDEBUG=-all
                   wine ${VMDCTL_WIN_BUILD_DIR}/vmdctl_unit_tests.exe --gtest_brief=1)
  set_tests_properties(wine.unit_tests PROPERTIES FIXTURES_REQUIRED wineprefix TIMEOUT 600
                                                  RESOURCE_LOCK vmdctl_instance)
  file(GLOB WINE_CHECKS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/wine/check_*.py)
  foreach(chk ${WINE_CHECKS})
    get_filename_component(name ${chk} NAME_WE)
    add_test(NAME wine.${name} COMMAND ${Python3_EXECUTABLE} ${chk} ${VMDCTL_WIN_BUILD_DIR} ${CMAKE_BINARY_DIR}/generated)
    # Inside the prefix fixture, so that wine.stop never ends the server under it.
    set_tests_properties(wine.${name} PROPERTIES FIXTURES_REQUIRED wineprefix)
  endforeach()
  # The release package and the console text run the real vmdctl.exe, one
  # instance at a time like the cases above.
  foreach(chk check_package check_console_text)
    if(TEST wine.${chk})
      set_tests_properties(wine.${chk} PROPERTIES RESOURCE_LOCK vmdctl_instance TIMEOUT 600)
    endif()
  endforeach()
endif()

# --- The real vmdctl.exe against the test controller driver (tests/wine/driver):
# a prefix of its own with the driver installed once per run, and the
# scenarios of tests/wine/real one at a time (one driver, one state file).
if(VMDCTL_WIN_BUILD_DIR)
  set(DRIVER_PREFIX ${CMAKE_BINARY_DIR}/wineprefix-driver)
  set(DRIVER_STATE ${CMAKE_BINARY_DIR}/wine-driver/state.json)
  add_test(NAME wine.driver.install
           COMMAND ${CMAKE_SOURCE_DIR}/tests/wine/driver/install.sh ${DRIVER_PREFIX} ${VMDCTL_WIN_BUILD_DIR} ${DRIVER_STATE})
  set_tests_properties(wine.driver.install PROPERTIES FIXTURES_SETUP winedriver TIMEOUT 180)
  add_test(NAME wine.driver.stop COMMAND sh -c "WINEPREFIX='${DRIVER_PREFIX}' timeout 60 wineserver -k 2>/dev/null; exit 0")
  set_tests_properties(wine.driver.stop PROPERTIES FIXTURES_CLEANUP winedriver)
  file(GLOB_RECURSE DRIVER_CASES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/wine/real/*.scn)
  foreach(scn ${DRIVER_CASES})
    file(RELATIVE_PATH rel ${CMAKE_SOURCE_DIR}/tests/wine/real ${scn})
    string(REGEX REPLACE "\\.scn$" "" name ${rel})
    string(REPLACE "/" "." name ${name})
    add_test(NAME wine.driver.${name}
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/wine/run_real.py --prefix ${DRIVER_PREFIX}
                     --build ${VMDCTL_WIN_BUILD_DIR} --state ${DRIVER_STATE} ${scn})
    set_tests_properties(wine.driver.${name} PROPERTIES FIXTURES_REQUIRED winedriver RESOURCE_LOCK winedriver
                         TIMEOUT 120)
  endforeach()
endif()

# --- vmdsnap.exe under Wine (tests/wine/run_snapshot.py): each machine of
# tests/wine/snapshot captured, read-only, and its copy proven by difference
# against the real vmdctl.exe on the test driver, one at a time like the
# driver's scenarios; the machine without a controller in the prefix without
# the driver.
if(VMDCTL_WIN_BUILD_DIR)
  file(GLOB SNAPSHOT_CASES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/wine/snapshot/*.json)
  foreach(case ${SNAPSHOT_CASES})
    get_filename_component(name ${case} NAME_WE)
    set(runner ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tests/wine/run_snapshot.py --build ${VMDCTL_WIN_BUILD_DIR}
               --sim $<TARGET_FILE:vmdctl-sim> --snap-sim $<TARGET_FILE:vmdsnap-sim>)
    if(name STREQUAL "no_controller")
      add_test(NAME wine.snapshot.${name} COMMAND ${runner} --prefix ${WINE_PREFIX} ${case})
      set_tests_properties(wine.snapshot.${name} PROPERTIES FIXTURES_REQUIRED wineprefix RESOURCE_LOCK vmdctl_instance
                           TIMEOUT 180)
    else()
      set(proof)
      if(name STREQUAL "read_only")
        set(proof --registry)
      endif()
      add_test(NAME wine.snapshot.${name}
               COMMAND ${runner} --prefix ${DRIVER_PREFIX} --state ${DRIVER_STATE} ${proof} ${case})
      set_tests_properties(wine.snapshot.${name} PROPERTIES FIXTURES_REQUIRED winedriver RESOURCE_LOCK winedriver
                           TIMEOUT 180)
    endif()
  endforeach()
endif()
