// The controller's side of the disk settings record: builds the record the
// controller keeps for a disk from readable settings, reads one back into
// readable settings, and checks a record as the driver does before it
// creates a disk. Written from the record layout alone, independently of the
// program's own code, so the two can check each other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine.h"
#include "sim/record_check.h"

namespace vmd::sim {

// A record from readable settings (docs/simulator.md, "Disk settings
// records"): {sizeMb (or sizeBytes), diskFlags, driveLetter, substanceFlags, imQuotaMb,
// physicalDriveSizeMb, physicalDriveFile, numaNodeMasks[], volumeLabel,
// clusterSize, fileSystem, fsFlags, fsExtraMask, everyonePermissions,
// volumeSerial, customFolders[], imageFile, imageFlags, imageFormat,
// compressionLevel, timingSaveMinutes, signature, index, marker}, every key
// optional. Throws std::runtime_error when a section outgrows the layout.
RecordBytes buildRecord(const json& settings);

// The record the controller keeps for one entry of controller.disks[]: its
// "settingsRecord" hex taken as it stands, else built from its "settings";
// the disk entry's index, signature, size (bytes), directIo and letter stand
// in for settings that are not given.
RecordBytes diskRecord(const json& disk);

// Readable settings of a well-formed record, in the keys buildRecord takes.
json decodeRecord(const RecordBytes& record);

}  // namespace vmd::sim
