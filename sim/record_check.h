// The driver's checks of a disk settings record, on bytes alone: what the
// controller model needs to accept or refuse a creation request.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vmd::sim {

using RecordBytes = std::vector<std::uint8_t>;

// Empty when `record` is well formed as the driver requires of a creation
// record: sizes, section placement and lengths, strings inside their fields,
// and the checksum. Otherwise the first fault found, as readable text.
std::string checkRecord(const RecordBytes& record);

// 32-bit wrapping byte sum from offset 12 to the end.
std::uint32_t recordChecksum(const RecordBytes& record);

}  // namespace vmd::sim
