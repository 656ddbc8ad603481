#include "controller/im_status.h"

#include "base/bytes.h"
#include "controller/codes.h"

namespace vmd {

ImStatus parseImStatus(const std::uint8_t (&raw)[72]) {
  auto u32 = [&](std::size_t at) { return static_cast<std::uint32_t>(getLE(raw, 72, at, 4)); };
  ImStatus s;
  s.recordSize = u32(0);
  s.unitSize = u32(4);
  s.firstUnit = u32(8);
  s.endUnit = u32(12);
  s.freeUnits = u32(16);
  s.state = u32(20);
  s.reserveInEffect = u32(24);
  s.quotaInEffect = u32(28);
  s.hiberDriveInEffect = u32(32);
  s.reserveConfigured = u32(36);
  s.quotaConfigured = u32(40);
  s.hiberDriveConfigured = u32(44);
  s.localState = u32(48);
  s.hiberInEffect = u32(52);
  s.hiberConfigured = u32(60);
  return s;
}

std::optional<ImStatus> queryImStatus(CImIoCtrl& controller, std::uint32_t* error) {
  std::uint8_t raw[72] = {};
  const SysResult<std::uint32_t> r = controller.request(ioctl::QueryImStatus, nullptr, 0, raw, sizeof raw);
  if (error) *error = r.error;
  if (!r.ok) return std::nullopt;
  return parseImStatus(raw);
}

bool getImFreeTotal(CImIoCtrl& controller, std::uint64_t* freeBytes, std::uint64_t* totalBytes) {
  if (freeBytes) *freeBytes = 0;
  if (totalBytes) *totalBytes = 0;
  const std::optional<ImStatus> s = queryImStatus(controller);
  if (!s || !s->valid() || s->localState != 1) return false;
  if (freeBytes) *freeBytes = std::uint64_t{s->unitSize} * s->freeUnits;
  if (totalBytes) *totalBytes = std::uint64_t{s->endUnit - s->firstUnit} * s->unitSize;
  return true;
}

}  // namespace vmd
