// The controller's disk queries: the bitmap of existing disks, one disk's
// info record, its system disk number, and which disk owns a DOS drive name.
//
// state.controller.disks[]: {index, size (bytes), image, good, directIo,
//   letter (Direct-IO), systemDiskNumber (SCSI; default 1 + index), signature}
//   — further keys belong to the settings and status records.
// state.controller.dosNameOwners: {"X": target | null}; when absent, each
//   Direct-IO disk owns its own letter.
#include <optional>
#include <stdexcept>
#include <string>

#include "controller/codes.h"
#include "base/text_codec.h"
#include "platform/platform.h"
#include "sim/controller_model.h"

namespace vmd::sim {

namespace {

constexpr std::uint32_t kFileDeviceDisk = 7;

bool flag(const json& disk, const char* key, bool otherwise) {
  if (!disk.contains(key)) return otherwise;
  const json& v = disk[key];
  return v.is_boolean() ? v.get<bool>() : parseNumber(v) != 0;
}

std::uint32_t get32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

bool hasIndex(const json& disk, std::uint32_t index) {
  const auto it = disk.find("index");
  return it != disk.end() && parseNumber(*it) == index;
}

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }

char diskLetter(const json& disk) {
  const std::string l = disk.value("letter", std::string());
  return l.empty() ? 0 : upper(l[0]);
}

void writeHead(std::uint8_t* out, std::uint32_t target) {
  putLe32(out, 12);
  putLe32(out + 4, 12);
  out[8] = 0;
  out[9] = 0;
  out[10] = static_cast<std::uint8_t>(target);
  out[11] = 0;
}

}  // namespace

// Disks are usually listed in ascending order without gaps, so the entry at
// the disk's own position is tried before the whole list is walked.
const json* findDisk(const json& controller, std::uint32_t index) {
  const auto list = controller.find("disks");
  if (list == controller.end() || !list->is_array()) return nullptr;
  const json& disks = *list;
  if (index < disks.size() && hasIndex(disks[index], index)) return &disks[index];
  for (const json& d : disks)
    if (hasIndex(d, index)) return &d;
  return nullptr;
}

// The 12-byte head of a per-disk query: lengths 12 and 12, port, path id and
// logical unit 0, a target below 128. Returns the target, or nothing when the
// driver would refuse the input.
std::optional<std::uint32_t> diskHeadTarget(const std::uint8_t* in, std::uint32_t inSize) {
  if (!in || inSize < 12) return std::nullopt;
  if (get32(in) != 12 || get32(in + 4) != 12 || inSize != 12) return std::nullopt;
  if (in[8] != 0 || in[9] != 0 || in[11] != 0 || in[10] >= 128) return std::nullopt;
  return in[10];
}

ControllerModel::Reply ControllerModel::diskRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                    std::uint32_t outSize) {
  switch (code) {
    case ioctl::QueryDiskBitmap: {
      if (outSize < 16) return {0, syserr::InsufficientBuffer};
      for (int i = 0; i < 16; ++i) out[i] = 0;
      for (const json& d : c_["disks"]) {
        const std::uint32_t n = parseNumber(d.value("index", json(0)));
        if (n < 128) out[n / 8] = static_cast<std::uint8_t>(out[n / 8] | (1u << (n % 8)));
      }
      return {16, 0};
    }
    case ioctl::QueryDiskInfo: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
      if (!target) return {0, syserr::InvalidParameter};
      if (outSize < 32) return {0, syserr::InsufficientBuffer};
      const json* d = findDisk(c_, *target);
      if (!d) return {0, syserr::FileNotFound};
      for (int i = 0; i < 32; ++i) out[i] = 0;
      writeHead(out, *target);  // the head comes back, then the disk's own fields
      out[14] = flag(*d, "image", false) ? 1 : 0;
      out[15] = flag(*d, "good", true) ? 1 : 0;
      putLe64(out + 16, d->contains("size") ? parseNumber64((*d)["size"]) : 0);
      const bool directIo = flag(*d, "directIo", false);
      out[24] = directIo ? 1 : 0;
      out[25] = directIo ? static_cast<std::uint8_t>(diskLetter(*d)) : 0;
      return {32, 0};
    }
    case ioctl::QueryDeviceNumber: {
      const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
      if (!target) return {0, syserr::InvalidParameter};
      if (outSize < 12) return {0, syserr::InsufficientBuffer};
      const json* d = findDisk(c_, *target);
      if (!d) return {0, syserr::FileNotFound};
      // A Direct-IO disk is not in the system's storage stack.
      if (flag(*d, "directIo", false)) return {0, syserr::NotSupported};
      const std::uint32_t number =
          d->contains("systemDiskNumber") ? parseNumber((*d)["systemDiskNumber"]) : 1 + *target;
      putLe32(out, kFileDeviceDisk);
      putLe32(out + 4, number);
      putLe32(out + 8, 0);
      return {12, 0};
    }
    case ioctl::QueryDosNameTarget: {
      // "\??\X:" with its terminating zero, as UTF-16.
      if (!in || inSize < 2 || inSize % 2 != 0 || in[inSize - 1] != 0 || in[inSize - 2] != 0)
        return {0, syserr::InvalidParameter};
      if (outSize < 12) return {0, syserr::InsufficientBuffer};
      const std::string name = toUtf8(readUtf16z(in, inSize, 0));
      if (name.size() != 6 || name.compare(0, 4, "\\??\\") != 0 || name[5] != ':') return {0, syserr::FileNotFound};
      const char letter = upper(name[4]);
      std::optional<std::uint32_t> owner;
      if (c_.contains("dosNameOwners")) {
        for (auto it = c_["dosNameOwners"].begin(); it != c_["dosNameOwners"].end(); ++it)
          if (!it.key().empty() && upper(it.key()[0]) == letter && !it.value().is_null())
            owner = parseNumber(it.value());
      } else {
        for (const json& d : c_["disks"])
          if (flag(d, "directIo", false) && diskLetter(d) == letter) owner = parseNumber(d["index"]);
      }
      if (!owner) return {0, syserr::FileNotFound};
      writeHead(out, *owner);
      return {12, 0};
    }
    default:
      return {0, 1};  // not answered yet
  }
}

}  // namespace vmd::sim
