// What the commands that address one disk share: how they begin, the volume
// services of the running program with the force-dismount question on its
// console, and the dismount of all of a disk's volumes.
#pragma once

#include "console/app.h"
#include "controller/inventory.h"
#include "volume/volume.h"

namespace vmd {

// The start of every command that names a disk by its index: the controller
// session, the index argument (InvalidUse when there is none) and the disk it
// names, with the reason printed when any of them fails. Success to go on.
CommandResult openDiskCommand(App& app, int argc, wchar_t** argv, DiskInventory& inventory, DiskInfo& info);

// The question asks even in silent mode: only the user may let another
// process's open handles go.
VolumeContext makeVolumeContext(App& app);

// Locks, dismounts, unlocks and closes each volume of the disk in turn.
// False when the user declined to force a dismount: the volumes before it
// stay dismounted, the rest are untouched.
bool DismountDiskVolumes(VolumeContext& ctx, DiskInventory& inventory, const DiskInfo& info);

}  // namespace vmd
