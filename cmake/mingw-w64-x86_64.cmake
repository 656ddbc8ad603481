# Cross build for 64-bit Windows with mingw-w64 (posix threads flavour).
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VMD_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VMD_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VMD_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${VMD_MINGW_PREFIX}-windres)
set(CMAKE_AR ${VMD_MINGW_PREFIX}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${VMD_MINGW_PREFIX}-ranlib CACHE FILEPATH "")
set(VMD_WINDMC ${VMD_MINGW_PREFIX}-windmc)

set(CMAKE_FIND_ROOT_PATH /usr/${VMD_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The executables must need nothing but Windows' own DLLs: the GCC runtime,
# the C++ library and winpthread are linked in.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
# -municode (wmain as the entry) is given per executable in cmake/windows.cmake:
# here it would also reach CMake's own test programs, whose entry is main.
