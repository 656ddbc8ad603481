// vmdctl-sim: the program run against the simulated machine.
//
//   vmdctl-sim [--sim-state FILE] [--sim-reset] [--sim-restart] [--sim-argv0 NAME] [--sim-trace FILE]
//              <command> [<option>...]
//   vmdctl-sim [--sim-state FILE] --sim-restart
//
// The machine's state is read from FILE (default: $VMDCTL_SIM_STATE, else
// .vmdctl-sim.json in the home folder), the command runs, and the state is
// written back, so one run sees what the one before it did. --sim-reset
// starts from the default machine. --sim-argv0 sets the program path the
// command sees as argv[0] (default: this executable's path, with '/' as '\').
// --sim-restart starts the machine again before the command; without a
// command it only restarts the machine and writes it back. --sim-trace
// writes every call the program makes to FILE (docs/simulator.md, "The
// request trace"); a FILE that cannot be written stops the run before the
// command, with the machine untouched.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host.h"
#include "shell/dispatch.h"
#include "base/text_codec.h"
#include "sim/sim_platform.h"

namespace {

std::string defaultStatePath() {
  if (const char* p = std::getenv("VMDCTL_SIM_STATE"); p && *p) return p;
  const char* home = std::getenv("HOME");
  if (!home || !*home) home = std::getenv("USERPROFILE");
  std::string dir = home && *home ? home : ".";
  return dir + "/.vmdctl-sim.json";
}

// Binary: the trace is the same bytes, "\n" line ends, on every build.
std::FILE* openForWriting(const std::wstring& path) {
#ifdef _WIN32
  return _wfopen(path.c_str(), L"wb");
#else
  return std::fopen(vmd::toUtf8(path).c_str(), "wb");
#endif
}

int simMain(std::vector<std::wstring> args) {
  std::string statePath = defaultStatePath();
  bool reset = false;
  bool restart = false;
  std::optional<std::wstring> tracePath;
  std::wstring argv0 = args.empty() ? L"vmdctl-sim" : args[0];
  for (wchar_t& c : argv0)
    if (c == L'/') c = L'\\';
  std::size_t first = 1;
  while (first < args.size() && args[first].rfind(L"--sim-", 0) == 0) {
    const std::wstring& a = args[first];
    if (a == L"--sim-reset") {
      reset = true;
      ++first;
    } else if (a == L"--sim-restart") {
      restart = true;
      ++first;
    } else if ((a == L"--sim-state" || a == L"--sim-argv0" || a == L"--sim-trace") && first + 1 < args.size()) {
      if (a == L"--sim-state") statePath = vmd::toUtf8(args[first + 1]);
      else if (a == L"--sim-trace") tracePath = args[first + 1];
      else argv0 = args[first + 1];
      first += 2;
    } else {
      std::fprintf(stderr, "vmdctl-sim: unknown simulator option %s\n", vmd::toUtf8(a).c_str());
      return 64;
    }
  }
  vmd::sim::Machine machine;
  try {
    if (!reset) machine = vmd::sim::Machine::load(statePath);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vmdctl-sim: %s\n", e.what());
    return 65;
  }
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> traceFile(nullptr, std::fclose);
  std::unique_ptr<vmd::sim::TraceSink> trace;
  if (tracePath) {
    traceFile.reset(openForWriting(*tracePath));
    if (!traceFile) {
      std::fprintf(stderr, "vmdctl-sim: cannot write the trace file %s: %s\n", vmd::toUtf8(*tracePath).c_str(),
                   std::strerror(errno));
      return 64;
    }
    trace = std::make_unique<vmd::sim::TraceSink>(traceFile.get(), [&machine] { return machine.nowMs(); });
    machine.setTrace(trace.get());
  }
  // Written out before the state is saved: what the machine settles then is
  // not the program's doing. False when the file could not take it all.
  auto endTrace = [&]() {
    if (!trace) return true;
    machine.setTrace(nullptr);
    const bool written = trace->close();
    return std::fclose(traceFile.release()) == 0 && written;
  };
  auto traceFailed = [&]() {
    std::fprintf(stderr, "vmdctl-sim: writing the trace file %s failed\n", vmd::toUtf8(*tracePath).c_str());
    return 64;
  };

  // The run ends with its trace and its state written; failing either shows in the exit code.
  auto finish = [&](int rc) {
    const bool traced = endTrace();
    try {
      machine.save(statePath);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "vmdctl-sim: %s\n", e.what());
      return 65;
    }
    return traced ? rc : traceFailed();
  };

  machine.stats = vmd::sim::json::object();
  if (restart) machine.restart();
  if (restart && first == args.size()) return finish(0);

  std::vector<std::wstring> programArgs{argv0};
  programArgs.insert(programArgs.end(), args.begin() + static_cast<std::ptrdiff_t>(first), args.end());
  std::vector<wchar_t*> argv;
  for (auto& a : programArgs) argv.push_back(a.data());
  argv.push_back(nullptr);

  auto streams = vmd::makeHostStreams();
  auto catalog = vmd::makeHostCatalog();
  int rc;
  {
    vmd::sim::SimPlatform sim(machine, *streams, *catalog);
    rc = vmd::runProgram(sim.platform, static_cast<int>(programArgs.size()), argv.data());
    std::fflush(stdout);
    if (sim.io.openHandles() != 0) machine.stats["leakedHandles"] = sim.io.openHandles();
  }
  return finish(rc);
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::wstring> args(argv, argv + argc);
  return simMain(std::move(args));
}
#else
int main(int argc, char** argv) {
  std::vector<std::wstring> args;
  for (int i = 0; i < argc; ++i) args.push_back(vmd::fromUtf8(argv[i]));
  return simMain(std::move(args));
}
#endif
