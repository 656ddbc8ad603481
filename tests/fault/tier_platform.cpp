#include "fault/tier_platform.h"

#include "base/text_codec.h"
#include "shell/dispatch.h"

namespace vmd::fault {

void TierLog::spend(std::string_view api) {
  if (++spent_ > budget_) throw RunawayRun(std::string(api));
}

std::optional<std::uint32_t> TierLog::enter(std::string_view api, std::uint32_t code, const std::string& path) {
  spend(api);
  const std::optional<std::uint32_t> injected = machine_.enter(api, code, path);
  const bool device = api == sim::calls::kCreateFileW || api == sim::calls::kDeviceIoControl;
  if (faulted_ && !device && !calls.empty()) {
    Call& last = calls.back();
    if (last.api == api && last.code == code && last.path == path && last.injected == injected.has_value() &&
        last.injectedError == injected.value_or(0)) {
      ++last.repeats;
      return injected;
    }
  }
  faulted_ = faulted_ || injected.has_value();
  Call c;
  c.api = std::string(api);
  c.code = code;
  c.path = path;
  c.injected = injected.has_value();
  c.injectedError = injected.value_or(0);
  c.printed = streams_.all.size();
  calls.push_back(std::move(c));
  return injected;
}

void TierLog::count(const std::string& group, const std::string& key) {
  // Sleeps and the other calls that are only counted spend the budget too: a
  // poll that never ends may do nothing else.
  if (group == "api") spend(key);
  machine_.count(group, key);
}

Call* ObservingDeviceIo::loggedSince(std::size_t before) {
  return log_.calls.size() > before ? &log_.calls[before] : nullptr;
}

SysResult<DeviceIo::Handle> ObservingDeviceIo::open(const std::wstring& path, std::uint32_t access,
                                                    std::uint32_t share, std::uint32_t disposition,
                                                    std::uint32_t flags) {
  const std::size_t before = log_.calls.size();
  const SysResult<Handle> r = inner_.open(path, access, share, disposition, flags);
  if (Call* c = loggedSince(before)) {
    c->device = true;
    c->access = access;
    c->ok = r.ok;
    c->error = c->ok ? 0 : r.error;
  }
  return r;
}

SysResult<std::uint32_t> ObservingDeviceIo::control(Handle h, std::uint32_t code, const void* in,
                                                    std::uint32_t inSize, void* out, std::uint32_t outSize) {
  const std::size_t before = log_.calls.size();
  const SysResult<std::uint32_t> r = inner_.control(h, code, in, inSize, out, outSize);
  if (Call* c = loggedSince(before)) {
    c->device = true;
    if (in && inSize) c->in.assign(static_cast<const std::uint8_t*>(in), static_cast<const std::uint8_t*>(in) + inSize);
    c->ok = r.ok;
    c->error = r.ok ? 0 : r.error;
  }
  return r;
}

int StringKeys::readKey() {
  if (next_ >= keys_.size()) {
    machine_.count("keys", "end-of-input");
    return -1;
  }
  machine_.count("keys", "read");
  return static_cast<unsigned char>(keys_[next_++]);
}

TierPlatform::TierPlatform(sim::Machine& machine, MessageCatalog& catalog, std::string typed, std::uint64_t budget)
    : log(machine, streams, budget),
      plain(machine),
      keys(machine, std::move(typed)),
      process(plain.process, log),
      setup(plain.setup, log),
      io(plain.io, log),
      observedIo(io, log),
      volumes(plain.volumes, log),
      files(plain.files, log),
      registry(plain.registry, log),
      system(plain.system, log),
      clock(plain.clock, log),
      broadcast(plain.broadcast, log),
      platform{streams, keys, catalog, process, setup, observedIo, volumes, files, registry, system, clock, broadcast} {}

int TierPlatform::run(const std::vector<std::wstring>& args) {
  std::vector<std::wstring> text{L"vmdctl"};
  text.insert(text.end(), args.begin(), args.end());
  std::vector<wchar_t*> argv;
  for (std::wstring& a : text) argv.push_back(a.data());
  argv.push_back(nullptr);
  return runProgram(platform, static_cast<int>(text.size()), argv.data());
}

}  // namespace vmd::fault
