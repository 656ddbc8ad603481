// Checks of volumes and drive letters: the system drive, and a scratch drive
// with a volume of its own.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

// --- Volumes.

inline void driveCIsThere(Subject& s, Report& r) {
  const SysResult<std::uint32_t> drives = s.volumes.logicalDrives();
  VERIFY(drives.ok);
  VERIFY(drives.value & (1u << 2));
}

inline void driveZMapsTheUnixRoot(Subject& s, Report& r) { VERIFY(s.volumes.logicalDrives().value & (1u << 25)); }

inline void driveTypes(Subject& s, Report& r) {
  const SysResult<std::uint32_t> c = s.volumes.driveType(L"C:\\");
  VERIFY(c.ok);
  VERIFY_EQ(c.value, drivetype::Fixed);
  // A root that is not there is an answer, not a failure.
  const SysResult<std::uint32_t> q = s.volumes.driveType(L"Q:\\");
  VERIFY(q.ok);
  VERIFY_EQ(q.value, drivetype::NoRootDir);
}

inline void volumeInformationOfC(Subject& s, Report& r) {
  const SysResult<VolumeService::VolumeInfo> read = s.volumes.volumeInformation(L"C:\\");
  VERIFY(read.ok);
  VERIFY_EQ(read.error, 0u);
  const VolumeService::VolumeInfo& v = read.value;
  VERIFY(!v.fileSystem.empty());
  VERIFY(v.fileSystem.size() <= 24);
  VERIFY(v.label.size() <= 259);
  r.note("C:\\ label " + show(v.label) + ", file system " + show(v.fileSystem) + ", serial " + hexText(v.serial));
}

inline void volumeInformationOfAMissingDriveFails(Subject& s, Report& r) {
  const SysResult<VolumeService::VolumeInfo> v = s.volumes.volumeInformation(L"Q:\\");
  VERIFY(!v.ok);
  VERIFY(v.error != 0);
}

inline void freeSpaceOfC(Subject& s, Report& r) {
  const SysResult<VolumeService::FreeSpace> f = s.volumes.diskFreeSpace(L"C:\\");
  VERIFY(f.ok);
  VERIFY(f.value.bytesPerSector > 0);
  VERIFY(f.value.sectorsPerCluster > 0);
  VERIFY(f.value.freeClusters <= f.value.totalClusters);
  const SysResult<VolumeService::FreeSpaceEx> e = s.volumes.diskFreeSpaceEx(L"C:\\");
  VERIFY(e.ok);
  VERIFY(e.value.totalBytes > 0);
  VERIFY(e.value.totalFree <= e.value.totalBytes);
  const SysResult<VolumeService::FreeSpace> missing = s.volumes.diskFreeSpace(L"Q:\\");
  VERIFY(!missing.ok);
  VERIFY(missing.error != 0);
}

inline void mountPointOfAMissingDriveIsRefused(Subject& s, Report& r) {
  const SysResult<std::wstring> t = s.volumes.volumeNameForMountPoint(L"Q:\\", 50);
  VERIFY(!t.ok);
  VERIFY(t.error != 0);
}

inline void volumeNameAndPathNamesOfC(Subject& s, Report& r) {
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(L"C:\\", 50);
  if (!name.ok) {
    r.note("no volume name for C:\\ (error " + std::to_string(name.error) + ")");
    VERIFY(name.error != 0);
    return;
  }
  VERIFY_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  const SysResult<VolumeService::PathNames> small = s.volumes.volumePathNames(name.value, 2);
  VERIFY(!small.ok);
  VERIFY_EQ(small.error, syserr::MoreData);
  VERIFY(small.value.needed > 2);
  const SysResult<VolumeService::PathNames> all = s.volumes.volumePathNames(name.value, small.value.needed);
  VERIFY(all.ok);
  const std::vector<wchar_t>& multi = all.value.multiString;
  VERIFY(multi.size() >= 2);
  VERIFY(multi.size() >= 2 && multi.back() == 0 && multi[multi.size() - 2] == 0);
  VERIFY(!multi.empty() && equalsNoCase(std::wstring(multi.data()), L"C:\\"));
}

