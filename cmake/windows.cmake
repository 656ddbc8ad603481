# The Windows build: the Win32 side of the platform, the resources, and the
# executables (vmdctl.exe, vmdctl-sim.exe, vddinfo.exe, vmdsnap.exe) in the
# build folder's root.
if(NOT VMD_WINDMC)
  set(VMD_WINDMC windmc)
endif()
if(NOT CMAKE_RC_COMPILER)
  set(CMAKE_RC_COMPILER windres)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# --- Resources: message table, string table, version information, manifest.
set(RES_DIR ${CMAKE_BINARY_DIR}/resources)
set(RES_SRC ${CMAKE_SOURCE_DIR}/src/resources)
file(MAKE_DIRECTORY ${RES_DIR})

# -U stores the messages as UTF-16, -C 65001 reads the generated source as UTF-8.
add_custom_command(
  OUTPUT ${RES_DIR}/messages.rc ${RES_DIR}/MSG00409.bin
  COMMAND ${VMD_WINDMC} -U -C 65001 -h ${RES_DIR} -r ${RES_DIR} ${GEN_DIR}/messages.mc
  DEPENDS ${GEN_DIR}/messages.mc
  COMMENT "Compiling the message table")

# One resource script, so one .rsrc section carries everything.
file(WRITE ${RES_DIR}/all.rc.in
  "#include \"messages.rc\"\n#include \"strings.rc\"\n#include \"vmdctl.rc\"\n")
configure_file(${RES_DIR}/all.rc.in ${RES_DIR}/all.rc COPYONLY)

add_custom_command(
  OUTPUT ${RES_DIR}/vmdctl_res.o
  COMMAND ${CMAKE_RC_COMPILER} -I ${RES_DIR} -I ${GEN_DIR} -I ${RES_SRC} --input-format=rc -O coff
          -i ${RES_DIR}/all.rc -o ${RES_DIR}/vmdctl_res.o
  DEPENDS ${RES_DIR}/all.rc ${RES_DIR}/messages.rc ${RES_DIR}/MSG00409.bin ${GEN_DIR}/strings.rc
          ${RES_SRC}/vmdctl.rc ${RES_SRC}/vmdctl.manifest
  COMMENT "Compiling the resources")
