#include "sim/controller_model.h"

#include <cstring>

#include "controller/codes.h"
#include "platform/platform.h"
#include "sim/record_check.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kFileDeviceDisk = 7;

std::uint32_t get32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
void put32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
void put64(std::uint8_t* p, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
std::uint64_t rd(const RecordBytes& b, std::size_t at, int width) {
  std::uint64_t v = 0;
  for (int i = 0; i < width; ++i)
    if (at + static_cast<std::size_t>(i) < b.size()) v |= std::uint64_t{b[at + static_cast<std::size_t>(i)]} << (8 * i);
  return v;
}

char16_t upper(char16_t c) { return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c; }

void writeHead(std::uint8_t* out, std::uint32_t target) {
  put32(out, 12);
  put32(out + 4, 12);
  out[8] = 0;
  out[9] = 0;
  out[10] = static_cast<std::uint8_t>(target);
  out[11] = 0;
}

// A NUL-terminated UTF-16 string inside [at, end) of the record.
std::u16string stringAt(const RecordBytes& r, std::size_t at, std::size_t end) {
  std::u16string s;
  for (std::size_t p = at; p + 1 < end && p + 1 < r.size(); p += 2) {
    const auto c = static_cast<char16_t>(r[p] | (r[p + 1] << 8));
    if (c == 0) break;
    s += c;
  }
  return s;
}

// "\??\X:" with its terminating zero, as UTF-16: the letter, or 0.
char16_t dosNameLetter(const std::uint8_t* in, std::uint32_t inSize) {
  if (inSize != 14) return 0;
  const char16_t expect[] = u"\\??\\";
  for (int i = 0; i < 4; ++i)
    if (in[2 * i] != expect[i] || in[2 * i + 1] != 0) return 0;
  const char16_t letter = upper(static_cast<char16_t>(in[8] | (in[9] << 8)));
  if (letter < u'A' || letter > u'Z' || in[10] != ':' || in[11] != 0 || in[12] != 0 || in[13] != 0) return 0;
  return letter;
}

std::uint32_t memoryMbOf(std::uint64_t bytes) { return static_cast<std::uint32_t>((bytes + 0xFFFFF) >> 20); }

// {16, total = inSize, address, sub-record length = inSize - 16}, then a
// sub-record that begins {fixed, its own length} with `fixed` bytes at least.
bool wrappedSubRecord(const std::uint8_t* in, std::uint32_t inSize, std::uint32_t fixed) {
  if (!in || inSize < 16 + fixed || get32(in) != 16 || get32(in + 4) != inSize || get32(in + 12) != inSize - 16)
    return false;
  if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128) return false;
  return get32(in + 16) == fixed && get32(in + 20) == inSize - 16;
}

}  // namespace

std::optional<std::uint32_t> diskHeadTarget(const std::uint8_t* in, std::uint32_t inSize) {
  if (!in || inSize != 12) return std::nullopt;
  if (get32(in) != 12 || get32(in + 4) != 12) return std::nullopt;
  if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128) return std::nullopt;
  return in[10];
}

DiskFacts diskFacts(const SimDisk& disk) {
  DiskFacts f;
  f.index = disk.index;
  f.size = disk.size;
  f.directIo = disk.directIo;
  f.letter = disk.letter;
  f.signature = disk.signature.value_or(0);
  f.diskNumber = disk.diskNumber();
  if (disk.settings) {
    const RecordBytes& r = *disk.settings;
    if (const std::size_t len = rd(r, 46, 2)) {
      const std::size_t at = rd(r, 44, 2), end = at + len;
      f.fileSystem = static_cast<std::uint8_t>(rd(r, at + 10, 1));
      f.clusterBytes = static_cast<std::uint32_t>(rd(r, at + 11, 1) << 9);
      f.serial = static_cast<std::uint32_t>(rd(r, at + 12, 4));
      if (rd(r, at + 40, 2)) f.label = stringAt(r, at + 42, end);
    }
  }
  return f;
}

