#include "snapshot/capture.h"

#include <algorithm>
#include <cwchar>

#include "base/bytes.h"
#include "base/drive_letter.h"
#include "base/format.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "controller/controller.h"
#include "settings/disk_settings.h"
#include "settings/settings_record.h"

namespace vmd::snapshot {

namespace {

constexpr std::uint32_t kVolumeNameChars = 260;  // the program's own buffers
constexpr std::uint32_t kPathNamesChars = 261;
constexpr int kPathNamesTries = 16;
constexpr std::uint32_t kExtentsFirstBytes = 752;
constexpr std::uint32_t kExtentsMostBytes = 8 + 24 * 4096;
constexpr std::uint32_t kImageHeadBytes = 512;
// The settings reply begins with a 12-byte head; the program gives the
// controller its buffer less 4 bytes, and so does the capture.
constexpr std::size_t kSettingsReplyHead = 12;
constexpr std::uint32_t kSettingsWithheld = 4;
constexpr std::uint32_t kNoMedia = syserr::NotReady;
const wchar_t kMountPointManager[] = L"\\\\.\\MountPointManager";
const wchar_t kMountedDevices[] = L"SYSTEM\\MountedDevices";

constexpr std::uint32_t kShareAll = DeviceIo::ShareRead | DeviceIo::ShareWrite;

// Answers that say the system has no such thing to report, rather than that it could not tell.
bool notSupported(std::uint32_t error) {
  return error == syserr::InvalidFunction || error == syserr::NotSupported;
}

std::wstring withoutTrailingSlash(std::wstring path) {
  while (path.size() > 3 && path.back() == L'\\') path.pop_back();
  return path;
}

bool isLetterRoot(const std::wstring& mp, wchar_t letter) {
  return mp.size() == 3 && asciiUpper(mp[0]) == asciiUpper(letter) && mp[1] == L':' && mp[2] == L'\\';
}

class Reader {
 public:
  Reader(Platform& sys, Capture& c) : sys_(sys), c_(c), controller_(sys.setup, sys.io) {
    controller_.openForQueriesOnly();
  }

  void run() {
    readHost();
    readController();
    readDrivesAndVolumes();
    joinDisksToVolumes();
    readRegistry();
    readImageFiles();
    readWmi();
  }

 private:
  void gap(std::wstring what, std::uint32_t error) { c_.gaps.push_back({std::move(what), error}); }

  void readHost() {
    const SysResult<bool> admin = sys_.process.tokenHasAdministrators();
    if (admin.ok) c_.administrator = admin.value;
    else gap(L"the groups of the process token (GetTokenInformation)", admin.error);
    c_.fileTime = sys_.clock.systemTimeAsFileTime();
    if (SysResult<std::wstring> folder = sys_.system.windowsDirectory(); folder.ok)
      c_.windowsDirectory = std::move(folder.value);
    else
      gap(L"the Windows folder (GetSystemWindowsDirectoryW)", folder.error);
    if (const SysResult<SystemInfo::Memory> memory = sys_.system.memoryStatus(); memory.ok)
      c_.memory = memory.value;
    else
      gap(L"the memory status (GlobalMemoryStatusEx)", memory.error);
    std::uint8_t on[4] = {};
    const SysResult<std::uint32_t> r = sendRequest(sys_.io, kMountPointManager, 0, kShareAll, DeviceIo::AttributeNormal,
                                    ioctl::MountmgrQueryAutoMount, nullptr, 0, on, sizeof on);
    if (r.ok) c_.autoMount = getLE(on, sizeof on, 0, 4) != 0;
    else if (!notSupported(r.error)) gap(L"the automatic mounting of new volumes (IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT)", r.error);
  }

