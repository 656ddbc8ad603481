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

// Results as the trace writes them: "ok" with what matters, or "error 0x..."
// with the error the call gave.
void describe(TraceLine& l, const SysStatus& r);
void describe(TraceLine& l, const SysResult<std::vector<DeviceSetup::Interface>>& r);
void describe(TraceLine& l, const SysResult<DeviceIo::Handle>& r);
void describe(TraceLine& l, const SysResult<VolumeService::VolumeInfo>& r);
void describe(TraceLine& l, const SysResult<VolumeService::FreeSpace>& r);
void describe(TraceLine& l, const SysResult<VolumeService::FreeSpaceEx>& r);
void describe(TraceLine& l, const SysResult<VolumeService::PathNames>& r);
void describe(TraceLine& l, const SysResult<Bytes>& r);
void describe(TraceLine& l, const SysResult<SystemInfo::Memory>& r);
void describe(TraceLine& l, const SysResult<std::vector<std::uint32_t>>& r);
void describe(TraceLine& l, const SysResult<Registry::Value>& r);

// Results whose type alone does not say what they are.
void describeMutex(TraceLine& l, const SysResult<bool>& r);           // CreateMutexW: existed, lastError 183
void describeMember(TraceLine& l, const SysResult<bool>& r);          // GetTokenInformation: in Administrators
void describeDirectory(TraceLine& l, const SysResult<bool>& r);       // PathIsDirectoryW
void describeMask(TraceLine& l, const SysResult<std::uint32_t>& r);   // GetLogicalDrives
void describeType(TraceLine& l, const SysResult<std::uint32_t>& r);   // GetDriveTypeW
void describeAttributes(TraceLine& l, const SysResult<std::uint32_t>& r);  // GetFileAttributesW
void describeDword(TraceLine& l, const SysResult<std::uint32_t>& r);  // RegQueryValueExW
void describeSize(TraceLine& l, const SysResult<std::uint64_t>& r);   // a file's length
void describeVolumeName(TraceLine& l, const SysResult<std::wstring>& r);  // GetVolumeNameForVolumeMountPointW
void describePath(TraceLine& l, const SysResult<std::wstring>& r);    // GetSystemWindowsDirectoryW
void describeBroadcast(TraceLine& l, const SysResult<std::int32_t>& r);  // BroadcastSystemMessageW
void describeTime(TraceLine& l, const SystemTime& t);      // GetSystemTime, as ISO 8601 UTC
void describeFileTime(TraceLine& l, std::uint64_t fileTime);
void describeControl(TraceLine& l, const SysResult<std::uint32_t>& r, const void* out, std::uint32_t outSize);

// A request's result with the bytes its output buffer received.
inline auto describeWith(const void* out, std::uint32_t outSize) {
  return [out, outSize](TraceLine& l, const SysResult<std::uint32_t>& r) { describeControl(l, r, out, outSize); };
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
  // The result of a call whose result the caller keeps on its own way.
  template <class R>
  void show(const R& r) {
    if (sink_) describe(line_, r);
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
