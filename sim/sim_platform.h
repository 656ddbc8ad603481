// The whole simulated machine as the program's Platform: Windows services
// and the controller, over one Machine, each behind the fault layer, which
// counts the calls and applies the machine's fault rules. The console and
// catalogue come from the host the simulator itself runs on.
#pragma once

#include <cstdio>

#include "sim/controller_model.h"
#include "sim/fault_layer.h"
#include "sim/machine.h"
#include "sim/sim_devices.h"
#include "sim/sim_process.h"
#include "sim/sim_services.h"
#include "sim/sim_volumes.h"

namespace vmd::sim {

// The simulated services themselves: behaviour only.
struct SimServices {
  explicit SimServices(Machine& m)
      : process(m), setup(m), io(m), volumes(m), files(m), registry(m), system(m), clock(m), broadcast(m) {}
  SimProcess process;
  SimSetup setup;
  SimDeviceIo io;
  SimVolumes volumes;
  SimFiles files;
  SimRegistry registry;
  SimSystem system;
  SimClock clock;
  SimBroadcast broadcast;
};

class SimPlatform {
 public:
  SimPlatform(Machine& m, OutputStreams& streams, MessageCatalog& catalog, std::FILE* keysIn = stdin)
      : machine(m),
        plain(m),
        keys(m, keysIn),
        process(plain.process, m),
        setup(plain.setup, m),
        io(plain.io, m),
        volumes(plain.volumes, m),
        files(plain.files, m),
        registry(plain.registry, m),
        system(plain.system, m),
        clock(plain.clock, m),
        broadcast(plain.broadcast, m),
        platform{streams, keys, catalog, process, setup, io, volumes, files, registry, system, clock, broadcast} {}

  Machine& machine;
  SimServices plain;
  // What the program is given: the services behind the fault layer.
  StdinKeys keys;
  FaultInjectingProcess process;
  FaultInjectingSetup setup;
  FaultInjectingDeviceIo io;
  FaultInjectingVolumes volumes;
  FaultInjectingFiles files;
  FaultInjectingRegistry registry;
  FaultInjectingSystem system;
  FaultInjectingClock clock;
  FaultInjectingBroadcast broadcast;
  Platform platform;
};

}  // namespace vmd::sim
