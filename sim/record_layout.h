// The controller's side of the disk settings record: builds the record the
// controller keeps for a disk from readable settings, reads one back into
// readable settings, and checks a record as the driver does before it
// creates a disk. Written from the record layout alone, independently of the
// program's own code, so the two can check each other.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/machine.h"
#include "sim/record_check.h"

namespace vmd::sim {

// Readable settings of a disk (docs/simulator.md, "Disk settings records"):
// every key optional, each number already checked to fit its field.
struct SettingsDescription {
  std::optional<std::uint64_t> sizeMb, sizeBytes, diskFlags, driveLetter, index, marker, signature;
  std::optional<std::uint64_t> substanceFlags, imQuotaMb, physicalDriveSizeMb;
  std::optional<std::string> physicalDriveFile;
  std::optional<std::vector<std::uint64_t>> numaNodeMasks;
  std::optional<std::string> volumeLabel;
  std::optional<std::uint64_t> clusterSize, fileSystem, fsFlags, fsExtraMask, everyonePermissions, volumeSerial;
  std::optional<std::vector<std::string>> customFolders;
  std::optional<std::string> imageFile;
  std::optional<std::uint64_t> imageFlags, imageFormat, compressionLevel, timingSaveMinutes;

  // The keys `top` gives replace these; a size `top` gives in either form
  // replaces both of ours.
  void layOver(const SettingsDescription& top);
};

// Reads readable settings as strictly as the rest of the state file: an
// unknown key, a wrong type or a value its field cannot hold throws
// LoadError naming its place under `where`.
SettingsDescription readSettings(const json& settings, const std::string& where);

// Settings whose sections outgrow the record's 16-bit offsets: no record can
// hold them, and the controller's read of them fails.
class RecordTooLarge : public std::runtime_error {
 public:
  RecordTooLarge() : std::runtime_error("disk settings do not fit a settings record") {}
};

// The record of readable settings; throws RecordTooLarge.
RecordBytes buildRecord(const SettingsDescription& settings);
// The same from their JSON form (read with readSettings at "settings").
RecordBytes buildRecord(const json& settings);

// The record the controller keeps for one entry of controller.disks[] at
// `where`: its "settingsRecord" hex taken as it stands, else built from its
// "settings"; the disk entry's index, signature, size (bytes), directIo and
// letter stand in for settings that are not given. Throws LoadError for a
// description it refuses, RecordTooLarge for one no record holds.
RecordBytes diskRecord(const json& disk, const std::string& where = "disk");

// The live status record such an entry describes: "statusRecord" as it
// stands, or its "status" keys laid over its settings; nothing when it
// describes neither. Throws as diskRecord does.
std::optional<RecordBytes> diskStatus(const json& disk, const std::string& where = "disk");

// Readable settings of a well-formed record, in the keys readSettings takes.
json decodeRecord(const RecordBytes& record);

}  // namespace vmd::sim