  void readController() {
    CapturedController& cc = c_.controller;
    const auto found = sys_.setup.presentInterfaces(kControllerInterface, DeviceSetup::Scope::All);
    if (!found.ok) {
      gap(L"the controller's device interfaces (SetupDiGetClassDevsW)", found.error);
      return;
    }
    for (const DeviceSetup::Interface& i : found.value) cc.interfaces.push_back(i.path);
    // The program uses the interface enumerated first, as discovery finds it.
    if (!controller_.discover() || controller_.devicePath().empty()) return;
    cc.present = true;

    std::uint8_t version[12] = {};
    SysResult<std::uint32_t> r = controller_.request(ioctl::QueryControllerVersion, nullptr, 0, version, sizeof version);
    if (r.ok)
      cc.version = {static_cast<std::uint32_t>(getLE(version, 12, 0, 4)),
                    static_cast<std::uint32_t>(getLE(version, 12, 4, 4)),
                    static_cast<std::uint32_t>(getLE(version, 12, 8, 4))};
    else
      gap(L"the controller's version", r.error);

    std::uint8_t im[kImRecordSize] = {};
    r = controller_.request(ioctl::QueryImStatus, nullptr, 0, im, sizeof im);
    if (r.ok) cc.imStatus = Bytes(im, im + std::min<std::uint32_t>(r.value, sizeof im));
    else if (r.error == syserr::InvalidFunction) cc.imSupported = false;  // no Invisible Memory manager
    else gap(L"the Invisible Memory status", r.error);

    std::array<std::uint8_t, 16> bitmap{};
    r = controller_.request(ioctl::QueryDiskBitmap, nullptr, 0, bitmap.data(), 16);
    if (!r.ok) {
      gap(L"the controller's list of disks", r.error);
      return;
    }
    for (std::uint8_t index : disksInBitmap(bitmap)) readDisk(index);
  }

  void readDisk(std::uint8_t index) {
    const auto head = diskAddress(index);
    std::uint8_t raw[32] = {};
    SysResult<std::uint32_t> r = controller_.request(ioctl::QueryDiskInfo, head.data(), 12, raw, 32);
    if (!r.ok) {
      gap(format(L"disk #%d", static_cast<int>(index)), r.error);
      return;
    }
    CapturedDisk d;
    d.info = parseDiskInfo(raw);
    std::uint32_t error = 0;
    if (auto reply = requestGrowingReply(controller_, ioctl::ReadDiskSettingsRecord, index, kSettingsWithheld, &error);
        reply && reply->size() >= kSettingsReplyHead)
      d.settings = Bytes(reply->begin() + kSettingsReplyHead, reply->end());
    else
      gap(format(L"the settings record of disk #%d", static_cast<int>(index)), reply ? syserr::InvalidData : error);
    d.status = requestGrowingReply(controller_, ioctl::QueryDiskStatus, index, 0, &error);
    if (!d.status) gap(format(L"the status of disk #%d", static_cast<int>(index)), error);

    if (d.info.directIo) {
      if (d.info.letter != 0) readLetterOwner(d);
    } else {
      std::uint8_t number[12] = {};
      r = controller_.request(ioctl::QueryDeviceNumber, head.data(), 12, number, sizeof number);
      if (r.ok) d.systemDiskNumber = static_cast<std::uint32_t>(getLE(number, 12, 4, 4));
      else if (!notSupported(r.error)) gap(format(L"the system disk number of disk #%d", static_cast<int>(index)), r.error);
    }

    // A disk that has arrived has its own device; opened without access, only to see it is there.
    const SysResult<DeviceIo::Handle> device =
        sys_.io.open(diskDevicePath(index), 0, kShareAll, DeviceIo::OpenExisting, DeviceIo::AttributeNormal);
    if (device.ok) sys_.io.close(device.value);
    else if (device.error == syserr::FileNotFound || device.error == syserr::PathNotFound) d.arrived = false;
    else gap(format(L"the device of disk #%d", static_cast<int>(index)), device.error);
    c_.controller.disks.push_back(std::move(d));
  }

  void readLetterOwner(CapturedDisk& d) {
    std::uint8_t name[14] = {};
    putUtf16z(name, sizeof name, std::wstring{L'\\', L'?', L'?', L'\\', d.info.letter, L':'});
    std::uint8_t out[12] = {};
    const SysResult<std::uint32_t> r = controller_.request(ioctl::QueryDosNameTarget, name, sizeof name, out, sizeof out);
    if (r.ok) d.letterOwner = out[10];
    else if (r.error != syserr::FileNotFound)
      gap(format(L"the owner of drive %c: (disk #%d)", d.info.letter, static_cast<int>(d.info.number)), r.error);
  }

