// vmdctl.exe: the program on Windows. The runtime's wide entry splits the
// command line; the exit code is the command's result.
#include "platform/win32/win32_platform.h"
#include "shell/dispatch.h"

int wmain(int argc, wchar_t** argv) {
  vmd::win32::Win32Platform host;
  return vmd::runProgram(host.platform, argc, argv);
}
