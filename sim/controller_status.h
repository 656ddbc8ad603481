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

}  // namespace vmd::sim
