// The fault layer: decorators around the platform services that count every
// call and fail the ones a rule chooses, before the call reaches the service
// they wrap. They wrap any implementation (the simulated machine's, or the
// Win32 services in a test), so the wrapped services hold behaviour only.
// The call names are in sim/call_names.h; docs/simulator.md lists them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "sim/call_names.h"
#include "sim/trace.h"

namespace vmd::sim {


// One rule: fails the calls named `api`, of control code `code` and about
// `path` (case-insensitive) when given; with `nth`, only the n-th of them.
struct FaultRule {
  std::string api;
  std::optional<std::uint32_t> code;
  std::optional<std::string> path;
  std::optional<std::uint32_t> nth;
  std::uint32_t error = 31;
};

// Matches calls against rules and keeps how often each rule has matched.
class RuleMatcher {
 public:
  // The error of the first rule that fails this call. Every rule that
  // matches api, code and path counts the call towards its `nth`.
  std::optional<std::uint32_t> match(const std::vector<FaultRule>& rules, std::string_view api, std::uint32_t code,
                                     const std::string& path);
  void reset() { seen_.clear(); }

 private:
  std::map<std::size_t, std::uint32_t> seen_;
};

// What the fault layer reports to and asks of: the simulated machine, or a
// plain list of rules around other services.
class CallLog {
 public:
  virtual ~CallLog() = default;
  // A call is about to be made: counts it under stats.api and returns the
  // error a rule injects, if any. `code` is the control code (0 for none),
  // `path` what the call is about.
  virtual std::optional<std::uint32_t> enter(std::string_view api, std::uint32_t code, const std::string& path) = 0;
  // Counters and last values of what the program asked (opens, requests, ...).
  virtual void count(const std::string& group, const std::string& key) = 0;
  virtual void note(const std::string& group, const std::string& key, const std::string& value) = 0;

  // The request trace of this run, or null: with none, the decorators test
  // this one pointer and do nothing more. A rule that fails a call tells it.
  TraceSink* trace() const { return trace_; }
  void setTrace(TraceSink* sink) { trace_ = sink; }

 protected:
  TraceSink* trace_ = nullptr;
};

// A CallLog over a list of rules alone, e.g. around the Win32 services.
class RuleLog : public CallLog {
 public:
  explicit RuleLog(std::vector<FaultRule> rules = {}) : rules(std::move(rules)) {}
  std::optional<std::uint32_t> enter(std::string_view api, std::uint32_t code, const std::string& path) override;
  void count(const std::string& group, const std::string& key) override { ++counts[group][key]; }
  void note(const std::string& group, const std::string& key, const std::string& value) override {
    notes[group][key] = value;
  }

  std::vector<FaultRule> rules;
  std::map<std::string, std::map<std::string, std::uint32_t>> counts;
  std::map<std::string, std::map<std::string, std::string>> notes;

