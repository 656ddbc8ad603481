// Creating a disk and waiting until its volume is there with its letter.
#include "base/bytes.h"
#include "base/format.h"
#include "base/ignore_result.h"
#include "base/text_codec.h"
#include "controller/codes.h"
#include "settings/creation_record.h"
#include "volume/volume.h"

namespace vmd {

namespace {

constexpr wchar_t kMountManager[] = L"\\\\.\\MountPointManager";
// Drive letters C to Z: bits 2..25 of the logical-drives mask.
constexpr std::uint32_t kLettersCtoZ = 0x03FFFFFCu;

// Not valid when it cannot be opened; the caller then has nothing to ask.
DeviceHandle openMountManager(VolumeContext& ctx) {
  return DeviceHandle::open(ctx.io, kMountManager, DeviceIo::GenericRead | DeviceIo::GenericWrite,
                            DeviceIo::ShareRead | DeviceIo::ShareWrite, DeviceIo::AttributeNormal)
      .value;
}

std::wstring rootOf(wchar_t letter) { return format(L"%c:\\", letter); }

}  // namespace

std::optional<bool> QueryAutoMount(VolumeContext& ctx) {
  DeviceHandle mm = openMountManager(ctx);
  if (!mm.valid()) return std::nullopt;
  std::uint8_t state[4] = {};
  if (!mm.control(ioctl::MountmgrQueryAutoMount, nullptr, 0, state, sizeof state).ok) return std::nullopt;
  return getLE(state, sizeof state, 0, 4) != 0;
}

bool SetAutoMount(VolumeContext& ctx, bool on) {
  DeviceHandle mm = openMountManager(ctx);
  if (!mm.valid()) return false;
  std::uint8_t state[4] = {static_cast<std::uint8_t>(on ? 1 : 0), 0, 0, 0};
  return mm.control(ioctl::MountmgrSetAutoMount, state, sizeof state, nullptr, 0).ok;
}

bool IsDiskDeviceReady(VolumeContext& ctx, const DiskAddressBytes& address) {
  // Opened for reading only to see that it opens; closed at once.
  return DeviceHandle::open(ctx.io, diskDevicePath(addressTarget(address)), DeviceIo::GenericRead,
                            DeviceIo::ShareRead, DeviceIo::AttributeNormal)
      .ok;
}

bool FindNewDiskLetter(VolumeContext& ctx, const DiskAddressBytes& address, std::uint32_t& previousDrives,
                       std::uint32_t currentDrives, std::uint16_t& letter) {
  if (currentDrives == previousDrives) return false;
  const std::uint32_t appeared = currentDrives & ~previousDrives;
  // A letter looked at once is not looked at again.
  previousDrives = currentDrives;
  for (int bit = 0; bit < 26; ++bit) {
    if ((appeared & (1u << bit)) == 0) continue;
    const wchar_t candidate = static_cast<wchar_t>(L'A' + bit);
    const std::wstring name = format(L"\\??\\%c:", candidate);
    Bytes in;
    appendUtf16(in, name);
    in.insert(in.end(), {0, 0});
    std::uint8_t owner[12] = {};
    const SysResult<std::uint32_t> r = ctx.controller.request(
        ioctl::QueryDosDeviceOwner, in.data(), static_cast<std::uint32_t>(in.size()), owner, sizeof owner);
    if (r.ok && owner[10] == addressTarget(address)) {
      letter = static_cast<std::uint16_t>(candidate);
      return true;
    }
  }
  return false;
}

void CreateAndMountDisk(VolumeContext& ctx, MountRequest& request) {
  const Bytes& record = *request.createRequest;
  bool switchedOn = false;
  if (const std::optional<bool> autoMount = QueryAutoMount(ctx); autoMount && !*autoMount)
    switchedOn = SetAutoMount(ctx, true);

  std::uint32_t previousDrives = ctx.volumes.logicalDrives().valueOr(0);
  const SysResult<std::uint32_t> created =
      ctx.controller.request(ioctl::CreateDisk, record.data(), creationTotalLength(record), request.address.data(),
                             static_cast<std::uint32_t>(request.address.size()));
  if (!created.ok) {
    request.error = created.error != 0 ? created.error : syserr::GenFailure;
  } else {
    request.error = 0;
    request.mountStatus = mountstatus::Ready;
    request.driveLetter = 0;
    const std::uint16_t wanted = requestedLetter(record);
    if (controllerAssignsLetter(record)) {
      bool ready = false;
      for (int round = 0; round < kMountRounds && !ready; ++round) {
        ctx.clock.sleep(kControllerLetterWaitMs);
        ready = wanted != 0 ? ctx.volumes.volumeInformation(rootOf(static_cast<wchar_t>(wanted))).ok
                            : IsDiskDeviceReady(ctx, request.address);
      }
      if (ready) request.driveLetter = wanted;
      else request.mountStatus = mountstatus::VolumeNotReady;
    } else if ((previousDrives & kLettersCtoZ) != kLettersCtoZ) {
      std::uint16_t found = 0;
      bool appeared = false;
      for (int round = 0; round < kMountRounds && !appeared; ++round) {
        ctx.clock.sleep(kSystemLetterWaitMs);
        const std::uint32_t current = ctx.volumes.logicalDrives().valueOr(0);
        appeared = current != 0 && FindNewDiskLetter(ctx, request.address, previousDrives, current, found);
      }
      if (!appeared) {
        request.mountStatus = mountstatus::VolumeNotReady;
      } else if (wanted == 0 || wanted == found) {
        // With no letter asked for, the disk keeps the one it came up with.
        request.driveLetter = found;
      } else {
        request.driveLetter = wanted;
        bool keptFound = true;
        if (!MoveVolumeMountPoint(ctx, static_cast<wchar_t>(found), static_cast<wchar_t>(wanted), &keptFound)) {
          request.mountStatus = mountstatus::LetterNotMoved;
          request.driveLetter = keptFound ? found : 0;
        }
      }
    } else {
      request.mountStatus = mountstatus::NoFreeLetter;
    }
  }
  if (switchedOn) ignoreResult(SetAutoMount(ctx, false), "a failure to put automatic mounting back is not reported");
}

}  // namespace vmd
