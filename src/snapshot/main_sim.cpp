// vmdsnap-sim: vmdsnap reading the simulated machine of a state file, as
// vmdctl-sim runs the program on it. The state file is read, never written.
//
//   vmdsnap-sim [--sim-state FILE] [-o OUT]
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text_codec.h"
#include "platform/host.h"
#include "sim/sim_platform.h"
#include "snapshot/snapshot_tool.h"

namespace {

constexpr int kStateUnreadable = 65;  // as vmdctl-sim

std::string defaultStatePath() {
  if (const char* p = std::getenv("VMDCTL_SIM_STATE"); p && *p) return p;
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.vmdctl-sim.json";
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::wstring> args;
  for (int i = 0; i < argc; ++i) args.push_back(vmd::fromUtf8(argv[i]));
  std::string statePath = defaultStatePath();
  if (args.size() >= 3 && args[1] == L"--sim-state") {
    statePath = vmd::toUtf8(args[2]);
    args.erase(args.begin() + 1, args.begin() + 3);
  }
  vmd::sim::Machine machine;
  try {
    machine = vmd::sim::Machine::load(statePath);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vmdsnap-sim: %s\n", e.what());
    return kStateUnreadable;
  }
  std::vector<wchar_t*> argvWide;
  for (std::wstring& a : args) argvWide.push_back(a.data());
  argvWide.push_back(nullptr);
  const auto streams = vmd::makeHostStreams();
  const auto catalog = vmd::makeHostCatalog();
  vmd::sim::SimPlatform sim(machine, *streams, *catalog);
  return vmd::snapshot::runSnapshot(static_cast<int>(args.size()), argvWide.data(), sim.platform);
}
