// The controller's live status of a disk (code 0x4606C): a record laid out
// like the disk's settings record, which the controller keeps up to date
// while the disk runs.
//
// state.controller.disks[]: "statusRecord" (hex, taken as it stands), else
// "status" (readable settings as in "settings", laid over the disk's own
// settings), else the status is the disk's settings record itself.
#pragma once

#include <cstdint>

#include "sim/controller_model.h"
#include "sim/record_layout.h"

namespace vmd::sim {

// The status record of one entry of controller.disks[]. Throws
// std::runtime_error when the description cannot be made into a record.
RecordBytes diskStatusRecord(const json& disk);

// Answers 0x4606C: the 12-byte request head of a disk in, the bare status
// record out; 122 (or the controller's "shortBufferError") while the buffer
// is too small for the whole record.
ControllerModel::Reply diskStatusReply(json& controller, const std::uint8_t* in, std::uint32_t inSize,
                                       std::uint8_t* out, std::uint32_t outSize);

}  // namespace vmd::sim
