#include "sim/call_trace.h"

#include <cstdio>

#include "base/bytes.h"
#include "base/text_codec.h"

namespace vmd::sim {

void describe(TraceLine& l, bool r) { r ? l.ok() : l.failed(); }
void describe(TraceLine& l, const SysStatus& r) { r.ok ? l.ok() : l.error(r.error); }

void describe(TraceLine& l, const ProcessEnvironment::MutexResult& r) {
  if (!r.created) {
    l.error(r.error);
    return;
  }
  l.ok();
  if (r.error) l.hex("lastError", r.error);
}

std::string interfaceClassText(const InterfaceClass& c) {
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", c.data1, c.data2, c.data3,
                c.data4[0], c.data4[1], c.data4[2], c.data4[3], c.data4[4], c.data4[5], c.data4[6], c.data4[7]);
  return text;
}

void describe(TraceLine& l, const std::optional<std::vector<DeviceSetup::Interface>>& r) {
  if (!r) {
    l.failed();
    return;
  }
  // The paths as one list, each ended by %00.
  std::string paths;
  for (const DeviceSetup::Interface& i : *r) paths += toUtf8(i.path) + '\0';
  l.ok().number("count", r->size()).text("paths", paths);
}

void describe(TraceLine& l, const DeviceIo::OpenResult& r) {
  r.handle != DeviceIo::Invalid ? l.ok() : l.error(r.error);
}

void describeControl(TraceLine& l, const DeviceIo::ControlResult& r, const void* out, std::uint32_t outSize) {
  r.ok ? l.ok() : l.error(r.error);
  l.number("returned", r.returned);
  if (r.ok && out) l.bytes("data", out, r.returned < outSize ? r.returned : outSize);
}

void describe(TraceLine& l, const VolumeService::VolumeInfo& r) {
  if (!r.ok) {
    l.error(r.error);
    return;
  }
  l.ok().text("fileSystem", toUtf8(r.fileSystem)).text("label", toUtf8(r.label)).hex("serial", r.serial);
}

void describe(TraceLine& l, const VolumeService::FreeSpace& r) {
  if (!r.ok) {
    l.error(r.error);
    return;
  }
  l.ok().number("sectorsPerCluster", r.sectorsPerCluster).number("bytesPerSector", r.bytesPerSector);
  l.number("freeClusters", r.freeClusters).number("totalClusters", r.totalClusters);
}

void describe(TraceLine& l, const VolumeService::FreeSpaceEx& r) {
  if (!r.ok) {
    l.error(r.error);
    return;
  }
  l.ok().number("freeToCaller", r.freeToCaller).number("totalBytes", r.totalBytes).number("totalFree", r.totalFree);
}

void describe(TraceLine& l, const VolumeService::Text& r) {
  r.ok ? l.ok().text("name", toUtf8(r.value)) : l.error(r.error);
}

void describe(TraceLine& l, const VolumeService::PathNames& r) {
  // The multi-string whole: each name ends with %00, the list with one more.
  if (r.ok) l.ok().text("names", toUtf8(std::wstring(r.multiString.begin(), r.multiString.end())));
  else l.error(r.error).number("needed", r.needed);
}

void describe(TraceLine& l, const FileService::Size& r) { r.ok ? l.ok().number("size", r.bytes) : l.error(r.error); }

void describe(TraceLine& l, const std::optional<Bytes>& r) {
  if (r) l.ok().number("bytes", r->size()).bytes("data", r->data(), r->size());
  else l.failed();
}

void describe(TraceLine& l, const std::optional<std::uint32_t>& r) { r ? l.ok().hex("value", *r) : l.failed(); }

void describe(TraceLine& l, const std::optional<SystemInfo::Memory>& r) {
  if (r) l.ok().number("totalPhys", r->totalPhys).number("availPhys", r->availPhys);
  else l.failed();
}

void describe(TraceLine& l, const std::optional<std::wstring>& r) { r ? l.ok().text("path", toUtf8(*r)) : l.failed(); }

void describe(TraceLine& l, const std::optional<std::vector<std::uint32_t>>& r) {
  if (!r) {
    l.failed();
    return;
  }
  std::string list;
  for (std::uint32_t s : *r) {
    if (!list.empty()) list += ',';
    list += hex32(s);
  }
  l.ok().number("count", r->size()).field("signatures", list);
}

void describeEnumerated(TraceLine& l, std::uint32_t error, const Registry::Value& v) {
  if (error) {
    l.error(error);
    return;
  }
  l.ok().text("name", toUtf8(v.name)).number("type", v.type).bytes("data", v.data.data(), v.data.size());
}

void describeMask(TraceLine& l, std::uint32_t mask) { mask ? l.ok().hex("mask", mask) : l.failed(); }
void describeType(TraceLine& l, std::uint32_t type) { l.ok().number("type", type); }
void describeAttributes(TraceLine& l, std::uint32_t a) {
  a != InvalidFileAttributes ? l.ok().hex("attributes", a) : l.failed();
}
void describeCode(TraceLine& l, std::uint32_t error) { error ? l.error(error) : l.ok(); }
void describeHresult(TraceLine& l, std::int32_t hr) {
  hr < 0 ? l.error(static_cast<std::uint32_t>(hr)) : l.ok().hex("hr", static_cast<std::uint32_t>(hr));
}
void describeBroadcast(TraceLine& l, std::int32_t r) { (r < 0 ? l.failed() : l.ok()).signedNumber("result", r); }
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
