// What the commands that change disks share: the volume services of the
// running program with the force-dismount question on its console.
#pragma once

#include "commands/commands.h"
#include "volume/volume.h"

namespace vmd {

// The question asks even in silent mode: only the user may let another
// process's open handles go.
inline VolumeContext makeVolumeContext(App& app) {
  Output& io = app.io;
  return VolumeContext{
      app.controller, app.sys.io, app.sys.volumes, app.sys.registry, app.sys.clock, app.sys.broadcast,
      [&io] {
        // A line that begins "Warning: " goes to standard error like every
        // warning; the prompt goes to standard output like every prompt.
        io.err(L"Warning: this volume is in use by another process. If it is dismounted, all opened handles to "
               L"this volume would then be invalid.\n");
        return io.confirm(L"Press 'Y' or 'y' to force a dismount on this volume, any other key to cancel: ");
      }};
}

}  // namespace vmd
