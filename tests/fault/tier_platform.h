// One run of the program on the simulated machine, in process, as the fault
// tier drives it: the machine's services behind the fault layer as vmdctl-sim
// has them, a call log that keeps every call in order (and which one a rule
// failed), a budget of calls past which the run is stopped, and keys typed
// from a string.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd::fault {

// One call the program made, in the order made.
struct Call {
  std::string api;
  std::uint32_t code = 0;  // the control code of a DeviceIoControl
  std::string path;        // what the call was about
  bool injected = false;   // a fault rule failed it
  std::uint32_t injectedError = 0;
  std::size_t printed = 0;  // characters printed (both streams) before the call
  std::uint64_t repeats = 0;  // the same call made again right after, after the first fault
  // Device opens and requests, seen in front of the fault layer.
  bool device = false;
  std::uint32_t access = 0;
  Bytes in;
  bool ok = true;
  std::uint32_t error = 0;
};

// Thrown out of the program when a run has made more calls than any run that
// ends could make: the run does not end by itself.
class RunawayRun : public std::runtime_error {
 public:
  explicit RunawayRun(const std::string& lastCall) : std::runtime_error(lastCall) {}
};

// The machine's call log with the order of calls kept and a budget. Once a
// call has failed, a call made again just as the one before (a loop over a
// failing call) is counted on that one instead of kept apart; requests and
// opens are always kept, since their results are noted on them.
class TierLog : public sim::CallLog {
 public:
  TierLog(sim::Machine& machine, const test::CapturingStreams& streams, std::uint64_t budget)
      : machine_(machine), streams_(streams), budget_(budget) {}

  std::optional<std::uint32_t> enter(std::string_view api, std::uint32_t code, const std::string& path) override;
  void count(const std::string& group, const std::string& key) override;
  void note(const std::string& group, const std::string& key, const std::string& value) override {
    machine_.note(group, key, value);
  }

  std::vector<Call> calls;

 private:
  void spend(std::string_view api);

  sim::Machine& machine_;
  const test::CapturingStreams& streams_;
  std::uint64_t budget_;
  std::uint64_t spent_ = 0;
  bool faulted_ = false;
};

// In front of the fault layer's device I/O: notes the access of each open and
// the input and result of each request on the call the fault layer logged.
class ObservingDeviceIo : public DeviceIo {
 public:
  ObservingDeviceIo(DeviceIo& inner, TierLog& log) : inner_(inner), log_(log) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override;
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override;
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override { inner_.close(h); }

 private:
  Call* loggedSince(std::size_t before);

  DeviceIo& inner_;
  TierLog& log_;
};

// Keys typed from a string, one character a key; then the end of input.
class StringKeys : public KeyReader {
 public:
  StringKeys(sim::Machine& machine, std::string keys) : machine_(machine), keys_(std::move(keys)) {}
  int readKey() override;
  std::size_t read() const { return next_; }

 private:
  sim::Machine& machine_;
  std::string keys_;
  std::size_t next_ = 0;
};

// The program's Platform over one machine, assembled as sim/sim_platform.h
// does it, with the tier's log in place of the machine's.
class TierPlatform {
 public:
  TierPlatform(sim::Machine& machine, MessageCatalog& catalog, std::string keys, std::uint64_t budget);
  // runProgram with argv[0] "vmdctl"; RunawayRun when the budget is spent.
  int run(const std::vector<std::wstring>& args);
  std::size_t openHandles() const { return io.openHandles(); }

  test::CapturingStreams streams;
  TierLog log;
  sim::SimServices plain;
  StringKeys keys;
  sim::FaultInjectingProcess process;
  sim::FaultInjectingSetup setup;
  sim::FaultInjectingDeviceIo io;
  ObservingDeviceIo observedIo;
  sim::FaultInjectingVolumes volumes;
  sim::FaultInjectingFiles files;
  sim::FaultInjectingRegistry registry;
  sim::FaultInjectingSystem system;
  sim::FaultInjectingClock clock;
  sim::FaultInjectingBroadcast broadcast;
  Platform platform;
};

}  // namespace vmd::fault