set_source_files_properties(${RES_DIR}/vmdctl_res.o PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
# The generated files are made once, here, before any executable that uses
# them; parallel targets would otherwise run the same commands side by side.
add_custom_target(vmdctl_resources DEPENDS ${RES_DIR}/vmdctl_res.o ${GEN_DIR}/catalogue_data.cpp)

# --- The Win32 side of the platform.
file(GLOB WIN32_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/platform/win32/*.cpp)
add_library(vmdctl_win32 STATIC ${WIN32_SOURCES})
target_include_directories(vmdctl_win32 PUBLIC ${CMAKE_SOURCE_DIR}/src)
# Windows 7 is the oldest system the program supports.
target_compile_definitions(vmdctl_win32 PRIVATE _WIN32_WINNT=0x0601 WINVER=0x0601)
target_link_libraries(vmdctl_win32 PUBLIC vmdctl_core setupapi shlwapi ole32 oleaut32 wbemuuid uuid advapi32 user32)

function(vmd_windows_executable target)
  add_executable(${target} ${ARGN} ${RES_DIR}/vmdctl_res.o)
  # wmain is the entry.
  target_compile_options(${target} PRIVATE -municode)
  target_link_options(${target} PRIVATE -municode)
  add_dependencies(${target} vmdctl_resources)
endfunction()

vmd_windows_executable(vmdctl ${CMAKE_SOURCE_DIR}/src/shell/main_win32.cpp)
target_link_libraries(vmdctl PRIVATE vmdctl_win32 vmdctl_core)

# vmdctl-sim.exe ships too: the catalogue of vmdctl.exe, its own version information.
file(WRITE ${RES_DIR}/sim_all.rc.in
  "#include \"messages.rc\"\n#include \"strings.rc\"\n#include \"vmdctl-sim.rc\"\n")
configure_file(${RES_DIR}/sim_all.rc.in ${RES_DIR}/sim_all.rc COPYONLY)
add_custom_command(
  OUTPUT ${RES_DIR}/vmdctl_sim_res.o
  COMMAND ${CMAKE_RC_COMPILER} -I ${RES_DIR} -I ${GEN_DIR} -I ${CMAKE_SOURCE_DIR}/sim --input-format=rc -O coff
          -i ${RES_DIR}/sim_all.rc -o ${RES_DIR}/vmdctl_sim_res.o
  DEPENDS ${RES_DIR}/sim_all.rc ${RES_DIR}/messages.rc ${RES_DIR}/MSG00409.bin ${GEN_DIR}/strings.rc
          ${CMAKE_SOURCE_DIR}/sim/vmdctl-sim.rc ${CMAKE_SOURCE_DIR}/sim/vmdctl-sim.manifest
  COMMENT "Compiling the resources of vmdctl-sim")
set_source_files_properties(${RES_DIR}/vmdctl_sim_res.o PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
add_executable(vmdctl-sim ${CMAKE_SOURCE_DIR}/sim/main.cpp ${RES_DIR}/vmdctl_sim_res.o)
target_compile_options(vmdctl-sim PRIVATE -municode)
target_link_options(vmdctl-sim PRIVATE -municode)
add_dependencies(vmdctl-sim vmdctl_resources)
target_link_libraries(vmdctl-sim PRIVATE vmdctl_simlib vmdctl_win32 vmdctl_core)

# The Win32 services checked against the system they run on (Wine in the
# tests: tests/wine/check_contract.py). Built with vmdctl-sim, the other
# program that exists only for the tests.
vmd_windows_executable(vmdctl-contract ${CMAKE_SOURCE_DIR}/tests/wine/win32_contract.cpp
                       ${GEN_DIR}/catalogue_data.cpp)
target_link_libraries(vmdctl-contract PRIVATE vmdctl_win32 vmdctl_core)
add_dependencies(vmdctl-sim vmdctl-contract)

# The unit tests again as a Windows program, run under Wine: the same tests
# with a 16-bit wchar_t, the Win32 C runtime and the real resources.
# GoogleTest is built from Debian's source package.
set(VMD_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources for the Windows unit tests")
if(EXISTS ${VMD_GTEST_SOURCE}/CMakeLists.txt)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(${VMD_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  file(GLOB_RECURSE WIN_UNIT_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*_test.cpp)
  add_executable(vmdctl_unit_tests ${WIN_UNIT_TEST_SOURCES} ${GEN_DIR}/catalogue_data.cpp ${RES_DIR}/vmdctl_res.o)
  add_dependencies(vmdctl_unit_tests vmdctl_resources)
  target_include_directories(vmdctl_unit_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_compile_definitions(vmdctl_unit_tests PRIVATE VMDCTL_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
                                                       VMDCTL_BINARY_DIR="${CMAKE_BINARY_DIR}")
  target_link_libraries(vmdctl_unit_tests PRIVATE vmdctl_simlib vmdctl_win32 vmdctl_core gtest gtest_main gmock)
  target_precompile_headers(vmdctl_unit_tests PRIVATE <gtest/gtest.h> <gmock/gmock.h> <nlohmann/json.hpp>)
  set_target_properties(vmdctl_unit_tests PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 13)  # as in tests.cmake
  # The tests' own files need no more than -O1: they are compiled far more often than they run long.
  target_compile_options(vmdctl_unit_tests PRIVATE -O1)
endif()
include(${CMAKE_SOURCE_DIR}/cmake/test_driver.cmake)  # the Wine tier's test driver, tests only

# --- vddinfo.exe, the descriptor reader: its own version information and
# manifest, and the string table for the words of the settings report.
file(WRITE ${RES_DIR}/vddinfo_all.rc.in "#include \"strings.rc\"\n#include \"vddinfo.rc\"\n")
configure_file(${RES_DIR}/vddinfo_all.rc.in ${RES_DIR}/vddinfo_all.rc COPYONLY)
set(VDDINFO_SRC ${CMAKE_SOURCE_DIR}/src/descriptor)
add_custom_command(
  OUTPUT ${RES_DIR}/vddinfo_res.o
  COMMAND ${CMAKE_RC_COMPILER} -I ${RES_DIR} -I ${GEN_DIR} -I ${VDDINFO_SRC} --input-format=rc -O coff
          -i ${RES_DIR}/vddinfo_all.rc -o ${RES_DIR}/vddinfo_res.o
  DEPENDS ${RES_DIR}/vddinfo_all.rc ${GEN_DIR}/strings.rc ${VDDINFO_SRC}/vddinfo.rc ${VDDINFO_SRC}/vddinfo.manifest
  COMMENT "Compiling the resources of vddinfo")
set_source_files_properties(${RES_DIR}/vddinfo_res.o PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
add_executable(vddinfo ${VDDINFO_SRC}/main_win32.cpp ${RES_DIR}/vddinfo_res.o)
target_compile_options(vddinfo PRIVATE -municode)
target_link_options(vddinfo PRIVATE -municode)
add_dependencies(vddinfo vmdctl_resources)
target_link_libraries(vddinfo PRIVATE vddinfo_lib vmdctl_win32 vmdctl_core)

# --- vmdsnap.exe, the capture: its own version information and manifest.
set(VMDSNAP_SRC ${CMAKE_SOURCE_DIR}/src/snapshot)
add_custom_command(
  OUTPUT ${RES_DIR}/vmdsnap_res.o
  COMMAND ${CMAKE_RC_COMPILER} -I ${VMDSNAP_SRC} --input-format=rc -O coff
          -i ${VMDSNAP_SRC}/vmdsnap.rc -o ${RES_DIR}/vmdsnap_res.o
  DEPENDS ${VMDSNAP_SRC}/vmdsnap.rc ${VMDSNAP_SRC}/vmdsnap.manifest
  COMMENT "Compiling the resources of vmdsnap")
set_source_files_properties(${RES_DIR}/vmdsnap_res.o PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
add_executable(vmdsnap ${VMDSNAP_SRC}/main_win32.cpp ${RES_DIR}/vmdsnap_res.o)
target_compile_options(vmdsnap PRIVATE -municode)
target_link_options(vmdsnap PRIVATE -municode)
target_link_libraries(vmdsnap PRIVATE vmdsnap_lib vmdctl_simlib vmdctl_win32 vmdctl_core)

include(${CMAKE_SOURCE_DIR}/cmake/package.cmake)  # the release zip