RecordBytes imageFileHead(std::uint8_t format, std::uint64_t diskSize, std::uint8_t level) {
  RecordBytes h(512, 0);
  if (format == 1) {
    put64(h.data(), 0x6820224927880486ull);
    put64(h.data() + 40, diskSize);
  } else if (format == 2) {
    put64(h.data(), 0x8602113816328511ull);
    put32(h.data() + 20, level);
    put64(h.data() + 24, diskSize);
  } else {
    h[510] = 0x55;
    h[511] = 0xAA;
  }
  return h;
}

ControllerModel::Reply ControllerModel::handle(std::uint32_t code, const std::uint8_t* in, std::uint32_t inSize,
                                               std::uint8_t* out, std::uint32_t outSize) {
  advance();
  Reply r{0, syserr::InvalidFunction};
  switch (code) {
    case ioctl::QueryControllerVersion:
      r = version(out, outSize);
      break;
    case ioctl::QueryDiskBitmap:
    case ioctl::QueryDiskInfo:
    case ioctl::QueryDeviceNumber:
    case ioctl::QueryDosNameTarget:
    case ioctl::QueryDosDeviceOwner:
    case ioctl::QueryDiskPresent:
      r = diskRequest(code, in, inSize, out, outSize);
      break;
    case ioctl::CreateDisk:
    case ioctl::RemoveDisk:
    case ioctl::ChangeDiskLetter:
    case ioctl::ChangeDiskSettings:
    case ioctl::ApplyImageSettings:
    case ioctl::ReinitializeDisk:
    case ioctl::SaveDiskImage:
      r = lifecycleRequest(code, in, inSize, out, outSize);
      break;
    case ioctl::QueryImStatus:
    case ioctl::SetImOptions:
    case ioctl::EnableIm:
    case ioctl::DisableIm:
      r = imRequest(code, in, inSize, out, outSize);
      break;
    case ioctl::ReadDiskSettingsRecord:
    case ioctl::QueryDiskStatus:
      r = recordRequest(code, in, inSize, out, outSize);
      break;
    default:
      break;
  }
  advance();  // a delay of 0 takes effect with the request itself
  return r;
}

ControllerModel::Reply ControllerModel::version(Out out, std::uint32_t outSize) {
  if (!out || outSize < 12) return {0, syserr::InsufficientBuffer};
  put32(out, c_.versionWord);
  put32(out + 4, c_.secondWord);
  put32(out + 8, c_.variantCode);
  return {12, 0};
}

