// Files, registry and system services of the simulated machine, over its
// typed state (sim/world.h; keys in docs/simulator.md).
#pragma once

#include "platform/platform.h"
#include "sim/machine.h"

namespace vmd::sim {

class SimFiles : public FileService {
 public:
  explicit SimFiles(Machine& m) : m_(m) {}
  SysResult<std::uint32_t> attributes(const std::wstring& path) override;
  SysResult<std::uint64_t> fileSize(const std::wstring& path) override;
  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override;
  SysStatus writeWhole(const std::wstring& path, const Bytes& data) override;
  SysResult<bool> pathIsDirectory(const std::wstring& path) override;

  static FileEntry* findFile(World& w, const std::string& path);

 private:
  Machine& m_;
};

class SimRegistry : public Registry {
 public:
  explicit SimRegistry(Machine& m) : m_(m) {}
  SysResult<std::uint32_t> readDword(const std::wstring& key, const std::wstring& value) override;
  SysResult<std::unique_ptr<Key>> openForWrite(const std::wstring& key) override;
  SysResult<std::vector<Value>> readValues(const std::wstring& key) override;

 private:
  Machine& m_;
};

class SimSystem : public SystemInfo {
 public:
  explicit SimSystem(Machine& m) : m_(m) {}
  SysResult<Memory> memoryStatus() override;
  SysResult<std::wstring> windowsDirectory() override;
  SysResult<std::vector<std::uint32_t>> diskDriveSignatures() override;

 private:
  Machine& m_;
};

// Virtual time: sleeping advances the machine's clock, runs what falls due
// and costs nothing.
class SimClock : public Clock {
 public:
  explicit SimClock(Machine& m) : m_(m) {}
  SystemTime systemTime() override;
  std::uint64_t systemTimeAsFileTime() override;
  void sleep(std::uint32_t milliseconds) override;

 private:
  Machine& m_;
};

class SimBroadcast : public DeviceBroadcast {
 public:
  explicit SimBroadcast(Machine& m) : m_(m) {}
  SysResult<std::int32_t> broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                    const Bytes& record) override;

 private:
  Machine& m_;
};

std::string toHex(const Bytes& b);
Bytes fromHex(const std::string& s);  // throws std::runtime_error on text that is not hex

}  // namespace vmd::sim
