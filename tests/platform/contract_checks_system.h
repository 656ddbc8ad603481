// Checks of system information, the clock, the mount-point manager and
// broadcasts.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

// --- System information and the clock.

inline void memoryIsReported(Subject& s, Report& r) {
  const SysResult<SystemInfo::Memory> m = s.system.memoryStatus();
  VERIFY(m.ok);
  VERIFY(m.value.totalPhys > 0);
  VERIFY(m.value.availPhys <= m.value.totalPhys);
}

inline void windowsDirectoryIsCWindows(Subject& s, Report& r) {
  const SysResult<std::wstring> dir = s.system.windowsDirectory();
  VERIFY(dir.ok);
  VERIFY(equalsNoCase(dir.value, L"C:\\windows"));
}

inline void clockAgreesWithItselfAndSleepWaits(Subject& s, Report& r) {
  const std::uint64_t before = s.clock.systemTimeAsFileTime();
  const SystemTime t = s.clock.systemTime();
  VERIFY(t.year >= 2024);
  VERIFY(t.month >= 1 && t.month <= 12);
  VERIFY(t.day >= 1 && t.day <= 31);
  VERIFY(t.dayOfWeek <= 6);
  VERIFY(t.hour <= 23 && t.minute <= 59 && t.second <= 60 && t.milliseconds <= 999);
  s.clock.sleep(50);
  const std::uint64_t after = s.clock.systemTimeAsFileTime();
  VERIFY(after >= before + 40 * 10000ull);  // 100 ns units
  VERIFY(before > 133485408000000000ull);   // after 2024-01-01
}

inline void diskSignaturesComeFromWmi(Subject& s, Report& r) {
  VERIFY(s.process.comInitialize().ok);
  const SysResult<std::vector<std::uint32_t>> signatures = s.system.diskDriveSignatures();
  VERIFY(signatures.ok);
  if (signatures.ok) r.note(std::to_string(signatures.value.size()) + " signature(s)");
  else r.note("error " + hexText(signatures.error));
  s.process.comUninitialize();
}

// --- The mount-point manager.

inline void mountPointManagerOpensAndAnswersTheAutoMountQuery(Subject& s, Report& r) {
  SysResult<DeviceHandle> opened =
      DeviceHandle::open(s.io, L"\\\\.\\MountPointManager", kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal);
  VERIFY(opened.ok);
  if (!opened.ok) {
    r.note("open error " + std::to_string(opened.error));
    return;
  }
  DeviceHandle& mgr = opened.value;
  std::uint32_t state = 0xAAAAAAAA;
  const SysResult<std::uint32_t> q = mgr.control(kQueryAutoMount, nullptr, 0, &state, sizeof(state));
  r.note("query: ok " + std::to_string(q.ok) + ", error " + std::to_string(q.error) + ", returned " +
         std::to_string(q.value) + ", state " + std::to_string(state));
  if (q.ok) {
    VERIFY_EQ(q.value, 4u);
  } else {
    // Wine's mount manager does not know the request (error 50).
    VERIFY_EQ(q.error, syserr::NotSupported);
  }
  // Set what is already in effect (enabled when the query cannot tell), so a
  // real machine keeps its setting.
  const std::uint32_t keep = q.ok ? (state ? 1u : 0u) : 1u;
  const SysResult<std::uint32_t> set = mgr.control(kSetAutoMount, &keep, sizeof(keep));
  r.note("set " + std::to_string(keep) + ": ok " + std::to_string(set.ok) + ", error " + std::to_string(set.error));
  if (!q.ok) VERIFY_EQ(set.error, syserr::NotSupported);
  else VERIFY(set.ok);
}

// --- Broadcasts.

inline void broadcastOfAVolumeArrival(Subject& s, Report& r) {
  // DEV_BROADCAST_VOLUME for Q: (unit mask bit 16), 20 bytes with its padding.
  const Bytes record{20, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
  const SysResult<std::int32_t> arrival = s.broadcast.broadcast(0x122, 0x219, 0x8000, record);
  r.note("result " + std::to_string(arrival.value));
  VERIFY(arrival.ok);
  VERIFY(arrival.value > 0);
  const SysResult<std::int32_t> removal = s.broadcast.broadcast(0x122, 0x219, 0x8004, record);
  VERIFY(removal.ok);
  VERIFY(removal.value > 0);
  // Flags the system does not know: Windows refuses with -1 (not ok), Wine
  // answers 0, a broadcast that reached nobody; neither answers a success.
  const SysResult<std::int32_t> bad = s.broadcast.broadcast(0x80000000u | 0x122, 0x219, 0x8000, record);
  r.note("unknown flags: ok " + std::to_string(bad.ok) + ", result " + std::to_string(bad.value));
  VERIFY(bad.value <= 0);
  VERIFY(!bad.ok || bad.value == 0);
}

}  // namespace vmd::contract
