// A capture written as the simulated machine's state (schema 2,
// docs/simulator.md), so that vmdctl-sim runs any command on a copy of the
// machine, and scripts read the machine's disks from one JSON document.
#pragma once

#include <nlohmann/json.hpp>

#include "snapshot/capture.h"

namespace vmd::snapshot {

// A disk's records are written readably (`settings`, `status`) where the
// simulator builds exactly the bytes the controller returned from that
// description, and as hex (`settingsRecord`, `statusRecord`) otherwise.
nlohmann::ordered_json stateDocument(const Capture& capture);

}  // namespace vmd::snapshot