inline void deletingAMountPointThatIsNoneFails(Subject& s, Report& r) {
  const SysStatus d = s.volumes.deleteVolumeMountPoint(s.fixture.scratchFolder() + L"\\" + uniqueName(L"nomount-") + L"\\");
  VERIFY(!d.ok);
  // Wine fails without setting a last error, so only the failure itself is checked.
  r.note("error " + std::to_string(d.error));
}

// --- A volume of its own: the scratch drive.

inline std::wstring driveRoot(Subject& s) { return std::wstring(1, s.fixture.scratchDrive()) + L":\\"; }
inline std::wstring driveDevice(Subject& s) { return L"\\\\.\\" + std::wstring(1, s.fixture.scratchDrive()) + L":"; }
inline std::uint32_t driveBit(Subject& s) { return 1u << (s.fixture.scratchDrive() - L'A'); }

inline bool haveDrive(Subject& s, Report& r) {
  if (s.fixture.scratchDrive()) return true;
  r.note("no scratch drive (VMDCTL_CONTRACT_DRIVE): skipped");
  return false;
}

inline void scratchDriveIsPresent(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY_EQ(s.volumes.driveType(driveRoot(s)).value, drivetype::Fixed);
  VERIFY(s.volumes.volumeInformation(driveRoot(s)).ok);
}

inline void volumeLocksDismountsAndUnlocks(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  SysResult<DeviceHandle> opened =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal);
  VERIFY(opened.ok);
  VERIFY_EQ(opened.error, 0u);
  DeviceHandle& volume = opened.value;
  if (!volume.valid()) return;
  const SysResult<std::uint32_t> lock = volume.control(kLockVolume);
  const SysResult<std::uint32_t> dismount = volume.control(kDismountVolume);
  const SysResult<std::uint32_t> unlock = volume.control(kUnlockVolume);
  r.note("lock " + std::to_string(lock.ok) + "/" + std::to_string(lock.error) + ", dismount " +
         std::to_string(dismount.ok) + "/" + std::to_string(dismount.error) + ", unlock " + std::to_string(unlock.ok) +
         "/" + std::to_string(unlock.error));
  VERIFY(lock.ok);
  VERIFY(unlock.ok);
  // A folder is no block device: Wine refuses to dismount it (50) and leaves
  // the drive as it was. Windows dismounts a locked volume.
  VERIFY(dismount.ok || dismount.error == syserr::NotSupported);
  VERIFY(s.volumes.volumeInformation(driveRoot(s)).ok);
}

inline void volumeAnswersThePartitionQueryOrRefusesIt(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  DeviceHandle volume =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal).value;
  VERIFY(volume.valid());
  std::uint8_t info[32] = {};
  const SysResult<std::uint32_t> c = volume.control(kGetPartitionInfo, nullptr, 0, info, sizeof(info));
  // Wine has no partitions behind a mapped folder (50); on Windows a volume
  // answers with its PARTITION_INFORMATION, starting offset first.
  if (c.ok) VERIFY_EQ(c.value, 32u);
  else VERIFY_EQ(c.error, syserr::NotSupported);
}

inline void volumeFlushNeedsWriteAccess(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  DeviceHandle readOnly =
      DeviceHandle::open(s.io, driveDevice(s), DeviceIo::GenericRead, kShareReadWrite, DeviceIo::AttributeNormal).value;
  const SysStatus refused = readOnly.flush();
  DeviceHandle readWrite =
      DeviceHandle::open(s.io, driveDevice(s), kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal).value;
  VERIFY(readWrite.valid());
  const SysStatus flushed = readWrite.flush();
  r.note("read only " + std::to_string(refused.ok) + "/" + std::to_string(refused.error) + ", read and write " +
         std::to_string(flushed.ok) + "/" + std::to_string(flushed.error));
  // Windows answers 5 for a volume opened for reading; Wine cannot flush a
  // folder's handle at all and answers 1 (invalid function) either way.
  VERIFY(!refused.ok);
  VERIFY(refused.error == syserr::AccessDenied || refused.error == syserr::InvalidFunction);
  VERIFY(flushed.ok || flushed.error == syserr::InvalidFunction);
}

