#include "platform/win32/win32_platform.h"

#include "platform/host.h"

namespace vmd::win32 {

Win32Platform::Win32Platform()
    : streams_(makeHostStreams()),
      keys_(makeKeyReader()),
      catalog_(makeHostCatalog()),
      process_(makeProcessEnvironment()),
      setup_(makeDeviceSetup()),
      io_(makeDeviceIo()),
      volumes_(makeVolumeService()),
      files_(makeFileService()),
      registry_(makeRegistry()),
      system_(makeSystemInfo()),
      clock_(makeClock()),
      broadcast_(makeDeviceBroadcast()),
      platform{*streams_,  *keys_,     *catalog_, *process_, *setup_,  *io_,
               *volumes_, *files_,    *registry_, *system_,  *clock_, *broadcast_} {}

}  // namespace vmd::win32
