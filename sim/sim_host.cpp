// The simulated Windows side of the controller's events: a disk's arrival
// brings its volume, which the mount-point manager gives a letter as Windows
// does (the letter MountedDevices remembers for the disk, else the first free
// one from C, none while automatic mounting is off); a departure takes it away.
#include <cstdio>

#include "base/drive_letter.h"
#include "base/text_codec.h"
#include "sim/machine.h"

namespace vmd::sim {

namespace {

std::string fileSystemName(std::uint8_t code) {
  switch (code) {
    case 2: return "NTFS";
    case 18: return "FAT";
    case 19: return "FAT32";
    default: return "";
  }
}

std::string diskDevice(std::uint8_t index) { return "\\\\.\\VelmoRdDevPort0Target" + std::to_string(index); }

std::string letterText(char16_t letter) { return letter ? std::string(1, static_cast<char>(letter)) : ""; }

}  // namespace

Volume derivedVolume(const DiskFacts& disk) {
  char guid[64];
  std::snprintf(guid, sizeof guid, "%08x-%04x-4d52-8000-%012x", disk.signature, disk.index,
                static_cast<unsigned>(disk.index));
  Volume v;
  v.name = std::string("\\\\?\\Volume{") + guid + "}\\";
  v.interfacePath = std::string("\\\\?\\STORAGE#Volume#{") + guid + "}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}";
  v.disk = disk.index;
  const std::string fs = fileSystemName(disk.fileSystem);
  if (!fs.empty()) v.props.fileSystem = fs;
  v.props.label = toUtf8(std::wstring(disk.label.begin(), disk.label.end()));
  v.props.serial = disk.serial;
  v.props.bytesPerSector = 512;
  v.props.sectorsPerCluster = disk.clusterBytes ? disk.clusterBytes / 512 : 8;
  const std::uint64_t bytes = disk.directIo ? disk.size : (disk.size > kPartitionOffset ? disk.size - kPartitionOffset : 0);
  v.props.totalBytes = bytes;
  v.props.freeBytes = bytes - bytes / 64;  // the file system's own structures take a little
  if (disk.directIo) {
    v.devicePath = diskDevice(disk.index);
  } else {
    v.extents = {{disk.diskNumber, kPartitionOffset, bytes}};
  }
  return v;
}

std::uint64_t SimHost::nowMs() { return m_.nowMs(); }

bool SimHost::letterFree(char16_t letter) {
  const char l = asciiUpper(static_cast<char>(letter));
  for (const Drive& d : m_.world.drives)
    if (asciiUpper(d.letter) == l) return false;
  for (const Volume& v : m_.world.volumes)
    if (v.disk)
      for (const std::string& mp : v.mountPoints)
        if (mountPointLetter(mp) == l) return false;
  return true;
}

void SimHost::diskArrived(const DiskFacts& disk) {
  World& w = m_.world;
  for (auto it = w.volumes.begin(); it != w.volumes.end();)
    it = (it->disk && *it->disk == disk.index) ? w.volumes.erase(it) : it + 1;
  Volume v = derivedVolume(disk);
  assignLetter(v, disk);
  w.volumes.push_back(v);
  if (TraceSink* t = m_.trace()) {
    TraceLine line("DiskArrived", diskDevice(disk.index));
    line.text("volume", v.name);
    if (!v.mountPoints.empty()) line.text("mountPoint", v.mountPoints.front());
    t->event(line);
  }
}

void SimHost::assignLetter(Volume& v, const DiskFacts& disk) {
  World& w = m_.world;
  char letter = 0;
  if (disk.directIo) {
    letter = static_cast<char>(disk.letter);  // the controller's own
  } else if (w.host.autoMount) {
    const ByteString data = mountedDeviceData(disk.signature);
    for (const RegValue& r : w.registryKey(kMountedDevices).values) {
      const std::string& n = r.name;
      if (r.type == kRegBinary && r.data == data && n.size() == 14 && n.rfind("\\DosDevices\\", 0) == 0 && n[13] == ':' &&
          letterFree(static_cast<char16_t>(asciiUpper(n[12])))) {
        letter = asciiUpper(n[12]);
        break;
      }
    }
    for (char c = 'C'; !letter && c <= 'Z'; ++c)
      if (letterFree(static_cast<char16_t>(c))) letter = c;
    if (letter) w.rememberMountedDevice(letter, data);  // for this disk's next arrival
  }
  if (letter) v.mountPoints.push_back(std::string(1, letter) + ":\\");
}

void SimHost::diskRemoved(std::uint8_t index) {
  World& w = m_.world;
  for (auto it = w.volumes.begin(); it != w.volumes.end();)
    it = (it->disk && *it->disk == index) ? w.volumes.erase(it) : it + 1;
  if (TraceSink* t = m_.trace()) t->event(TraceLine("DiskGone", diskDevice(index)));
}

bool SimHost::diskLetterChanged(std::uint8_t index, char16_t oldLetter, char16_t newLetter) {
  if (TraceSink* t = m_.trace()) {
    TraceLine line("DiskLetterChanged", diskDevice(index));
    t->event(line.text("old", letterText(oldLetter)).text("new", letterText(newLetter)));
  }
  for (Volume& v : m_.world.volumes) {
    if (!v.disk || *v.disk != index) continue;
    const char o = asciiUpper(static_cast<char>(oldLetter));
    for (auto it = v.mountPoints.begin(); it != v.mountPoints.end();)
      it = (o && mountPointLetter(*it) == o) ? v.mountPoints.erase(it) : it + 1;
    if (newLetter) v.mountPoints.push_back(std::string(1, asciiUpper(static_cast<char>(newLetter))) + ":\\");
    return true;
  }
  return true;
}

std::optional<std::uint8_t> SimHost::dosDeviceOwner(char16_t letter) {
  const char l = asciiUpper(static_cast<char>(letter));
  for (const Volume& v : m_.world.volumes)
    if (v.disk)
      for (const std::string& mp : v.mountPoints)
        if (mountPointLetter(mp) == l) return v.disk;
  for (const Drive& d : m_.world.drives)
    if (asciiUpper(d.letter) == l && d.volume)
      for (const Volume& v : m_.world.volumes)
        if (sameNoCase(v.name, *d.volume)) return v.disk;
  return std::nullopt;
}

void SimHost::diskReinitialized(const DiskFacts& disk) {
  const Volume fresh = derivedVolume(disk);
  if (TraceSink* t = m_.trace()) {
    TraceLine line("DiskReinitialized", diskDevice(disk.index));
    line.text("fileSystem", fresh.props.fileSystem.value_or("")).text("label", fresh.props.label.value_or(""));
    t->event(line.hex("serial", fresh.props.serial.value_or(0)));
  }
  for (Volume& v : m_.world.volumes) {
    if (!v.disk || *v.disk != disk.index) continue;
    v.props.fileSystem = fresh.props.fileSystem;  // none for a file system the system cannot read
    v.props.label = fresh.props.label;
    v.props.serial = fresh.props.serial;
    v.props.sectorsPerCluster = fresh.props.sectorsPerCluster;
    // Empty again: only the file system's own structures take room.
    const std::uint64_t total = v.props.totalBytes.value_or(0);
    v.props.freeBytes = total - total / 64;
    v.props.freeToCaller.reset();
  }
}

std::uint32_t SimHost::writeFile(const std::u16string& path16, const RecordBytes& head, std::uint64_t size) {
  const std::string path = toUtf8(std::wstring(path16.begin(), path16.end()));
  const std::uint32_t error = storeFile(path, head, size);
  if (TraceSink* t = m_.trace()) {
    TraceLine line("ImageWritten", path);
    line.number("size", size).bytes("head", head.data(), head.size());
    t->event(error ? line.error(error) : line.ok());
  }
  return error;
}

std::uint32_t SimHost::storeFile(const std::string& path, const RecordBytes& head, std::uint64_t size) {
  for (FileEntry& f : m_.world.files) {
    if (!sameNoCase(f.path, path)) continue;
    if (f.directory || (f.attributes && (*f.attributes & 0x11))) return 5;
    f.head = head;
    f.size = size;
    f.image.reset();
    return 0;
  }
  FileEntry f;
  f.path = path;
  f.head = head;
  f.size = size;
  m_.world.files.push_back(f);
  return 0;
}

std::uint64_t SimHost::physicalMemoryMb() { return m_.world.host.totalPhys >> 20; }

}  // namespace vmd::sim
