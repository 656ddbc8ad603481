#include "sim/sim_process.h"

#include "base/text_codec.h"

namespace vmd::sim {

SysStatus SimProcess::initFramework() { return SysStatus::success(); }

SysResult<bool> SimProcess::createInstanceMutex(const std::wstring& name) {
  // Another instance, or a mutex of that name created earlier in this run.
  const bool existed = m_.world.host.instanceRunning || !mutexes_.insert(lowerAscii(toUtf8(name))).second;
  return SysResult<bool>::success(existed);
}

SysResult<bool> SimProcess::tokenHasAdministrators() { return SysResult<bool>::success(m_.world.host.administrator); }

SysStatus SimProcess::comInitialize() { return SysStatus::success(); }

void SimProcess::comUninitialize() {}

int StdinKeys::readKey() {
  TraceSink* trace = m_.trace();
  TraceSink::Call call;
  if (trace) trace->open(call);
  const int key = readFromInput();
  if (trace) {
    TraceLine line(calls::kReadKey, "");
    if (key < 0) line.failed().word("end-of-input");
    else line.ok().text("key", toUtf8(std::wstring(1, static_cast<wchar_t>(key))));
    trace->finish(call, std::move(line));
  }
  return key;
}

int StdinKeys::readFromInput() {
  int b = std::fgetc(in_);
  if (b == EOF) {
    m_.count("keys", "end-of-input");
    return -1;
  }
  std::string bytes(1, static_cast<char>(b));
  int extra = (b & 0xE0) == 0xC0 ? 1 : (b & 0xF0) == 0xE0 ? 2 : (b & 0xF8) == 0xF0 ? 3 : 0;
  for (int i = 0; i < extra; ++i) {
    int c = std::fgetc(in_);
    if (c == EOF) break;
    bytes += static_cast<char>(c);
  }
  m_.count("keys", "read");
  const std::wstring key = fromUtf8(bytes);
  return key.empty() ? -1 : static_cast<int>(key[0]);
}

}  // namespace vmd::sim