  // GetVolumeInformationW and the two free-space calls on one root. A root
  // without a volume to read (a drive without its medium) is a fact, not a
  // gap; so is any refusal of a disk's own device, which is no volume's root
  // where the system mounts the disk's volume elsewhere.
  VolumeFacts readFacts(const std::wstring& root, bool deviceRoot = false) {
    VolumeFacts f;
    const SysResult<VolumeService::VolumeInfo> info = sys_.volumes.volumeInformation(root);
    if (!info.ok) {
      if (!deviceRoot && info.error != kNoMedia && !notSupported(info.error))
        gap(L"the volume information of " + root, info.error);
      return f;
    }
    f.readable = true;
    f.fileSystem = info.value.fileSystem;
    f.label = info.value.label;
    f.serial = info.value.serial;
    const SysResult<VolumeService::FreeSpace> space = sys_.volumes.diskFreeSpace(root);
    if (space.ok) {
      f.sectorsPerCluster = space.value.sectorsPerCluster;
      f.bytesPerSector = space.value.bytesPerSector;
    } else {
      gap(L"the cluster size of " + root, space.error);
    }
    const SysResult<VolumeService::FreeSpaceEx> size = sys_.volumes.diskFreeSpaceEx(root);
    if (size.ok) {
      f.totalBytes = size.value.totalBytes;
      f.freeBytes = size.value.totalFree;
      f.freeToCaller = size.value.freeToCaller;
    } else {
      gap(L"the size of " + root, size.error);
    }
    return f;
  }

  CapturedVolume& volumeNamed(const std::wstring& name) {
    for (CapturedVolume& v : c_.volumes)
      if (!name.empty() && equalsNoCase(v.name, name)) return v;
    c_.volumes.push_back({});
    c_.volumes.back().name = name;
    return c_.volumes.back();
  }

  void readDrivesAndVolumes() {
    const SysResult<std::uint32_t> drives = sys_.volumes.logicalDrives();
    if (!drives.ok) gap(L"the drive letters in use (GetLogicalDrives)", drives.error);
    const std::uint32_t mask = drives.valueOr(0);
    for (int bit = 0; bit < 26; ++bit) {
      if (!(mask & (1u << bit))) continue;
      CapturedDrive d;
      d.letter = static_cast<wchar_t>(L'A' + bit);
      const std::wstring root = driveRoot(d.letter);
      d.type = sys_.volumes.driveType(root).valueOr(drivetype::Unknown);
      d.rootAttributes = sys_.files.attributes(root).valueOr(InvalidFileAttributes);
      const SysResult<std::wstring> name = sys_.volumes.volumeNameForMountPoint(root, kVolumeNameChars);
      if (name.ok) {
        d.volume = name.value;
        volumeNamed(name.value);
      }
      d.facts = readFacts(root);
      c_.drives.push_back(std::move(d));
    }
    if (const auto listed = sys_.setup.presentInterfaces(kVolumeInterface, DeviceSetup::Scope::All); listed.ok) {
      for (const DeviceSetup::Interface& i : listed.value) {
        const SysResult<std::wstring> name =
            sys_.volumes.volumeNameForMountPoint(withoutTrailingSlash(i.path) + L"\\", kVolumeNameChars);
        if (!name.ok) {
          gap(L"the volume name of " + i.path, name.error);
          continue;
        }
        // A volume listed by its own name has no interface path of its own.
        if (!equalsNoCase(i.path, name.value)) volumeNamed(name.value).interfacePath = i.path;
        else volumeNamed(name.value);
      }
    } else {
      gap(L"the volume device interfaces (SetupDiGetClassDevsW)", listed.error);
    }
    for (CapturedVolume& v : c_.volumes) readVolume(v);
  }

