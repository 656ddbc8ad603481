// What the disk commands share for volume management: the volume services
// of the running program, with the force-dismount question on its console,
// and the dismount of all of a disk's volumes.
#pragma once

#include "console/app.h"
#include "controller/inventory.h"
#include "volume/volume.h"

namespace vmd {

// The question asks even in silent mode: only the user may let another
// process's open handles go.
VolumeContext makeVolumeContext(App& app);

// Locks, dismounts, unlocks and closes each volume of the disk in turn.
// False when the user declined to force a dismount: the volumes before it
// stay dismounted, the rest are untouched.
bool DismountDiskVolumes(VolumeContext& ctx, DiskInventory& inventory, const DiskInfo& info);

}  // namespace vmd
