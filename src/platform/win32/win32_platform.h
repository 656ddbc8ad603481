// The Win32 services behind platform.h, gathered into one Platform. Built
// only on Windows; this header itself needs no <windows.h>.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace vmd::win32 {

std::unique_ptr<KeyReader> makeKeyReader();
std::unique_ptr<ProcessEnvironment> makeProcessEnvironment();
std::unique_ptr<DeviceSetup> makeDeviceSetup();
std::unique_ptr<DeviceIo> makeDeviceIo();
std::unique_ptr<VolumeService> makeVolumeService();
std::unique_ptr<FileService> makeFileService();
std::unique_ptr<Registry> makeRegistry();
std::unique_ptr<SystemInfo> makeSystemInfo();
std::unique_ptr<Clock> makeClock();
std::unique_ptr<DeviceBroadcast> makeDeviceBroadcast();

// Owns every service; `platform` refers to them for as long as this lives.
class Win32Platform {
 public:
  Win32Platform();
  Win32Platform(const Win32Platform&) = delete;
  Win32Platform& operator=(const Win32Platform&) = delete;

 private:
  std::unique_ptr<OutputStreams> streams_;
  std::unique_ptr<KeyReader> keys_;
  std::unique_ptr<MessageCatalog> catalog_;
  std::unique_ptr<ProcessEnvironment> process_;
  std::unique_ptr<DeviceSetup> setup_;
  std::unique_ptr<DeviceIo> io_;
  std::unique_ptr<VolumeService> volumes_;
  std::unique_ptr<FileService> files_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<SystemInfo> system_;
  std::unique_ptr<Clock> clock_;
  std::unique_ptr<DeviceBroadcast> broadcast_;

 public:
  Platform platform;
};

}  // namespace vmd::win32
