// The Invisible Memory manager's status record and the free/total figures
// that `mem` and the settings checks read from it.
#pragma once

#include <cstdint>
#include <optional>

#include "controller/controller.h"

namespace vmd {

// The 72-byte answer to QueryImStatus; sizes in units of `unitSize` bytes.
struct ImStatus {
  std::uint32_t recordSize = 0;            // 0; below 72: the manager is too old
  std::uint32_t unitSize = 0;              // 4
  std::uint32_t firstUnit = 0;             // 8
  std::uint32_t endUnit = 0;               // 12
  std::uint32_t freeUnits = 0;             // 16
  std::uint32_t state = 0;                 // 20: 0 running, 0xFFFFFFFF not active, else not detected
  std::uint32_t reserveInEffect = 0;       // 24
  std::uint32_t quotaInEffect = 0;         // 28
  std::uint32_t hiberDriveInEffect = 0;    // 32
  std::uint32_t reserveConfigured = 0;     // 36
  std::uint32_t quotaConfigured = 0;       // 40
  std::uint32_t hiberDriveConfigured = 0;  // 44
  std::uint32_t localState = 0;            // 48: 1 when enabled for this product
  std::uint32_t hiberInEffect = 0;         // 52
  std::uint32_t hiberConfigured = 0;       // 60

  // Usable only when the manager is recent enough and running.
  bool valid() const { return recordSize >= 72 && state == 0; }
};

inline constexpr std::uint32_t kImRecordSize = 72;
inline constexpr std::uint32_t kImNotActive = 0xFFFFFFFFu;

ImStatus parseImStatus(const std::uint8_t (&raw)[72]);

// Units to MB, in 64 bits, truncated.
inline std::uint64_t imUnitsToMb(std::uint64_t units, std::uint32_t unitSize) { return units * unitSize >> 20; }

// QueryImStatus on a handle of its own; nothing on failure, the reason then
// in `error` (when asked for).
std::optional<ImStatus> queryImStatus(CImIoCtrl& controller, std::uint32_t* error = nullptr);

// Other products that manage Invisible Memory, and the 32-bit value under
// HKEY_LOCAL_MACHINE each sets (not 0) when it does, in the order they are asked.
struct OtherImManager {
  const wchar_t* key;
  const wchar_t* value;
};
inline constexpr OtherImManager kOtherImManagers[] = {
    {L"SYSTEM\\CurrentControlSet\\services\\kelvdrv\\Parameters", L"EnableIM"},
    {L"SYSTEM\\CurrentControlSet\\services\\SscRdBus\\Parameters", L"MmInstalledInMb"},
    {L"SYSTEM\\CurrentControlSet\\services\\XRamdisk\\Parameters", L"UsePAE"},
};

// True when Invisible Memory is available to this product (running manager,
// local state exactly 1); both outputs are then in bytes, else 0.
bool getImFreeTotal(CImIoCtrl& controller, std::uint64_t* freeBytes, std::uint64_t* totalBytes);

}  // namespace vmd
