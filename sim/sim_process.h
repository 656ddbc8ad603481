// Start-up services and key input of the simulated machine.
#pragma once

#include <cstdio>
#include <set>
#include <string>

#include "platform/platform.h"
#include "sim/machine.h"

namespace vmd::sim {

// host.instanceRunning and host.administrator; failures come from fault rules.
class SimProcess : public ProcessEnvironment {
 public:
  explicit SimProcess(Machine& m) : m_(m) {}
  SysStatus initFramework() override;
  SysResult<bool> createInstanceMutex(const std::wstring& name) override;
  SysResult<bool> tokenHasAdministrators() override;
  SysStatus comInitialize() override;
  void comUninitialize() override;

 private:
  Machine& m_;
  std::set<std::string> mutexes_;
};

// Keys are read from standard input, one character (UTF-8) per key; the end
// of input reads as a key that is not Y. Each key read is logged in
// stats.keys, so tests can tell a prompt that was shown from one that was
// not, and in the request trace as ReadKey.
class StdinKeys : public KeyReader {
 public:
  StdinKeys(Machine& m, std::FILE* in) : m_(m), in_(in) {}
  int readKey() override;

 private:
  int readFromInput();

  Machine& m_;
  std::FILE* in_;
};

}  // namespace vmd::sim
