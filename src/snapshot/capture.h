// A capture of the machine as the program sees it: the controller with its
// disks and their records, Invisible Memory, and the Windows side (drives,
// volumes, MountedDevices, memory, the clock). It asks only queries, through
// the program's own platform boundary and controller layer, so the same code
// reads Windows and the simulated machine. What could not be read is kept
// as a gap with its system error; everything else is as the system answered.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "controller/im_status.h"
#include "controller/controller.h"
#include "volume/volume.h"
#include "platform/platform.h"

namespace vmd::snapshot {

// Something that could not be read, and the system error that said why
// (0 where the system gives no reason).
struct Gap {
  std::wstring what;
  std::uint32_t error = 0;
};

// What GetVolumeInformationW, GetDiskFreeSpaceW and GetDiskFreeSpaceExW say of a root.
struct VolumeFacts {
  bool readable = false;  // volume information answered
  std::wstring fileSystem, label;
  std::uint32_t serial = 0;
  std::optional<std::uint32_t> sectorsPerCluster, bytesPerSector;
  std::optional<std::uint64_t> totalBytes, freeBytes, freeToCaller;
};

struct CapturedVolume {
  std::wstring name;           // \\?\Volume{...}\, empty when the system named none
  std::wstring interfacePath;  // when the volume interface class lists it
  std::vector<std::wstring> mountPoints;
  VolumeFacts facts;
  std::vector<VolumeExtent> extents;
  bool offline = false;                   // its extents request answered "not ready"
  std::optional<std::uint8_t> disk;       // the controller's disk it lives on
  std::optional<std::wstring> devicePath;  // a Direct-IO disk's own device
};

struct CapturedDrive {
  wchar_t letter = L'C';
  std::uint32_t type = drivetype::Fixed;
  std::optional<std::wstring> volume;  // the GUID name of the volume it shows
  VolumeFacts facts;                   // for a drive that shows no volume of its own
  std::uint32_t rootAttributes = InvalidFileAttributes;
};

struct CapturedDisk {
  DiskInfo info;
  std::optional<Bytes> settings;  // ReadDiskSettingsRecord, without the reply's head
  std::optional<Bytes> status;    // QueryDiskStatus
  std::optional<std::uint32_t> systemDiskNumber;  // QueryDeviceNumber (SCSI disks)
  bool arrived = true;  // its own device opens
  // QueryDosNameTarget for a Direct-IO disk's letter: the target that owns it,
  // nothing when no disk does.
  std::optional<std::uint8_t> letterOwner;
};

struct CapturedController {
  bool present = false;
  std::vector<std::wstring> interfaces;  // in enumeration order; the first is used
  std::optional<std::array<std::uint32_t, 3>> version;  // version word, second word, variant code
  bool imSupported = true;
  std::optional<Bytes> imStatus;  // QueryImStatus as answered (72 bytes, or fewer from an older manager)
  std::vector<CapturedDisk> disks;  // ascending index
};

struct RegistryDword {
  std::wstring key, value;
  std::uint32_t data = 0;
};

struct CapturedFile {
  std::wstring path;
  std::uint32_t attributes = 0;
  std::optional<std::uint64_t> size;
  std::optional<Bytes> head;  // the first 512 bytes, or fewer of a shorter file
};

struct Capture {
  bool administrator = false;
  std::optional<std::wstring> windowsDirectory;
  std::optional<SystemInfo::Memory> memory;
  std::optional<bool> autoMount;  // nothing when the mount-point manager does not answer the query
  std::uint64_t fileTime = 0;
  CapturedController controller;
  std::vector<CapturedDrive> drives;
  std::vector<CapturedVolume> volumes;
  std::optional<std::vector<Registry::Value>> mountedDevices;
  std::vector<RegistryDword> otherManagers;  // values other Invisible Memory managers keep
  std::vector<CapturedFile> files;           // the image files the disks name
  std::optional<std::vector<std::uint32_t>> wmiSignatures;  // besides the controller's disks
  std::vector<Gap> gaps;

  bool complete() const { return gaps.empty(); }
};

// Reads the machine. Sends queries only: nothing is created, changed, locked,
// dismounted or written, and the controller is opened for reading alone.
Capture captureMachine(Platform& sys);

}  // namespace vmd::snapshot
