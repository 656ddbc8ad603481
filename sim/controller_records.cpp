#include "platform/platform.h"
#include "sim/controller_model.h"

#include <cstring>
#include <stdexcept>

#include "controller/codes.h"
#include "sim/controller_status.h"
#include "sim/record_layout.h"

namespace vmd::sim {

namespace {


// The 12-byte per-disk request head exactly: lengths 12 and 12, port, path id
// and logical unit 0, a target below 128.
bool validDiskHead(const std::uint8_t* in, std::uint32_t inSize) {
  return in && inSize == 12 && le32(in) == 12 && le32(in + 4) == 12 && in[8] == 0 && in[9] == 0 &&
         in[10] < 128 && in[11] == 0;
}

json* findDisk(json& controller, std::uint32_t index) {
  if (!controller.contains("disks") || !controller["disks"].is_array()) return nullptr;
  for (auto& d : controller["disks"])
    if (d.contains("index") && parseNumber(d["index"]) == index) return &d;
  return nullptr;
}

// Error for an output buffer too small for the whole reply; the program grows
// its buffer on 122 and on 234.
std::uint32_t shortBufferError(const json& controller) {
  return controller.contains("shortBufferError") ? parseNumber(controller["shortBufferError"]) : syserr::InsufficientBuffer;
}

// 0x4601c: the 12-byte head (as the request, its total length covering the
// record) followed by the disk's settings record.
ControllerModel::Reply readSettingsRecord(json& controller, const std::uint8_t* in, std::uint32_t inSize,
                                          std::uint8_t* out, std::uint32_t outSize) {
  if (!validDiskHead(in, inSize)) return {0, syserr::InvalidParameter};
  const json* disk = findDisk(controller, in[10]);
  if (!disk) return {0, syserr::FileNotFound};
  RecordBytes record;
  try {
    record = diskRecord(*disk);
  } catch (const std::exception&) {
    return {0, syserr::GenFailure};  // settings the record layout cannot hold, or bad hex
  }
  const std::size_t needed = 12 + record.size();
  if (!out || outSize < needed) return {0, shortBufferError(controller)};
  putLe32(out, 12);
  putLe32(out + 4, static_cast<std::uint32_t>(needed));
  std::memcpy(out + 8, in + 8, 4);
  if (!record.empty()) std::memcpy(out + 12, record.data(), record.size());
  return {static_cast<std::uint32_t>(needed), 0};
}

}  // namespace

ControllerModel::Reply ControllerModel::recordRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                      std::uint32_t outSize) {
  switch (code) {
    case ioctl::ReadDiskSettingsRecord:
      return readSettingsRecord(c_, in, inSize, out, outSize);

    case ioctl::QueryDiskStatus:
      return diskStatusReply(c_, in, inSize, out, outSize);

    default:
      return {0, syserr::InvalidFunction};
  }
}

}  // namespace vmd::sim