ControllerModel::Reply ControllerModel::diskRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                    std::uint32_t outSize) {
  switch (code) {
    case ioctl::QueryDiskBitmap: {
      if (!out || outSize < 16) return {0, syserr::InsufficientBuffer};
      std::memset(out, 0, 16);
      for (const SimDisk& d : c_.disks)
        if (d.index < 128) out[d.index / 8] = static_cast<std::uint8_t>(out[d.index / 8] | (1u << (d.index % 8)));
      return {16, 0};
    }
    case ioctl::QueryDiskInfo: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
      if (!target) return {0, syserr::InvalidParameter};
      if (!out || outSize < 32) return {0, syserr::InsufficientBuffer};
      const SimDisk* d = c_.findDisk(*target);
      if (!d) return {0, syserr::FileNotFound};
      std::memset(out, 0, 32);
      writeHead(out, *target);  // the head comes back, then the disk's own fields
      out[14] = d->image ? 1 : 0;
      out[15] = d->good ? 1 : 0;
      put64(out + 16, d->size);
      out[24] = d->directIo ? 1 : 0;
      out[25] = d->directIo ? static_cast<std::uint8_t>(d->letter) : 0;
      return {32, 0};
    }
    case ioctl::QueryDeviceNumber: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
      if (!target) return {0, syserr::InvalidParameter};
      if (!out || outSize < 12) return {0, syserr::InsufficientBuffer};
      const SimDisk* d = c_.findDisk(*target);
      if (!d) return {0, syserr::FileNotFound};
      // A Direct-IO disk is not in the system's storage stack.
      if (d->directIo) return {0, syserr::NotSupported};
      put32(out, kFileDeviceDisk);
      put32(out + 4, d->diskNumber());
      put32(out + 8, 0);
      return {12, 0};
    }
    case ioctl::QueryDosNameTarget: {
      if (!in || inSize < 2 || inSize % 2 != 0 || in[inSize - 1] != 0 || in[inSize - 2] != 0)
        return {0, syserr::InvalidParameter};
      if (!out || outSize < 12) return {0, syserr::InsufficientBuffer};
      const char16_t letter = dosNameLetter(in, inSize);
      if (!letter) return {0, syserr::FileNotFound};
      std::optional<std::uint32_t> owner;
      if (c_.dosNameOwners) {
        for (const auto& [l, target] : *c_.dosNameOwners)
          if (upper(l) == letter && target) owner = *target;
      } else {
        for (const SimDisk& d : c_.disks)
          if (d.directIo && d.phase != DiskPhase::Arriving && upper(d.letter) == letter) owner = d.index;
      }
      if (!owner) return {0, syserr::FileNotFound};
      writeHead(out, *owner);
      return {12, 0};
    }
    case ioctl::QueryDosDeviceOwner: {
      if (!in || inSize != 14 || in[12] != 0 || in[13] != 0) return {0, syserr::InvalidParameter};
      if (!out || outSize < 12) return {0, syserr::InsufficientBuffer};
      const char16_t letter = dosNameLetter(in, inSize);
      if (!letter) return {0, syserr::InvalidParameter};
      const std::optional<std::uint8_t> owner = host_.dosDeviceOwner(letter);
      if (!owner || !c_.findDisk(*owner)) return {0, syserr::FileNotFound};
      writeHead(out, *owner);
      return {12, 0};
    }
    case ioctl::QueryDiskPresent: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
      if (!target) return {0, syserr::InvalidParameter};
      if (!out || outSize < 4) return {0, syserr::InsufficientBuffer};
      put32(out, c_.findDisk(*target) ? 1 : 0);
      return {4, 0};
    }
    default:
      return {0, syserr::InvalidFunction};
  }
}

std::uint64_t ControllerModel::dueAfter(std::optional<std::int64_t> own, std::int64_t general) {
  const std::int64_t delay = own.value_or(general);
  if (delay < 0) return kNeverDue;
  return host_.nowMs() + static_cast<std::uint64_t>(delay);
}