 private:
  RuleMatcher matcher_;
};

class FaultInjectingProcess : public ProcessEnvironment {
 public:
  FaultInjectingProcess(ProcessEnvironment& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysStatus initFramework() override;
  SysResult<bool> createInstanceMutex(const std::wstring& name) override;
  SysResult<bool> tokenHasAdministrators() override;
  // An injected error with its top bit set is the HRESULT itself; any other
  // is a system error code, returned as HRESULT_FROM_WIN32.
  SysStatus comInitialize() override;
  void comUninitialize() override;

 private:
  ProcessEnvironment& inner_;
  CallLog& log_;
};

class FaultInjectingSetup : public DeviceSetup {
 public:
  FaultInjectingSetup(DeviceSetup& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<std::vector<Interface>> presentInterfaces(const InterfaceClass& cls, Scope scope) override;

 private:
  DeviceSetup& inner_;
  CallLog& log_;
};

// Keeps the path of every handle it opened: a request's rule is matched
// against the path its handle was opened with. Opens, closes, flushes,
// requests and their sizes are counted by path and by code name.
class FaultInjectingDeviceIo : public DeviceIo {
 public:
  FaultInjectingDeviceIo(DeviceIo& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override;
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override;
  SysStatus flush(Handle h) override;
  void close(Handle h) override;

  // Handles opened through this layer and not closed yet (a leak when a run
  // ends with any).
  std::size_t openHandles() const { return paths_.size(); }

 private:
  DeviceIo& inner_;
  CallLog& log_;
  std::map<Handle, std::string> paths_;
};

class FaultInjectingVolumes : public VolumeService {
 public:
  FaultInjectingVolumes(VolumeService& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<std::uint32_t> logicalDrives() override;
  SysResult<std::uint32_t> driveType(const std::wstring& root) override;
  SysResult<VolumeInfo> volumeInformation(const std::wstring& root) override;
  SysResult<FreeSpace> diskFreeSpace(const std::wstring& root) override;
  SysResult<FreeSpaceEx> diskFreeSpaceEx(const std::wstring& path) override;
  SysResult<std::wstring> volumeNameForMountPoint(const std::wstring& mountPoint, std::uint32_t chars) override;
  SysResult<PathNames> volumePathNames(const std::wstring& volumeName, std::uint32_t chars) override;
  SysStatus setVolumeMountPoint(const std::wstring& mountPoint, const std::wstring& volumeName) override;
  SysStatus deleteVolumeMountPoint(const std::wstring& mountPoint) override;
  SysStatus setVolumeLabel(const std::wstring& root, const std::wstring* label) override;

 private:
  VolumeService& inner_;
  CallLog& log_;
};

class FaultInjectingFiles : public FileService {
 public:
  FaultInjectingFiles(FileService& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<std::uint32_t> attributes(const std::wstring& path) override;
  SysResult<std::uint64_t> fileSize(const std::wstring& path) override;
  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override;
  // A rule on CreateFileW answers 110 and leaves the file alone; one on
  // WriteFile leaves the file created empty and answers 29.
  SysStatus writeWhole(const std::wstring& path, const Bytes& data) override;
  // Asks what GetFileAttributesW asks, so its rules fail this call too.
  SysResult<bool> pathIsDirectory(const std::wstring& path) override;

 private:
  FileService& inner_;
  CallLog& log_;
};

// Keys opened for writing come back wrapped too: their values' calls are
// matched against `<key>` (enumeration) or `<key>\<value>`.
class FaultInjectingRegistry : public Registry {
 public:
  FaultInjectingRegistry(Registry& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<std::uint32_t> readDword(const std::wstring& key, const std::wstring& value) override;
  SysResult<std::unique_ptr<Key>> openForWrite(const std::wstring& key) override;
  // Asks what opening the key and enumerating its values ask.
  SysResult<std::vector<Value>> readValues(const std::wstring& key) override;

 private:
  Registry& inner_;
  CallLog& log_;
};

class FaultInjectingSystem : public SystemInfo {
 public:
  FaultInjectingSystem(SystemInfo& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<Memory> memoryStatus() override;
  SysResult<std::wstring> windowsDirectory() override;
  SysResult<std::vector<std::uint32_t>> diskDriveSignatures() override;

 private:
  SystemInfo& inner_;
  CallLog& log_;
};

// The clock cannot fail: sleeping is only counted (and traced, as the time is).
class FaultInjectingClock : public Clock {
 public:
  FaultInjectingClock(Clock& inner, CallLog& log) : inner_(inner), log_(log) {}
  SystemTime systemTime() override;
  std::uint64_t systemTimeAsFileTime() override;
  void sleep(std::uint32_t milliseconds) override;

 private:
  Clock& inner_;
  CallLog& log_;
};

class FaultInjectingBroadcast : public DeviceBroadcast {
 public:
  FaultInjectingBroadcast(DeviceBroadcast& inner, CallLog& log) : inner_(inner), log_(log) {}
  SysResult<std::int32_t> broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                    const Bytes& record) override;

 private:
  DeviceBroadcast& inner_;
  CallLog& log_;
};

}  // namespace vmd::sim
