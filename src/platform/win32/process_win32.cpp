// Start-up services: the single-instance mutex, the Administrators check, COM.
#include <objbase.h>

#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

class Win32Process : public ProcessEnvironment {
 public:
  // Nothing of ours needs preparing before the resources can be read; the
  // module and the command line are the framework's inputs and are always there.
  SysStatus initFramework() override {
    if (::GetModuleHandleW(nullptr) == nullptr || ::GetCommandLineW() == nullptr)
      return SysStatus::failure(lastError());
    return SysStatus::success();
  }

  // The handle is kept as long as this service, which is until the program
  // ends: owning the mutex is the guard.
  SysResult<bool> createInstanceMutex(const std::wstring& name) override {
    KernelHandle mutex(::CreateMutexW(nullptr, TRUE, name.c_str()));
    const DWORD error = ::GetLastError();
    if (!mutex.valid()) return SysResult<bool>::failure(error);
    mutexes_.push_back(std::move(mutex));
    return SysResult<bool>::success(error == ERROR_ALREADY_EXISTS);
  }

  // Membership alone counts: a group present only for deny still matches.
  SysResult<bool> tokenHasAdministrators() override {
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    Sid administrators;
    if (!::AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                    0, 0, 0, administrators.receive()))
      return SysResult<bool>::failure(lastError());
    KernelHandle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive()))
      return SysResult<bool>::failure(lastError());
    DWORD size = 0;
    ::GetTokenInformation(token.get(), TokenGroups, nullptr, 0, &size);
    if (size == 0) return SysResult<bool>::failure(lastError());
    std::vector<std::uint64_t> buffer((size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
    if (!::GetTokenInformation(token.get(), TokenGroups, buffer.data(), size, &size))
      return SysResult<bool>::failure(lastError());
    const auto* groups = reinterpret_cast<const TOKEN_GROUPS*>(buffer.data());
    for (DWORD i = 0; i < groups->GroupCount; ++i)
      if (::EqualSid(groups->Groups[i].Sid, administrators.get())) return SysResult<bool>::success(true);
    return SysResult<bool>::success(false);
  }

  SysStatus comInitialize() override {
    const HRESULT hr = ::CoInitialize(nullptr);
    if (FAILED(hr)) return SysStatus::failure(static_cast<std::uint32_t>(hr));
    return SysStatus::success();
  }
  void comUninitialize() override { ::CoUninitialize(); }

 private:
  std::vector<KernelHandle> mutexes_;
};

}  // namespace

std::unique_ptr<ProcessEnvironment> makeProcessEnvironment() { return std::make_unique<Win32Process>(); }

}  // namespace vmd::win32
