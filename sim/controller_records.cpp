#include "sim/controller_model.h"

#include <cstring>
#include <stdexcept>

#include "controller/codes.h"
#include "platform/platform.h"
#include "sim/controller_status.h"
#include "sim/record_layout.h"

namespace vmd::sim {

namespace {

// Error for an output buffer too small for the whole reply; the program grows
// its buffer on 122 and on 234.
std::uint32_t shortBufferError(const json& controller) {
  return controller.contains("shortBufferError") ? parseNumber(controller["shortBufferError"]) : syserr::InsufficientBuffer;
}

// A record of one disk: the per-disk head in; out the record, after a 12-byte
// head (as the request, its total length covering the record) when `withHead`.
ControllerModel::Reply recordReply(json& controller, const std::uint8_t* in, std::uint32_t inSize,
                                   std::uint8_t* out, std::uint32_t outSize, RecordBytes (*make)(const json&),
                                   bool withHead) {
  const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
  if (!target) return {0, syserr::InvalidParameter};
  const json* disk = findDisk(controller, *target);
  if (!disk) return {0, syserr::FileNotFound};
  RecordBytes record;
  try {
    record = make(*disk);
  } catch (const std::exception&) {
    return {0, syserr::GenFailure};  // settings the record layout cannot hold, or bad hex
  }
  const std::size_t head = withHead ? 12 : 0;
  const std::size_t needed = head + record.size();
  if (!out || outSize < needed) return {0, shortBufferError(controller)};
  if (withHead) {
    putLe32(out, 12);
    putLe32(out + 4, static_cast<std::uint32_t>(needed));
    std::memcpy(out + 8, in + 8, 4);
  }
  if (!record.empty()) std::memcpy(out + head, record.data(), record.size());
  return {static_cast<std::uint32_t>(needed), 0};
}

}  // namespace

ControllerModel::Reply ControllerModel::recordRequest(std::uint32_t code, In in, std::uint32_t inSize, Out out,
                                                      std::uint32_t outSize) {
  switch (code) {
    case ioctl::ReadDiskSettingsRecord:
      return recordReply(c_, in, inSize, out, outSize, diskRecord, true);

    case ioctl::QueryDiskStatus:
      return recordReply(c_, in, inSize, out, outSize, diskStatusRecord, false);

    default:
      return {0, syserr::InvalidFunction};
  }
}

}  // namespace vmd::sim
