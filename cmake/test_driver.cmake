# The test controller driver for the Wine tier (tests/wine/driver): a WDM
# .sys that Wine loads in winedevice.exe, and vmdmodel.dll, the controller
# model of vmdctl-sim that it imports. Test targets only; vmdctl.exe never
# links either.
set(VMD_DRIVER_DIR ${CMAKE_SOURCE_DIR}/tests/wine/driver)

add_library(vmdmodel SHARED ${VMD_DRIVER_DIR}/model_host.cpp)
set_target_properties(vmdmodel PROPERTIES PREFIX "" OUTPUT_NAME vmdmodel)
target_include_directories(vmdmodel PRIVATE ${VMD_DRIVER_DIR})
target_link_libraries(vmdmodel PRIVATE vmdctl_simlib vmdctl_core)
# Nothing but Windows' own DLLs beside it in winedevice.exe.
target_link_options(vmdmodel PRIVATE -static -static-libgcc -static-libstdc++)

# The driver is freestanding C, linked against ntoskrnl and the DLL's import
# library only: a .sys importing kernel32 or ntdll is not loaded as a driver.
if(NOT VMD_MINGW_PREFIX)
  set(VMD_MINGW_PREFIX x86_64-w64-mingw32)
endif()
set(VMD_DRIVER_SYS ${CMAKE_BINARY_DIR}/vmdtestctl.sys)
add_custom_command(
  OUTPUT ${VMD_DRIVER_SYS}
  COMMAND ${VMD_MINGW_PREFIX}-gcc -std=gnu11 -O2 ${VMD_WARNINGS} -ffreestanding -fno-stack-protector
          -mno-stack-arg-probe -shared -nostdlib -nostartfiles -Wl,--subsystem,native -Wl,--entry,DriverEntry
          -Wl,--image-base,0x140000000 -I ${VMD_DRIVER_DIR} -I /usr/${VMD_MINGW_PREFIX}/include/ddk
          -o ${VMD_DRIVER_SYS} ${VMD_DRIVER_DIR}/controller_driver.c $<TARGET_LINKER_FILE:vmdmodel> -lntoskrnl
  DEPENDS ${VMD_DRIVER_DIR}/controller_driver.c ${VMD_DRIVER_DIR}/model_host.h vmdmodel
  COMMENT "Building the test controller driver")
add_custom_target(vmdtestctl ALL DEPENDS ${VMD_DRIVER_SYS})

# Drive letters on Unix folders for the scenarios, through Wine's mount manager.
add_custom_command(
  OUTPUT ${CMAKE_BINARY_DIR}/define_drive.exe
  COMMAND ${VMD_MINGW_PREFIX}-gcc -O2 ${VMD_WARNINGS} -o ${CMAKE_BINARY_DIR}/define_drive.exe ${VMD_DRIVER_DIR}/define_drive.c
  DEPENDS ${VMD_DRIVER_DIR}/define_drive.c ${VMD_DRIVER_DIR}/unix_drive.h
  COMMENT "Building define_drive.exe")
add_custom_target(vmdtestctl_tools ALL DEPENDS ${CMAKE_BINARY_DIR}/define_drive.exe)
add_dependencies(vmdtestctl vmdtestctl_tools)
