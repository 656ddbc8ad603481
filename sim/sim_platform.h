// The whole simulated machine as the program's Platform: Windows services
// and the controller, over one Machine. The console and catalogue come from
// the host the simulator itself runs on.
#pragma once

#include <cstdio>

#include "sim/controller_model.h"
#include "sim/machine.h"
#include "sim/sim_devices.h"
#include "sim/sim_process.h"
#include "sim/sim_services.h"
#include "sim/sim_volumes.h"

namespace vmd::sim {

class SimPlatform {
 public:
  SimPlatform(Machine& m, OutputStreams& streams, MessageCatalog& catalog, std::FILE* keysIn = stdin)
      : machine(m),
        process(m),
        keys(m, keysIn),
        setup(m),
        io(m),
        volumes(m),
        files(m),
        registry(m),
        system(m),
        clock(m),
        broadcast(m),
        platform{streams, keys, catalog, process, setup, io, volumes, files, registry, system, clock, broadcast} {}

  Machine& machine;
  SimProcess process;
  StdinKeys keys;
  SimSetup setup;
  SimDeviceIo io;
  SimVolumes volumes;
  SimFiles files;
  SimRegistry registry;
  SimSystem system;
  SimClock clock;
  SimBroadcast broadcast;
  Platform platform;
};

}  // namespace vmd::sim
