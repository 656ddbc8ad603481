# The release package: vmdctl-<version>-win64.zip with vmdctl.exe, vddinfo.exe,
# vmdsnap.exe and vmdctl-sim.exe (stripped), README.txt and COMMANDS.txt, the command reference
# written from the catalogue and the command table, so it says what the
# program prints.
#   cmake --build build/win --target release
# (after a full build, `package` makes the same zip.)
set(PACKAGE_TEXT_DIR ${CMAKE_BINARY_DIR}/package-texts)
file(MAKE_DIRECTORY ${PACKAGE_TEXT_DIR})
add_custom_command(
  OUTPUT ${PACKAGE_TEXT_DIR}/COMMANDS.txt ${PACKAGE_TEXT_DIR}/README.txt
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/gen_commands.py
          --catalogue ${CATALOGUE_SRC} --table ${CMAKE_SOURCE_DIR}/src/shell/dispatch.cpp
          --version ${PROJECT_VERSION} --commands ${PACKAGE_TEXT_DIR}/COMMANDS.txt
          --readme-in ${CMAKE_SOURCE_DIR}/packaging/README.txt.in --readme ${PACKAGE_TEXT_DIR}/README.txt
  DEPENDS ${CATALOGUE_SRC} ${CMAKE_SOURCE_DIR}/src/shell/dispatch.cpp ${CMAKE_SOURCE_DIR}/packaging/README.txt.in
          ${CMAKE_SOURCE_DIR}/tools/gen_commands.py ${CMAKE_SOURCE_DIR}/tools/gen_catalogue.py
  COMMENT "Writing README.txt and COMMANDS.txt")
add_custom_target(package_texts DEPENDS ${PACKAGE_TEXT_DIR}/COMMANDS.txt ${PACKAGE_TEXT_DIR}/README.txt)

install(TARGETS vmdctl vddinfo vmdsnap vmdctl-sim RUNTIME DESTINATION . COMPONENT release)
install(FILES ${PACKAGE_TEXT_DIR}/README.txt ${PACKAGE_TEXT_DIR}/COMMANDS.txt DESTINATION . COMPONENT release)

# Installing builds only what the package holds, not the test programs.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY TRUE)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME vmdctl)
set(CPACK_PACKAGE_VENDOR Tarnby)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME vmdctl-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};vmdctl;release;/")
set(CPACK_STRIP_FILES TRUE)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_OUTPUT_CONFIG_FILE ${CMAKE_BINARY_DIR}/CPackConfig.cmake)
include(CPack)

add_custom_target(release
  COMMAND ${CMAKE_CPACK_COMMAND} --config ${CMAKE_BINARY_DIR}/CPackConfig.cmake
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
  COMMENT "Packing vmdctl-${PROJECT_VERSION}-win64.zip"
  VERBATIM)
add_dependencies(release vmdctl vddinfo vmdsnap vmdctl-sim package_texts)
# A full build writes the texts too, for `package`.
add_custom_target(package_texts_all ALL DEPENDS package_texts)
