#include "sim/sim_process.h"

#include "base/text_codec.h"

namespace vmd::sim {

bool SimProcess::initFramework() { return true; }

ProcessEnvironment::MutexResult SimProcess::createInstanceMutex(const std::wstring& name) {
  // Another instance, or a mutex of that name created earlier in this run.
  if (m_.world.host.instanceRunning || !mutexes_.insert(lowerAscii(toUtf8(name))).second) return {true, 183};
  return {true, 0};
}

bool SimProcess::tokenHasAdministrators() {
  return m_.world.host.administrator;
}

std::int32_t SimProcess::comInitialize() { return 0; }

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
