// A machine with three disks, the program's view of it, one disk inventory
// and the volume side of it: shared by the inventory's and the disk
// volumes' tests.
#pragma once

#include <string>

#include "sim/sim_platform.h"
#include "support/fakes.h"
#include "volume/volume.h"

namespace vmd::test {

using sim::json;

inline const char* kController = "\\\\?\\root#scsiadapter#0000#{48fa1fe0-7189-432a-9fd4-9db766b64b31}";

// A machine, the program's view of it, and one inventory.
struct Rig {
  explicit Rig(const json& state)
      : machine(state),
        sim(machine, streams, catalog),
        controller(sim.setup, sim.io),
        inventory(controller),
        volumes(inventory, sim.platform.io, sim.platform.volumes, sim.platform.setup) {
    controller.discover();
  }

  int stat(const std::string& group, const std::string& key) {
    const json& stats = machine.stats;
    if (!stats.contains(group) || !stats[group].contains(key)) return 0;
    return stats[group][key].get<int>();
  }

  sim::Machine machine;
  test::CapturingStreams streams;
  test::MapCatalog catalog;
  sim::SimPlatform sim;
  CVmDevControl controller;
  DiskInventory inventory;
  DiskVolumes volumes;
};

// Disk 7 (SCSI, system disk 2, volumes at E and G), disk 9 (Direct-IO at S),
// disk 12 (SCSI without volumes).
inline json sampleMachine() {
  return json::parse(R"({
    "controller": {"disks": [
      {"index": 7, "size": 5368709120, "image": true, "systemDiskNumber": 2},
      {"index": 9, "size": 33554432, "good": false, "directIo": true, "letter": "S"},
      {"index": 12, "size": 1048576, "systemDiskNumber": 4}]},
    "drives": [
      {"letter": "C", "type": "fixed", "volume": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\"},
      {"letter": "G", "type": "removable", "volume": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\"},
      {"letter": "E", "type": "fixed", "volume": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\"}],
    "volumes": [
      {"name": "\\\\?\\Volume{3f1d6c52-0000-0000-0000-100000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{3f1d6c52-0000-0000-0000-100000000000}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 0, "offset": 1048576, "length": 255999344640}]},
      {"name": "\\\\?\\Volume{00000002-0000-0000-0000-000000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{00000002}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 2, "offset": 65536, "length": 1048576}]},
      {"name": "\\\\?\\Volume{00000001-0000-0000-0000-000000000000}\\",
       "interfacePath": "\\\\?\\STORAGE#Volume#{00000001}#{53f5630d-b6bf-11d0-94f2-00a0c91efb8b}",
       "extents": [{"disk": 2, "offset": 2097152, "length": 1048576}]}]
  })");
}

}  // namespace vmd::test