ControllerModel::Reply ControllerModel::lifecycleRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                         std::uint32_t outSize) {
  switch (code) {
    case ioctl::CreateDisk: {
      if (!in) return {0, syserr::InvalidParameter};
      RecordBytes record(in, in + inSize);
      if (!checkRecord(record).empty()) return {0, syserr::InvalidParameter};
      if (!out || outSize < 12) return {0, syserr::InsufficientBuffer};
      std::uint32_t index = record[24];
      if (index == 255) {
        index = 128;
        for (std::uint32_t i = 0; i < 128 && index == 128; ++i)
          if (!c_.findDisk(i)) index = i;
        if (index == 128) return {0, syserr::NotEnoughMemory};
      } else if (index >= 128) {
        return {0, syserr::InvalidParameter};
      } else if (c_.findDisk(index)) {
        return {0, syserr::AlreadyExists};
      }
      const std::uint64_t size = rd(record, 16, 8);
      std::uint64_t usedMb = memoryMbOf(size);
      for (const SimDisk& d : c_.disks) usedMb += memoryMbOf(d.size);
      const std::uint64_t limitMb = c_.memoryLimitMb.value_or(host_.physicalMemoryMb());
      if (usedMb > limitMb) return {0, syserr::DiskFull};

      SimDisk d;
      d.index = static_cast<std::uint8_t>(index);
      record[24] = d.index;
      put32(record.data() + 8, recordChecksum(record));
      d.size = size;
      d.directIo = (record[15] & 1) != 0;
      d.image = rd(record, 50, 2) != 0;
      d.signature = static_cast<std::uint32_t>(rd(record, 28, 4));
      if (!d.directIo) {
        // The system numbers a new disk after the disks it has.
        std::uint32_t number = 1u + d.index;
        for (bool taken = true; taken;) {
          taken = false;
          for (const SimDisk& o : c_.disks)
            if (!o.directIo && o.diskNumber() == number) taken = true;
          if (taken) ++number;
        }
        d.systemDiskNumber = number;
      }
      d.settings = std::move(record);
      d.phase = DiskPhase::Arriving;
      d.dueMs = dueAfter(std::nullopt, c_.timing.volumeAfterMs);
      auto at = c_.disks.begin();
      while (at != c_.disks.end() && at->index < d.index) ++at;
      c_.disks.insert(at, std::move(d));
      writeHead(out, index);
      return {12, 0};
    }
    case ioctl::RemoveDisk: {
      if (!in || inSize != 16 || get32(in) != 16 || get32(in + 4) != 16) return {0, syserr::InvalidParameter};
      if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128 || in[12] != 0 || in[15] != 0 || in[13] > 1 ||
          in[14] > 1)
        return {0, syserr::InvalidParameter};
      SimDisk* d = c_.findDisk(in[10]);
      if (!d) return {0, syserr::FileNotFound};
      // A disk that holds a paging file cannot go.
      if (d->pagingFile) return {0, syserr::AccessDenied};
      if (in[13]) return {0, 0};  // only asked whether it could
      if (d->phase == DiskPhase::Leaving) return {0, 0};
      if (in[14] && d->settings) {
        const RecordBytes& r = *d->settings;
        const std::size_t imgLen = rd(r, 50, 2);
        const std::uint32_t imageFlags = imgLen ? static_cast<std::uint32_t>(rd(r, rd(r, 48, 2) + 8, 4)) : 0;
        if (imgLen && (imageFlags & 0x5030u) != 0) {  // an image that is saved, not Load Only
          const std::size_t at = rd(r, 48, 2);
          std::u16string path = stringAt(r, at + 38, at + imgLen);
          const std::u16string prefix = u"\\DosDevices\\";
          if (path.rfind(prefix, 0) == 0) path.erase(0, prefix.size());
          const auto format = static_cast<std::uint8_t>(rd(r, at + 12, 1));
          const RecordBytes head = imageFileHead(format, d->size, static_cast<std::uint8_t>(rd(r, at + 13, 1)));
          const std::uint64_t fileSize = format == 0 ? d->size : 512;
          if (const std::uint32_t e = host_.writeFile(path, head, fileSize)) return {0, e};
        }
      }
      d->phase = DiskPhase::Leaving;
      d->dueMs = dueAfter(d->goneAfterMs, c_.timing.goneAfterMs);
      return {0, 0};
    }
    case ioctl::ChangeDiskLetter: {
      if (!in || inSize != 16 || get32(in) != 16 || get32(in + 4) != 16) return {0, syserr::InvalidParameter};
      if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128) return {0, syserr::InvalidParameter};
      const auto oldLetter = upper(static_cast<char16_t>(in[12] | (in[13] << 8)));
      const auto newLetter = upper(static_cast<char16_t>(in[14] | (in[15] << 8)));
      SimDisk* d = c_.findDisk(in[10]);
      if (!d) return {0, syserr::FileNotFound};
      if (!d->directIo) return {0, syserr::InvalidFunction};
      if (newLetter && (newLetter < u'A' || newLetter > u'Z')) return {0, syserr::InvalidParameter};
      if (oldLetter != upper(d->letter)) return {0, syserr::InvalidParameter};
      if (oldLetter == newLetter) return {0, 0};
      if (newLetter && !host_.letterFree(newLetter)) return {0, syserr::AlreadyExists};
      if (d->phase != DiskPhase::Arriving && !host_.diskLetterChanged(d->index, oldLetter, newLetter))
        return {0, syserr::AccessDenied};
      d->letter = newLetter;
      if (d->settings && d->settings->size() >= 64) {  // the record remembers the letter for a restart
        (*d->settings)[26] = static_cast<std::uint8_t>(newLetter);
        (*d->settings)[27] = 0;
        put32(d->settings->data() + 8, recordChecksum(*d->settings));
      }
      return {0, 0};
    }
    case ioctl::ChangeDiskSettings: {
      // The new record names its disk by its index; the controller keeps it
      // at once, and what a running disk cannot take waits for a restart.
      if (!in) return {0, syserr::InvalidParameter};
      RecordBytes record(in, in + inSize);
      if (!checkRecord(record).empty()) return {0, syserr::InvalidParameter};
      SimDisk* d = c_.findDisk(record[24]);
      if (!d) return {0, syserr::FileNotFound};
      // The running disk goes on as it is: its live status keeps the old
      // settings until the restart takes the new ones.
      if (!d->status && d->settings) d->status = d->settings;
      d->settings = record;
      d->pendingSettings = std::move(record);
      return {0, 0};
    }
    case ioctl::ApplyImageSettings: {
      // {16, total, address, sub-record length} and the image sub-record.
      if (!in || inSize < 16 + 40 || get32(in) != 16 || get32(in + 4) != inSize || get32(in + 12) != inSize - 16)
        return {0, syserr::InvalidParameter};
      if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128) return {0, syserr::InvalidParameter};
      const std::uint8_t* sub = in + 16;
      const std::uint32_t subLen = inSize - 16;
      if (get32(sub) != 40 || get32(sub + 4) != subLen) return {0, syserr::InvalidParameter};
      SimDisk* d = c_.findDisk(in[10]);
      if (!d) return {0, syserr::FileNotFound};
      // Image settings in effect now: an image file is associated when the sub-record names one.
      d->image = subLen > 40 && (sub[36] | (sub[37] << 8)) != 0;
      return {0, 0};
    }
    case ioctl::ReinitializeDisk: {
      // {16, total, address, spec length} and a format section: the volume
      // gets a fresh file system with the section's code, cluster, serial
      // and label.
      if (!wrappedSubRecord(in, inSize, 44)) return {0, syserr::InvalidParameter};
      const RecordBytes spec(in + 16, in + inSize);
      const std::size_t labelBytes = rd(spec, 40, 2);
      if (42 + labelBytes > spec.size()) return {0, syserr::InvalidParameter};
      SimDisk* d = c_.findDisk(in[10]);
      if (!d) return {0, syserr::FileNotFound};
      if (d->phase != DiskPhase::Present) return {0, syserr::NotReady};
      DiskFacts f = diskFacts(*d);
      f.fileSystem = spec[10];
      f.clusterBytes = static_cast<std::uint32_t>(spec[11]) << 9;
      f.serial = static_cast<std::uint32_t>(rd(spec, 12, 4));
      f.label = labelBytes ? stringAt(spec, 42, 42 + labelBytes) : std::u16string();
      host_.diskReinitialized(f);
      return {0, 0};
    }
    case ioctl::SaveDiskImage: {
      // {16, total, address, sub-record length} and an image sub-record: the
      // file it names in its format and level, else the disk's own image
      // file in the format its image section keeps (the sub-record's own
      // when its flags say 0x1).
      if (!wrappedSubRecord(in, inSize, 40)) return {0, syserr::InvalidParameter};
      const RecordBytes sub(in + 16, in + inSize);
      const std::size_t nameBytes = rd(sub, 36, 2);
      if (38 + nameBytes > sub.size()) return {0, syserr::InvalidParameter};
      SimDisk* d = c_.findDisk(in[10]);
      if (!d) return {0, syserr::FileNotFound};
      std::u16string path;
      std::uint8_t format = sub[12], level = sub[13];
      if (nameBytes) {
        path = stringAt(sub, 38, 38 + nameBytes);
      } else {
        const std::optional<RecordBytes>& r = d->status ? d->status : d->settings;
        const std::size_t at = r ? rd(*r, 48, 2) : 0, len = r ? rd(*r, 50, 2) : 0;
        if (!len) return {0, syserr::InvalidParameter};  // no file named, none associated
        path = stringAt(*r, at + 38, at + len);
        if ((rd(sub, 8, 4) & 1) == 0) {
          format = static_cast<std::uint8_t>(rd(*r, at + 12, 1));
          level = static_cast<std::uint8_t>(rd(*r, at + 13, 1));
        }
      }
      const std::u16string prefix = u"\\DosDevices\\";
      if (path.rfind(prefix, 0) == 0) path.erase(0, prefix.size());
      if (format > 2) return {0, syserr::InvalidParameter};
      const std::uint64_t fileSize = format == 0 ? d->size : 512;
      if (const std::uint32_t e = host_.writeFile(path, imageFileHead(format, d->size, level), fileSize))
        return {0, e};
      return {0, 0};
    }
    default:
      return {0, syserr::InvalidFunction};
  }
}

