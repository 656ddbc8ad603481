// How each call of the platform services reads in the request trace
// (docs/simulator.md, "The request trace"): the decorators of the fault
// layer open a TracedCall before a call and hand it the result.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "sim/fault_layer.h"
#include "sim/trace.h"

namespace vmd::sim {

// Results as the trace writes them: "ok" with what matters, "error 0x..."
// for a call that says why it failed, "failed" for one that does not.
void describe(TraceLine& l, bool r);
void describe(TraceLine& l, const SysStatus& r);
void describe(TraceLine& l, const ProcessEnvironment::MutexResult& r);
void describe(TraceLine& l, const std::optional<std::vector<DeviceSetup::Interface>>& r);
void describe(TraceLine& l, const DeviceIo::OpenResult& r);
void describe(TraceLine& l, const VolumeService::VolumeInfo& r);
void describe(TraceLine& l, const VolumeService::FreeSpace& r);
void describe(TraceLine& l, const VolumeService::FreeSpaceEx& r);
void describe(TraceLine& l, const VolumeService::Text& r);
void describe(TraceLine& l, const VolumeService::PathNames& r);
void describe(TraceLine& l, const FileService::Size& r);
void describe(TraceLine& l, const std::optional<Bytes>& r);
void describe(TraceLine& l, const std::optional<std::uint32_t>& r);
void describe(TraceLine& l, const std::optional<SystemInfo::Memory>& r);
void describe(TraceLine& l, const std::optional<std::wstring>& r);
void describe(TraceLine& l, const std::optional<std::vector<std::uint32_t>>& r);

// Results whose type alone does not say what they are.
void describeMask(TraceLine& l, std::uint32_t mask);       // GetLogicalDrives
void describeType(TraceLine& l, std::uint32_t type);       // GetDriveTypeW
void describeAttributes(TraceLine& l, std::uint32_t a);    // GetFileAttributesW
void describeCode(TraceLine& l, std::uint32_t error);      // 0 or a system error
void describeHresult(TraceLine& l, std::int32_t hr);       // CoInitialize
void describeBroadcast(TraceLine& l, std::int32_t result); // BroadcastSystemMessageW
void describeTime(TraceLine& l, const SystemTime& t);      // GetSystemTime, as ISO 8601 UTC
void describeFileTime(TraceLine& l, std::uint64_t fileTime);
void describeControl(TraceLine& l, const DeviceIo::ControlResult& r, const void* out, std::uint32_t outSize);
void describeEnumerated(TraceLine& l, std::uint32_t error, const Registry::Value& v);

// A request's result with the bytes its output buffer received.
inline auto describeWith(const void* out, std::uint32_t outSize) {
  return [out, outSize](TraceLine& l, const DeviceIo::ControlResult& r) { describeControl(l, r, out, outSize); };
}
// An enumeration's result with the value it read.
inline auto describeValue(const Registry::Value& v) {
  return [&v](TraceLine& l, std::uint32_t error) { describeEnumerated(l, error, v); };
}

// Targets: an interface class as the set-up services spell it
// ({XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}); the letters a volume broadcast
// record names ("R:").
std::string interfaceClassText(const InterfaceClass& c);
std::string broadcastTarget(const Bytes& record);

// One call as the trace shows it. Made before the call's rule is asked, so
// that a rule's error and the machine's events land on its line; the line
// is written when the call returns (or at finish()). With no trace kept it
// is one pointer test.
class TracedCall {
 public:
  TracedCall(CallLog& log, const char* api, const std::string& target) : sink_(log.trace()) {
    if (sink_) {
      sink_->open(call_);
      line_ = sink_->line(api, target);
    }
  }
  TracedCall(const TracedCall&) = delete;
  TracedCall& operator=(const TracedCall&) = delete;
  ~TracedCall() { finish(); }

  explicit operator bool() const { return sink_ != nullptr; }
  TraceLine& line() { return line_; }

  // The result, written as `describe` (or `how`) has it; handed back unchanged.
  template <class R>
  R done(R r) {
    if (sink_) describe(line_, r);
    return r;
  }
  template <class R, class How>
  R done(R r, How how) {
    if (sink_) how(line_, r);
    return r;
  }
  void done() {
    if (sink_) line_.ok();
  }

  void finish() {
    if (sink_) sink_->finish(call_, std::move(line_));
    sink_ = nullptr;
  }
  // The call was not made after all: no line.
  void cancel() {
    if (sink_) sink_->cancel(call_);
    sink_ = nullptr;
  }

 private:
  TraceSink* sink_;
  TraceSink::Call call_;
  TraceLine line_;
};

}  // namespace vmd::sim
