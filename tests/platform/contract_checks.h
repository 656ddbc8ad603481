// What the platform interfaces promise, as checks over any implementation of
// them: run from GoogleTest against the simulated machine and from
// vmdctl-contract.exe against the Win32 services under Wine, so that the
// simulated Windows is held to what Wine answers. A check that only one side
// can answer says which, and why.
#pragma once

#include <vector>

#include "contract_support.h"
#include "contract_checks_devices.h"
#include "contract_checks_files.h"
#include "contract_checks_process.h"
#include "contract_checks_registry.h"
#include "contract_checks_system.h"
#include "contract_checks_volumes.h"

namespace vmd::contract {

// The checks' own macros end here.
#undef VERIFY
#undef VERIFY_EQ

// Which side a check runs on; a one-sided check says why.
enum class Runs { Both, WineOnly, SimOnly };

struct Check {
  const char* name;
  void (*body)(Subject&, Report&);
  Runs runs = Runs::Both;
  const char* why = "";
};

inline const std::vector<Check>& checks() {
  static const std::vector<Check> all = {
      {"catalog.every_message_formats_as_the_catalogue_says", everyMessageFormatsAsTheCatalogueSays},
      {"catalog.banner_insert_is_filled", bannerInsertIsFilled},
      {"catalog.inserts_not_given_read_as_empty", insertsNotGivenReadAsEmpty},
      {"catalog.missing_message_is_nothing", missingMessageIsNothing},
      {"catalog.every_string_loads_as_the_catalogue_says", everyStringLoadsAsTheCatalogueSays},
      {"catalog.missing_string_is_empty", missingStringIsEmpty},
      {"keys.key_without_console_input_is_none", keyWithoutConsoleInputIsNone},
      {"process.framework_starts", frameworkStarts},
      {"process.second_mutex_of_the_same_name_reports_already_exists", secondMutexOfTheSameNameReportsAlreadyExists},
      {"process.token_holds_administrators", tokenHoldsAdministrators},
      {"process.com_starts_and_stops", comStartsAndStops},
      {"setup.no_controller_means_an_empty_set", noControllerMeansAnEmptySet},
      {"setup.volume_interfaces_come_in_index_order_with_paths", volumeInterfacesComeInIndexOrderWithPaths},
      {"io.opening_a_missing_device_gives_the_error", openingAMissingDeviceGivesTheError},
      {"io.a_file_opens_flushes_and_refuses_disk_requests", aFileOpensFlushesAndRefusesDiskRequests},
      {"volumes.drive_c_is_there", driveCIsThere},
      {"volumes.drive_z_maps_the_unix_root", driveZMapsTheUnixRoot, Runs::WineOnly,
       "Z: is Wine's own drive for the Unix file system"},
      {"volumes.drive_types", driveTypes},
      {"volumes.volume_information_of_c", volumeInformationOfC},
      {"volumes.volume_information_of_a_missing_drive_fails", volumeInformationOfAMissingDriveFails},
      {"volumes.free_space_of_c", freeSpaceOfC},
      {"volumes.mount_point_of_a_missing_drive_is_refused", mountPointOfAMissingDriveIsRefused},
      {"volumes.volume_name_and_path_names_of_c", volumeNameAndPathNamesOfC},
      {"volumes.deleting_a_mount_point_that_is_none_fails", deletingAMountPointThatIsNoneFails},
      {"files.whole_write_then_size_attributes_and_head", wholeWriteThenSizeAttributesAndHead},
      {"files.missing_file_answers", missingFileAnswers},
      {"files.whole_write_leaves_exactly_the_bytes", wholeWriteLeavesExactlyTheBytes},
      {"files.write_over_a_folder_is_open_failed", writeOverAFolderIsOpenFailed},
      {"files.write_into_a_missing_folder_is_open_failed", writeIntoAMissingFolderIsOpenFailed, Runs::WineOnly,
       "the simulated machine keeps files without their folders: any path can be created"},
      {"files.folders_are_directories", foldersAreDirectories},
      {"registry.missing_key_reads_nothing", missingKeyReadsNothing},
      {"registry.values_are_written_enumerated_read_and_deleted", valuesAreWrittenEnumeratedReadAndDeleted},
      {"registry.mounted_devices_opens_for_write", mountedDevicesOpensForWrite},
      {"system.memory_is_reported", memoryIsReported},
      {"system.windows_directory_is_c_windows", windowsDirectoryIsCWindows},
      {"system.clock_agrees_with_itself_and_sleep_waits", clockAgreesWithItselfAndSleepWaits},
      {"system.disk_signatures_come_from_wmi", diskSignaturesComeFromWmi},
      {"handle.closes_once_after_moves", deviceHandleClosesOnceAfterMoves},
      {"handle.close_is_explicit_and_final", deviceHandleCloseIsExplicitAndFinal},
      {"handle.that_did_not_open_closes_nothing", deviceHandleThatDidNotOpenClosesNothing},
      {"mountmgr.opens_and_answers_the_auto_mount_query", mountPointManagerOpensAndAnswersTheAutoMountQuery},
      {"drive.scratch_drive_is_present", scratchDriveIsPresent},
      {"drive.volume_locks_dismounts_and_unlocks", volumeLocksDismountsAndUnlocks},
      {"drive.volume_answers_the_partition_query_or_refuses_it", volumeAnswersThePartitionQueryOrRefusesIt},
      {"drive.volume_flush_needs_write_access", volumeFlushNeedsWriteAccess},
      {"drive.volume_mount_points_are_not_moved_by_wine", volumeMountPointsAreNotMovedByWine, Runs::WineOnly,
       "Wine implements neither SetVolumeMountPointW nor DeleteVolumeMountPointW (120)"},
      {"drive.volume_mount_point_moves_and_comes_back", volumeMountPointMovesAndComesBack, Runs::SimOnly,
       "Wine cannot move a letter (120); Windows and the simulated machine do"},
      {"drive.volume_label_is_set_and_removed", volumeLabelIsSetAndRemoved},
      {"registry.drive_letter_values_are_walked_with_small_buffers", driveLetterValuesAreWalkedWithSmallBuffers},
      {"registry.mounted_devices_holds_the_drives", mountedDevicesHoldsTheDrives},
      {"registry.values_are_read_with_read_access_alone", valuesAreReadWithReadAccessAlone},
      {"broadcast.of_a_volume_arrival", broadcastOfAVolumeArrival},
  };
  return all;
}

inline bool runsOn(const Check& c, Side side) {
  return c.runs == Runs::Both || (c.runs == Runs::WineOnly) == (side == Side::Wine);
}

}  // namespace vmd::contract
