#include "sim/controller_status.h"

#include <cstring>
#include <stdexcept>

#include "platform/platform.h"
#include "sim/sim_services.h"

namespace vmd::sim {

RecordBytes diskStatusRecord(const json& disk) {
  if (disk.contains("statusRecord")) return fromHex(disk["statusRecord"].get<std::string>());
  if (!disk.contains("status")) return diskRecord(disk);
  // The readable status is laid over the disk's settings, whichever form they take.
  json settings = disk.contains("settingsRecord") ? decodeRecord(diskRecord(disk))
                                                  : disk.value("settings", json::object());
  // A size given either way replaces the settings' size given either way.
  if (disk["status"].contains("sizeMb") || disk["status"].contains("sizeBytes")) {
    settings.erase("sizeMb");
    settings.erase("sizeBytes");
  }
  for (auto it = disk["status"].begin(); it != disk["status"].end(); ++it) settings[it.key()] = it.value();
  json described = disk;
  described.erase("settingsRecord");
  described["settings"] = settings;
  return diskRecord(described);
}

ControllerModel::Reply diskStatusReply(json& controller, const std::uint8_t* in, std::uint32_t inSize,
                                       std::uint8_t* out, std::uint32_t outSize) {
  const std::optional<std::uint32_t> target = diskHeadTarget(in, inSize);
  if (!target) return {0, syserr::InvalidParameter};
  const json* disk = findDisk(controller, *target);
  if (!disk) return {0, syserr::FileNotFound};
  RecordBytes record;
  try {
    record = diskStatusRecord(*disk);
  } catch (const std::exception&) {
    return {0, syserr::GenFailure};
  }
  if (!out || outSize < record.size()) {
    const std::uint32_t error =
        controller.contains("shortBufferError") ? parseNumber(controller["shortBufferError"]) : syserr::InsufficientBuffer;
    return {0, error};
  }
  if (!record.empty()) std::memcpy(out, record.data(), record.size());
  return {static_cast<std::uint32_t>(record.size()), 0};
}

}  // namespace vmd::sim