  void readVolume(CapturedVolume& v) {
    std::uint32_t chars = kPathNamesChars;
    for (int tries = 0; tries < kPathNamesTries; ++tries) {
      const SysResult<VolumeService::PathNames> r = sys_.volumes.volumePathNames(v.name, chars);
      if (r.ok) {
        const std::vector<wchar_t>& list = r.value.multiString;
        for (const wchar_t* p = list.data(); p && *p; p += std::wcslen(p) + 1) v.mountPoints.emplace_back(p);
        break;
      }
      if (r.error != syserr::MoreData || r.value.needed <= chars) {
        gap(L"the mount points of " + v.name, r.error);
        break;
      }
      chars = r.value.needed;
    }
    // A drive letter shows the volume as the program reads it; the GUID name otherwise.
    std::wstring root = v.name;
    for (const CapturedDrive& d : c_.drives)
      if (d.volume && equalsNoCase(*d.volume, v.name)) {
        root = driveRoot(d.letter);
        break;
      }
    v.facts = readFacts(root);
    const std::uint32_t type = sys_.volumes.driveType(root).valueOr(drivetype::Unknown);
    if (type == drivetype::Fixed || type == drivetype::Removable) readExtents(v, root);
  }

  void readExtents(CapturedVolume& v, const std::wstring& root) {
    // Opened as the program opens a volume for its extents: no access, shared.
    const std::wstring path = root.size() == 3 ? L"\\\\.\\" + root.substr(0, 2)
                              : !v.interfacePath.empty() ? v.interfacePath
                                                         : withoutTrailingSlash(v.name);
    for (std::uint32_t size = kExtentsFirstBytes;;) {
      Bytes buffer(size);
      const SysResult<std::uint32_t> r = sendRequest(sys_.io, path, 0, kShareAll, DeviceIo::AttributeNormal,
                                      ioctl::VolumeGetVolumeDiskExtents, nullptr, 0, buffer.data(), size);
      if (r.ok) {
        v.extents = parseVolumeExtents(buffer.data(), std::min<std::size_t>(r.value, buffer.size()));
        return;
      }
      const std::uint64_t needed = 8 + 24 * getLE(buffer.data(), buffer.size(), 0, 4);
      if (r.error == syserr::MoreData && needed > size && needed <= kExtentsMostBytes) {
        size = static_cast<std::uint32_t>(needed);
        continue;
      }
      if (r.error == syserr::NotReady) v.offline = true;
      else if (!notSupported(r.error)) gap(L"the disk extents of " + path, r.error);
      return;
    }
  }

  // Which volume lives on which of the controller's disks: a SCSI disk's by
  // its extents on the disk's system disk number, a Direct-IO disk's by the
  // letter the controller says it owns, else through the disk's own device.
  void joinDisksToVolumes() {
    for (const CapturedDisk& d : c_.controller.disks) {
      if (!d.arrived) continue;
      const std::uint8_t index = d.info.number;
      if (!d.info.directIo) {
        if (!d.systemDiskNumber) continue;
        for (CapturedVolume& v : c_.volumes) {
          if (v.disk) continue;
          for (const VolumeExtent& e : v.extents)
            if (e.disk == *d.systemDiskNumber) v.disk = index;
        }
        continue;
      }
      const std::wstring device = diskDevicePath(index);
      const bool ownsLetter = d.info.letter != 0 && d.letterOwner && *d.letterOwner == index;
      auto drive = std::find_if(c_.drives.begin(), c_.drives.end(), [&](const CapturedDrive& x) {
        return ownsLetter && asciiUpper(x.letter) == asciiUpper(d.info.letter);
      });
      CapturedVolume* v = nullptr;
      if (drive != c_.drives.end() && drive->volume) {
        v = &volumeNamed(*drive->volume);
      } else if (const SysResult<std::wstring> byDevice = sys_.volumes.volumeNameForMountPoint(device + L"\\", kVolumeNameChars);
                 byDevice.ok && std::any_of(c_.volumes.begin(), c_.volumes.end(), [&](const CapturedVolume& x) {
                   return equalsNoCase(x.name, byDevice.value);
                 })) {
        v = &volumeNamed(byDevice.value);  // its volume, at a letter the controller no longer says is its
      } else {
        c_.volumes.push_back({});
        v = &c_.volumes.back();
        v->facts = drive != c_.drives.end() ? drive->facts : readFacts(device + L"\\", true);
        if (drive != c_.drives.end()) v->mountPoints.push_back(driveRoot(drive->letter));
      }
      v->disk = index;
      v->devicePath = device;
    }
    // A letter that shows a disk's volume is that volume's mount point, no drive of its own.
    std::erase_if(c_.drives, [&](const CapturedDrive& d) {
      if (!d.volume) return false;
      for (const CapturedVolume& v : c_.volumes)
        if (v.disk && equalsNoCase(v.name, *d.volume))
          for (const std::wstring& mp : v.mountPoints)
            if (isLetterRoot(mp, d.letter)) return true;
      return false;
    });
  }

