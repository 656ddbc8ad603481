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

}  // namespace vmd::sim
