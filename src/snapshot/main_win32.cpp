// vmdsnap.exe: the runtime's wide entry splits the command line; the machine
// is read through the Win32 side of the platform.
#include "platform/win32/win32_platform.h"
#include "snapshot/snapshot_tool.h"

int wmain(int argc, wchar_t** argv) {
  vmd::win32::Win32Platform host;
  return vmd::snapshot::runSnapshot(argc, argv, host.platform);
}