void ControllerModel::arrive(SimDisk& d) {
  d.phase = DiskPhase::Present;
  d.dueMs = 0;
  if (d.directIo && d.settings && d.settings->size() >= 64) {
    // The controller gives a Direct-IO disk the letter its record asks for, if free.
    const auto wish = upper(static_cast<char16_t>(rd(*d.settings, 26, 2)));
    d.letter = (wish >= u'A' && wish <= u'Z' && host_.letterFree(wish)) ? wish : 0;
  }
  host_.diskArrived(diskFacts(d));
}

void ControllerModel::advance() {
  const std::uint64_t now = host_.nowMs();
  for (std::size_t i = 0; i < c_.disks.size();) {
    SimDisk& d = c_.disks[i];
    if (d.phase != DiskPhase::Present && d.dueMs != kNeverDue && d.dueMs <= now) {
      if (d.phase == DiskPhase::Arriving) {
        arrive(d);
      } else {
        const std::uint8_t index = d.index;
        c_.disks.erase(c_.disks.begin() + static_cast<std::ptrdiff_t>(i));
        host_.diskRemoved(index);
        continue;
      }
    }
    ++i;
  }
}

void ControllerModel::settle() {
  for (SimDisk& d : c_.disks)
    if (d.phase != DiskPhase::Present && d.dueMs != kNeverDue) d.dueMs = 0;
  advance();
}