  void readRegistry() {
    SysResult<std::vector<Registry::Value>> values = sys_.registry.readValues(kMountedDevices);
    if (values.ok) c_.mountedDevices = std::move(values.value);
    else gap(std::wstring(L"the values of HKEY_LOCAL_MACHINE\\") + kMountedDevices, values.error);
    for (const OtherImManager& m : kOtherImManagers)
      if (const SysResult<std::uint32_t> v = sys_.registry.readDword(m.key, m.value); v.ok)
        c_.otherManagers.push_back({m.key, m.value, v.value});
  }

  // The image files the disks' settings and status name: an image the
  // commands read or write is the same file in the copy.
  void readImageFiles() {
    for (const CapturedDisk& d : c_.controller.disks) {
      for (const std::optional<Bytes>* record : {&d.settings, &d.status}) {
        if (!*record) continue;
        DiskSettings s;
        DiskSettingsFromRecord(**record, s);
        if (s.imageFile.empty()) continue;
        const bool known = std::any_of(c_.files.begin(), c_.files.end(),
                                       [&](const CapturedFile& f) { return equalsNoCase(f.path, s.imageFile); });
        if (!known) readFile(s.imageFile);
      }
    }
  }

  void readFile(const std::wstring& path) {
    CapturedFile f;
    f.path = path;
    const SysResult<std::uint32_t> attributes = sys_.files.attributes(path);
    if (!attributes.ok) {
      // Not there: nothing to copy. Any other refusal is a gap in the copy.
      if (attributes.error != syserr::FileNotFound && attributes.error != syserr::PathNotFound)
        gap(L"the attributes of " + path, attributes.error);
      return;
    }
    f.attributes = attributes.value;
    if (!(f.attributes & 0x10)) {
      const SysResult<std::uint64_t> size = sys_.files.fileSize(path);
      if (size.ok) f.size = size.value;
      else gap(L"the size of " + path, size.error);
      if (SysResult<Bytes> head = sys_.files.readHead(path, kImageHeadBytes); head.ok)
        f.head = std::move(head.value);
      else
        gap(L"the first bytes of " + path, head.error);
    }
    c_.files.push_back(std::move(f));
  }

  void readWmi() {
    const SysStatus com = sys_.process.comInitialize();
    if (!com.ok) {
      gap(L"the disk signatures of Win32_DiskDrive (CoInitialize)", com.error);
      return;
    }
    SysResult<std::vector<std::uint32_t>> found = sys_.system.diskDriveSignatures();
    sys_.process.comUninitialize();
    if (!found.ok) {
      gap(L"the disk signatures of Win32_DiskDrive", found.error);
      return;
    }
    std::optional<std::vector<std::uint32_t>> signatures = std::move(found.value);
    // The copy's controller reports its own disks' signatures itself.
    for (const CapturedDisk& d : c_.controller.disks) {
      if (!d.settings || d.settings->size() < DiskSettingsRecord::Header::Size) continue;
      const std::uint32_t own = get32(*d.settings, DiskSettingsRecord::Header::Signature);
      if (auto it = std::find(signatures->begin(), signatures->end(), own); it != signatures->end()) signatures->erase(it);
    }
    c_.wmiSignatures = std::move(signatures);
  }

  Platform& sys_;
  Capture& c_;
  CVmDevControl controller_;
};

}  // namespace

Capture captureMachine(Platform& sys) {
  Capture c;
  Reader(sys, c).run();
  return c;
}

}  // namespace vmd::snapshot
