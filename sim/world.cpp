#include "sim/world.h"

#include "base/bytes.h"

namespace vmd::sim {

std::string dosDevicesName(char letter) { return std::string("\\DosDevices\\") + letter + ":"; }

ByteString mountedDeviceData(std::uint32_t signature) {
  ByteString d(12, 0);
  put32(d.data(), signature);
  put64(d.data() + 4, kPartitionOffset);
  return d;
}

BroadcastLog BroadcastLog::of(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam, ByteString record) {
  BroadcastLog b{flags, message, wParam, std::move(record), {}, {}};
  if (wParam == 0x8000) b.event = "DBT_DEVICEARRIVAL";
  if (wParam == 0x8004) b.event = "DBT_DEVICEREMOVECOMPLETE";
  if (b.record.size() >= 16) {
    const std::uint32_t mask = get32(b.record.data() + 12);
    for (int i = 0; i < 26; ++i)
      if (mask & (1u << i)) b.letter += static_cast<char>('A' + i);
  }
  return b;
}

World World::standard() {
  World w;
  Volume c;
  c.name = "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\";
  c.interfacePath =
      "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}";
  c.mountPoints = {"C:\\"};
  c.props.fileSystem = "NTFS";
  c.props.label = "System";
  c.props.serial = 0x5A3C19E2;
  c.props.sectorsPerCluster = 8;
  c.props.bytesPerSector = 512;
  c.props.totalBytes = 255999344640ull;
  c.props.freeBytes = 118111600640ull;
  c.extents = {{0, 1048576, 255999344640ull}};
  w.volumes.push_back(c);
  Drive d;
  d.letter = 'C';
  d.volume = c.name;
  w.drives.push_back(d);
  w.registry.push_back({kMountedDevices, {}});
  return w;
}

RegKey& World::registryKey(const std::string& name) {
  for (RegKey& k : registry)
    if (sameNoCase(k.name, name)) return k;
  registry.push_back({name, {}});
  return registry.back();
}

void World::rememberMountedDevice(char letter, const ByteString& data) {
  const std::string name = dosDevicesName(letter);
  RegKey& key = registryKey(kMountedDevices);
  for (RegValue& r : key.values)
    if (sameNoCase(r.name, name)) {
      r.type = kRegBinary;
      r.data = data;
      return;
    }
  key.values.push_back({name, kRegBinary, data});
}

void World::forgetMountedDevice(char letter) {
  const std::string name = dosDevicesName(letter);
  for (RegKey& k : registry)
    if (sameNoCase(k.name, kMountedDevices))
      for (auto it = k.values.begin(); it != k.values.end(); ++it)
        if (sameNoCase(it->name, name)) {
          k.values.erase(it);
          return;
        }
}

}  // namespace vmd::sim