void ControllerModel::restart() {
  for (std::size_t i = 0; i < c_.disks.size();) {
    SimDisk& d = c_.disks[i];
    if (d.phase == DiskPhase::Leaving) {
      const std::uint8_t index = d.index;
      c_.disks.erase(c_.disks.begin() + static_cast<std::ptrdiff_t>(i));
      host_.diskRemoved(index);
      continue;
    }
    host_.diskRemoved(d.index);
    if (d.pendingSettings) {
      d.settings = std::move(d.pendingSettings);
      d.pendingSettings.reset();
      const RecordBytes& r = *d.settings;
      d.size = rd(r, 16, 8);
      d.directIo = r.size() > 15 && (r[15] & 1) != 0;
      d.image = rd(r, 50, 2) != 0;
    }
    if (d.status && !d.statusBroken) d.status.reset();  // a fresh start reports its settings
    ++i;
  }
  for (SimDisk& d : c_.disks) arrive(d);
  // Invisible Memory settings waiting for a restart take effect.
  ImState& im = c_.im;
  im.reserveInEffect = im.reserveConfigured;
  im.quotaInEffect = im.quotaConfigured;
  im.hiberDriveInEffect = im.hiberDriveConfigured;
  im.hiberInEffect = im.hiberConfigured;
  im.stated |= ImState::kReserveInEffect | ImState::kQuotaInEffect | ImState::kHiberDriveInEffect |
               ImState::kHiberInEffect;
}