inline void volumeMountPointsAreNotMovedByWine(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(driveRoot(s), 260);
  VERIFY(name.ok);
  if (!name.ok) return;
  VERIFY_EQ(name.value.rfind(L"\\\\?\\Volume{", 0), std::size_t{0});
  VERIFY_EQ(name.value.back(), L'\\');
  // Wine implements neither call (120, ERROR_CALL_NOT_IMPLEMENTED), so a
  // letter moved through the mount-point manager stays where it was; the
  // program then puts the volume back and reports the move as failed.
  const SysStatus set = s.volumes.setVolumeMountPoint(L"S:\\", name.value);
  const SysStatus del = s.volumes.deleteVolumeMountPoint(driveRoot(s));
  r.note("set S:\\ " + std::to_string(set.ok) + "/" + std::to_string(set.error) + ", delete " + toUtf8(driveRoot(s)) +
         " " + std::to_string(del.ok) + "/" + std::to_string(del.error));
  VERIFY(!set.ok);
  VERIFY_EQ(set.error, 120u);
  VERIFY(!del.ok);
  VERIFY_EQ(del.error, 120u);
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY(!(s.volumes.logicalDrives().value & (1u << (L'S' - L'A'))));
}

inline void volumeMountPointMovesAndComesBack(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const SysResult<std::wstring> name = s.volumes.volumeNameForMountPoint(driveRoot(s), 260);
  VERIFY(name.ok);
  if (!name.ok) return;
  VERIFY_EQ(name.value.back(), L'\\');
  const std::uint32_t sBit = 1u << (L'S' - L'A');
  VERIFY(s.volumes.deleteVolumeMountPoint(driveRoot(s)).ok);
  VERIFY(!(s.volumes.logicalDrives().value & driveBit(s)));
  VERIFY(s.volumes.setVolumeMountPoint(L"S:\\", name.value).ok);
  VERIFY(s.volumes.logicalDrives().value & sBit);
  VERIFY_EQ(s.volumes.volumeNameForMountPoint(L"S:\\", 260).value, name.value);
  // A letter that is taken refuses the volume (145); nothing mounted there: 2.
  VERIFY_EQ(s.volumes.setVolumeMountPoint(L"C:\\", name.value).error, 145u);
  VERIFY_EQ(s.volumes.deleteVolumeMountPoint(L"Q:\\").error, syserr::FileNotFound);
  VERIFY(s.volumes.deleteVolumeMountPoint(L"S:\\").ok);
  VERIFY(s.volumes.setVolumeMountPoint(driveRoot(s), name.value).ok);
  VERIFY(s.volumes.logicalDrives().value & driveBit(s));
  VERIFY(!(s.volumes.logicalDrives().value & sBit));
}

inline void volumeLabelIsSetAndRemoved(Subject& s, Report& r) {
  if (!haveDrive(s, r)) return;
  const std::wstring label = L"VMDCTL";
  const std::wstring labelFile = driveRoot(s) + L".windows-label";
  VERIFY(s.volumes.setVolumeLabel(driveRoot(s), &label).ok);
  const SysResult<VolumeService::VolumeInfo> after = s.volumes.volumeInformation(driveRoot(s));
  VERIFY(after.ok);
  if (after.value.label != label) {
    // Wine keeps the label of a mapped folder in a file at its root, and
    // GetVolumeInformationW goes on answering the mount manager's label.
    const SysResult<Bytes> kept = s.files.readHead(labelFile, 64);
    VERIFY(kept.ok);
    VERIFY_EQ(std::string(kept.value.begin(), kept.value.end()), std::string("VMDCTL\n"));
  }
  VERIFY(s.volumes.setVolumeLabel(driveRoot(s), nullptr).ok);
  VERIFY_EQ(s.volumes.volumeInformation(driveRoot(s)).value.label, std::wstring());
  const SysResult<Bytes> removed = s.files.readHead(labelFile, 64);
  VERIFY(!removed.ok || removed.value.size() <= 1);
  const SysStatus missing = s.volumes.setVolumeLabel(L"Q:\\", &label);
  VERIFY(!missing.ok);
  VERIFY(missing.error != 0);
  r.note("Q: error " + std::to_string(missing.error));
}

}  // namespace vmd::contract
