#include "sim/call_trace.h"

#include <cstdio>

#include "base/bytes.h"
#include "base/text_codec.h"

namespace vmd::sim {

void describe(TraceLine& l, const SysStatus& r) { r.ok ? l.ok() : l.error(r.error); }

namespace {
// "error 0x..." for a failed call; false when there is nothing more to say.
template <class T>
bool failed(TraceLine& l, const SysResult<T>& r) {
  if (!r.ok) l.error(r.error);
  return !r.ok;
}
}  // namespace

void describeMutex(TraceLine& l, const SysResult<bool>& r) {
  if (failed(l, r)) return;
  l.ok();
  if (r.value) l.hex("lastError", syserr::AlreadyExists);
}

void describeMember(TraceLine& l, const SysResult<bool>& r) {
  if (!failed(l, r)) l.ok().number("member", r.value ? 1 : 0);
}

void describeDirectory(TraceLine& l, const SysResult<bool>& r) {
  if (!failed(l, r)) l.ok().number("directory", r.value ? 1 : 0);
}

std::string interfaceClassText(const InterfaceClass& c) {
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", c.data1, c.data2, c.data3,
                c.data4[0], c.data4[1], c.data4[2], c.data4[3], c.data4[4], c.data4[5], c.data4[6], c.data4[7]);
  return text;
}

void describe(TraceLine& l, const SysResult<std::vector<DeviceSetup::Interface>>& r) {
  if (failed(l, r)) return;
  // The paths as one list, each ended by %00.
  std::string paths;
  for (const DeviceSetup::Interface& i : r.value) paths += toUtf8(i.path) + '\0';
  l.ok().number("count", r.value.size()).text("paths", paths);
}

void describe(TraceLine& l, const SysResult<DeviceIo::Handle>& r) {
  if (!failed(l, r)) l.ok();
}

void describeControl(TraceLine& l, const SysResult<std::uint32_t>& r, const void* out, std::uint32_t outSize) {
  r.ok ? l.ok() : l.error(r.error);
  l.number("returned", r.value);
  if (r.ok && out) l.bytes("data", out, r.value < outSize ? r.value : outSize);
}

void describe(TraceLine& l, const SysResult<VolumeService::VolumeInfo>& r) {
  if (failed(l, r)) return;
  l.ok().text("fileSystem", toUtf8(r.value.fileSystem)).text("label", toUtf8(r.value.label)).hex("serial", r.value.serial);
}

void describe(TraceLine& l, const SysResult<VolumeService::FreeSpace>& r) {
  if (failed(l, r)) return;
  const VolumeService::FreeSpace& f = r.value;
  l.ok().number("sectorsPerCluster", f.sectorsPerCluster).number("bytesPerSector", f.bytesPerSector);
  l.number("freeClusters", f.freeClusters).number("totalClusters", f.totalClusters);
}

void describe(TraceLine& l, const SysResult<VolumeService::FreeSpaceEx>& r) {
  if (failed(l, r)) return;
  const VolumeService::FreeSpaceEx& f = r.value;
  l.ok().number("freeToCaller", f.freeToCaller).number("totalBytes", f.totalBytes).number("totalFree", f.totalFree);
}

void describeVolumeName(TraceLine& l, const SysResult<std::wstring>& r) {
  if (!failed(l, r)) l.ok().text("name", toUtf8(r.value));
}

void describe(TraceLine& l, const SysResult<VolumeService::PathNames>& r) {
  // The multi-string whole: each name ends with %00, the list with one more.
  const VolumeService::PathNames& p = r.value;
  if (r.ok) l.ok().text("names", toUtf8(std::wstring(p.multiString.begin(), p.multiString.end())));
  else l.error(r.error).number("needed", p.needed);
}

void describeSize(TraceLine& l, const SysResult<std::uint64_t>& r) {
  if (!failed(l, r)) l.ok().number("size", r.value);
}

void describe(TraceLine& l, const SysResult<Bytes>& r) {
  if (!failed(l, r)) l.ok().number("bytes", r.value.size()).bytes("data", r.value.data(), r.value.size());
}

void describeDword(TraceLine& l, const SysResult<std::uint32_t>& r) {
  if (!failed(l, r)) l.ok().hex("value", r.value);
}

void describe(TraceLine& l, const SysResult<SystemInfo::Memory>& r) {
  if (!failed(l, r)) l.ok().number("totalPhys", r.value.totalPhys).number("availPhys", r.value.availPhys);
}

void describePath(TraceLine& l, const SysResult<std::wstring>& r) {
  if (!failed(l, r)) l.ok().text("path", toUtf8(r.value));
}

void describe(TraceLine& l, const SysResult<std::vector<std::uint32_t>>& r) {
  if (failed(l, r)) return;
  std::string list;
  for (std::uint32_t s : r.value) {
    if (!list.empty()) list += ',';
    list += hex32(s);
  }
  l.ok().number("count", r.value.size()).field("signatures", list);
}

void describe(TraceLine& l, const SysResult<Registry::Value>& r) {
  if (failed(l, r)) return;
  const Registry::Value& v = r.value;
  l.ok().text("name", toUtf8(v.name)).number("type", v.type).bytes("data", v.data.data(), v.data.size());
}

void describeMask(TraceLine& l, const SysResult<std::uint32_t>& r) {
  if (!failed(l, r)) l.ok().hex("mask", r.value);
}
void describeType(TraceLine& l, const SysResult<std::uint32_t>& r) {
  if (!failed(l, r)) l.ok().number("type", r.value);
}
void describeAttributes(TraceLine& l, const SysResult<std::uint32_t>& r) {
  if (!failed(l, r)) l.ok().hex("attributes", r.value);
}
void describeBroadcast(TraceLine& l, const SysResult<std::int32_t>& r) {
  (r.ok ? l.ok() : l.error(r.error)).signedNumber("result", r.value);
}
void describeFileTime(TraceLine& l, std::uint64_t fileTime) { l.ok().number("fileTime", fileTime); }

void describeTime(TraceLine& l, const SystemTime& t) {
  char text[64];
  std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", t.year, t.month, t.day, t.hour, t.minute,
                t.second, t.milliseconds);
  l.ok().field("time", text);
}

// The unit mask of a DEV_BROADCAST_VOLUME is its u32 at offset 12.
std::string broadcastTarget(const Bytes& record) {
  if (record.size() < 16) return "";
  std::string letters;
  const auto mask = static_cast<std::uint32_t>(getLE(record.data(), record.size(), 12, 4));
  for (int bit = 0; bit < 26; ++bit)
    if (mask & (1u << bit)) letters += std::string(1, static_cast<char>('A' + bit)) + ":";
  return letters;
}

}  // namespace vmd::sim
