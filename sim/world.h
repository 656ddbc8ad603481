// The simulated Windows machine's state, typed: the host, its clock, the
// controller, drives and volumes, the registry, files, fault rules and the
// broadcasts of a run. JSON appears only when a state file is read or
// written (sim/state_file.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/controller_state.h"
#include "sim/fault_layer.h"

namespace vmd::sim {

using ByteString = std::vector<std::uint8_t>;

// A disk with a master boot record has its one partition after the first track.
inline constexpr std::uint64_t kPartitionOffset = 32256;

inline constexpr const char* kMountedDevices = "SYSTEM\\MountedDevices";
// A drive-letter value of MountedDevices: "\DosDevices\X:".
std::string dosDevicesName(char letter);
// What MountedDevices holds for the partition of a disk: its signature and
// where the partition starts.
ByteString mountedDeviceData(std::uint32_t signature);

struct HostState {
  std::string os = "Windows 10 x64";
  bool administrator = true;
  bool instanceRunning = false;
  std::string windowsDirectory = "C:\\Windows";
  std::uint64_t totalPhys = 17179869184ull;
  std::uint64_t availPhys = 12884901888ull;
  bool autoMount = true;  // the mount-point manager mounts new volumes
};

struct ClockState {
  std::uint64_t fileTime = 134072208000000000ull;  // UTC at the start, 100 ns since 1601
  std::uint64_t elapsedMs = 0;                     // virtual milliseconds since
};

struct Extent {
  std::uint32_t disk = 0;
  std::uint64_t offset = 0, length = 0;
};

// Properties a drive may lay over the volume it shows.
struct VolumeProps {
  std::optional<std::string> fileSystem, label;
  std::optional<std::uint32_t> serial, sectorsPerCluster, bytesPerSector, type;
  std::optional<std::uint64_t> totalBytes, freeBytes, freeToCaller;
  std::optional<bool> offline;
};

struct Volume {
  std::string name;           // \\?\Volume{...}\ (with the backslash)
  std::string interfacePath;  // as the volume interface class enumerates it
  std::vector<std::string> mountPoints;  // "X:\" and folder mount points
  VolumeProps props;
  std::vector<Extent> extents;
  bool present = true;
  std::optional<std::string> devicePath;  // the device that holds it (a Direct-IO disk)
  std::optional<std::uint8_t> disk;       // the controller's disk it lives on
  std::uint32_t heldByOthers = 0;         // handles other processes hold on it
  bool dismounted = false;                // until it is next opened
};

struct Drive {
  char letter = 'C';
  std::uint32_t type = 3;  // GetDriveTypeW's code; fixed
  std::optional<std::string> volume;  // the GUID name of the volume it shows
  VolumeProps overrides;
  std::optional<std::uint32_t> rootAttributes;
};

inline constexpr std::uint32_t kRegDword = 4, kRegBinary = 3;

struct RegValue {
  std::string name;
  std::uint32_t type = kRegDword;
  ByteString data;
};
struct RegKey {
  std::string name;  // under HKEY_LOCAL_MACHINE
  std::vector<RegValue> values;  // in the order written
};

struct ImageDescription {
  std::string format = "plain";  // plain, smart, compr
  std::uint64_t diskSize = 0;
  std::uint32_t level = 1;
};

struct FileEntry {
  std::string path;
  std::optional<std::uint64_t> size;
  std::optional<std::uint32_t> attributes;
  bool directory = false;
  std::optional<ByteString> head;
  std::optional<ImageDescription> image;
};

struct WmiState {
  std::vector<std::uint32_t> signatures;
};

struct BroadcastLog {
  std::uint32_t flags = 0, message = 0;
  std::uint64_t wParam = 0;
  ByteString record;
  // Readably: "DBT_DEVICEARRIVAL" or "DBT_DEVICEREMOVECOMPLETE" (else empty),
  // and the letters of the record's unit mask.
  std::string event, letter;

  static BroadcastLog of(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam, ByteString record);
};

struct World {
  HostState host;
  ClockState clock;
  ControllerState controller;
  std::vector<Drive> drives;
  std::vector<Volume> volumes;
  std::vector<RegKey> registry;
  std::vector<FileEntry> files;
  WmiState wmi;
  std::vector<FaultRule> faults;
  std::vector<BroadcastLog> broadcasts;

  // A Windows 10 x64 host with C: as its NTFS system drive, an administrator
  // token, the controller present at version 5.7 build 0 and 16 GiB of memory.
  static World standard();

  // The key of that name (found without regard to case), added when missing.
  RegKey& registryKey(const std::string& name);
  // The mount-point manager records or forgets the letter it gave a partition.
  void rememberMountedDevice(char letter, const ByteString& data);
  void forgetMountedDevice(char letter);
};

}  // namespace vmd::sim