ControllerModel::Reply ControllerModel::imRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                  std::uint32_t outSize) {
  ImState& im = c_.im;
  if (!im.supported) return {0, syserr::InvalidFunction};
  switch (code) {
    case ioctl::QueryImStatus: {
      // An older manager answers with its shorter record.
      const std::uint32_t n = im.recordSize < 72 ? im.recordSize : 72;
      if (!out || outSize < n) return {0, syserr::InsufficientBuffer};
      std::uint8_t rec[72] = {};
      const std::uint32_t fields[][2] = {
          {0, im.recordSize},          {4, im.unitSize},           {8, im.firstUnit},
          {12, im.endUnit},            {16, im.freeUnits},         {20, im.state},
          {24, im.reserveInEffect},    {28, im.quotaInEffect},     {32, im.hiberDriveInEffect},
          {36, im.reserveConfigured},  {40, im.quotaConfigured},   {44, im.hiberDriveConfigured},
          {48, im.localState},         {52, im.hiberInEffect},     {60, im.hiberConfigured}};
      for (const auto& f : fields) put32(rec + f[0], f[1]);
      std::memcpy(out, rec, n);
      return {n, 0};
    }
    case ioctl::SetImOptions: {
      if (!in || inSize != 24 || get32(in) != 24) return {0, syserr::InvalidParameter};
      const std::uint64_t unit = im.unitSize;
      auto units = [&](std::uint32_t mb) {
        return static_cast<std::uint32_t>(unit ? (std::uint64_t{mb} << 20) / unit : 0);
      };
      // While this product uses Invisible Memory, changes wait for a restart.
      const bool inUse = im.state == 0 && im.localState != 0;
      im.reserveConfigured = units(get32(in + 4));
      im.quotaConfigured = units(get32(in + 8));
      im.hiberDriveConfigured = get32(in + 12);
      im.hiberConfigured = get32(in + 16);
      im.stated |= ImState::kReserveConfigured | ImState::kQuotaConfigured | ImState::kHiberDriveConfigured |
                   ImState::kHiberConfigured;
      if (!inUse) {
        im.stated |= ImState::kReserveInEffect | ImState::kQuotaInEffect | ImState::kHiberDriveInEffect |
                     ImState::kHiberInEffect;
        im.reserveInEffect = im.reserveConfigured;
        im.quotaInEffect = im.quotaConfigured;
        im.hiberDriveInEffect = im.hiberDriveConfigured;
        im.hiberInEffect = im.hiberConfigured;
      }
      return {0, 0};
    }
    case ioctl::EnableIm:
      im.localState = 1;
      im.stated |= ImState::kLocalState;
      return {0, 0};
    case ioctl::DisableIm:
      im.localState = 0;
      im.stated |= ImState::kLocalState;
      return {0, 0};
    default:
      return {0, syserr::InvalidFunction};
  }
}

ControllerModel::Reply ControllerModel::recordRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                      std::uint32_t outSize) {
  const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
  if (!target) return {0, syserr::InvalidParameter};
  const SimDisk* d = c_.findDisk(*target);
  if (!d) return {0, syserr::FileNotFound};
  const bool withHead = code == ioctl::ReadDiskSettingsRecord;
  const std::optional<RecordBytes>& record = (withHead || !d->status) ? d->settings : d->status;
  if (!record || (!withHead && d->statusBroken)) return {0, syserr::GenFailure};
  const std::size_t head = withHead ? 12 : 0;
  const std::size_t needed = head + record->size();
  if (!out || outSize < needed) return {0, c_.shortBufferError};
  if (withHead) {
    put32(out, 12);
    put32(out + 4, static_cast<std::uint32_t>(needed));
    std::memcpy(out + 8, in + 8, 4);
  }
  if (!record->empty()) std::memcpy(out + head, record->data(), record->size());
  return {static_cast<std::uint32_t>(needed), 0};
}

}  // namespace vmd::sim
