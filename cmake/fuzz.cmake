# libFuzzer targets (VMDCTL_FUZZ=ON; configure with clang++, e.g.
# -DCMAKE_CXX_COMPILER=clang++-14). The program's portable code is compiled
# again with coverage and sanitizers, so a finding points into our sources.
# Each target is one line: vmd_add_fuzz_target(<name> <source>), and runs as
# the ctest test fuzz.<name> for a bounded time.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "VMDCTL_FUZZ needs clang++ (libFuzzer); this build uses ${CMAKE_CXX_COMPILER_ID}")
endif()

set(VMDCTL_FUZZ_SECONDS 10 CACHE STRING "Time limit of each fuzz test run by ctest")
set(VMDCTL_FUZZ_RUNS 200000 CACHE STRING "Input limit of each fuzz test run by ctest")
set(FUZZ_SANITIZERS address,undefined)

# The program's code and the simulated machine, built with that
# instrumentation for the targets. A build whose every file is compiled so
# already (tools/test.sh's sanitized build) gives the targets its own
# libraries instead of compiling the code a second time.
if(CMAKE_CXX_FLAGS MATCHES "fuzzer-no-link")
  add_library(vmdctl_core_fuzz INTERFACE)
  target_link_libraries(vmdctl_core_fuzz INTERFACE vmdctl_core)
  add_library(vmdctl_simlib_fuzz INTERFACE)
  target_link_libraries(vmdctl_simlib_fuzz INTERFACE vmdctl_simlib)
else()
  add_library(vmdctl_core_fuzz STATIC ${CORE_SOURCES} ${PLATFORM_PORTABLE})
  target_include_directories(vmdctl_core_fuzz PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_compile_options(vmdctl_core_fuzz PUBLIC -g -O1 -fno-omit-frame-pointer
                         -fsanitize=fuzzer-no-link,${FUZZ_SANITIZERS} -fno-sanitize-recover=all)
  target_link_options(vmdctl_core_fuzz PUBLIC -fsanitize=${FUZZ_SANITIZERS})
  add_library(vmdctl_simlib_fuzz STATIC ${SIM_SOURCES})
  target_include_directories(vmdctl_simlib_fuzz PUBLIC ${CMAKE_SOURCE_DIR} ${JSON_INCLUDE})
  target_link_libraries(vmdctl_simlib_fuzz PUBLIC vmdctl_core_fuzz)
endif()

enable_testing()

# Seeds, when there are any, come from tests/fuzz/corpus/<name>; what the
# runs find is kept in the build tree, never written into the sources.
function(vmd_add_fuzz_target name source)
  add_executable(fuzz_${name} ${source})
  target_link_libraries(fuzz_${name} PRIVATE vmdctl_core_fuzz)
  target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  set(work ${CMAKE_BINARY_DIR}/fuzz-corpus/${name})
  file(MAKE_DIRECTORY ${work})
  set(seeds)
  if(IS_DIRECTORY ${CMAKE_SOURCE_DIR}/tests/fuzz/corpus/${name})
    set(seeds ${CMAKE_SOURCE_DIR}/tests/fuzz/corpus/${name})
  endif()
  # A target's dictionary (tests/fuzz/<name>.dict) holds the words of its input's format.
  set(dict)
  if(EXISTS ${CMAKE_SOURCE_DIR}/tests/fuzz/${name}.dict)
    set(dict -dict=${CMAKE_SOURCE_DIR}/tests/fuzz/${name}.dict)
  endif()
  add_test(NAME fuzz.${name}
           COMMAND fuzz_${name} -max_total_time=${VMDCTL_FUZZ_SECONDS} -runs=${VMDCTL_FUZZ_RUNS}
                   -print_final_stats=1 ${dict} ${work} ${seeds})
  set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT 300)
endfunction()

vmd_add_fuzz_target(settings_record ${CMAKE_SOURCE_DIR}/tests/fuzz/settings_record_fuzz.cpp)
vmd_add_fuzz_target(descriptor ${CMAKE_SOURCE_DIR}/tests/fuzz/descriptor_fuzz.cpp)
# Options and validation on a simulated machine.
vmd_add_fuzz_target(disk_options ${CMAKE_SOURCE_DIR}/tests/fuzz/disk_options_fuzz.cpp)
target_link_libraries(fuzz_disk_options PRIVATE vmdctl_simlib_fuzz)
# The state file, from its bytes to a loaded machine and back.
vmd_add_fuzz_target(state_file ${CMAKE_SOURCE_DIR}/tests/fuzz/state_file_fuzz.cpp)
target_link_libraries(fuzz_state_file PRIVATE vmdctl_simlib_fuzz)
