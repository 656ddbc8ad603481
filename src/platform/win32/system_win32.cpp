// Memory, time, broadcasts and the disk signatures that WMI knows.
#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

#include <oleauto.h>
#include <wbemcli.h>

namespace vmd::win32 {

namespace {

constexpr DWORD kMemoryStatusSize = 64;  // sizeof(MEMORYSTATUSEX)
// A provider that stops answering must not hold the command: each row is
// waited for this long at most, and a machine has far fewer disk drives than
// rows are read. Either limit reached counts as a query that failed.
constexpr LONG kRowWaitMs = 60000;
constexpr int kMaxRows = 4096;

// A BSTR for the length of one call.
class Bstr {
 public:
  explicit Bstr(const wchar_t* text) : s_(::SysAllocString(text)) {}
  ~Bstr() { ::SysFreeString(s_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  BSTR get() const { return s_; }
  explicit operator bool() const { return s_ != nullptr; }

 private:
  BSTR s_;
};

class Variant {
 public:
  Variant() { ::VariantInit(&v_); }
  ~Variant() { ::VariantClear(&v_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  VARIANT* get() { return &v_; }
  const VARIANT& value() const { return v_; }

 private:
  VARIANT v_;
};

class Win32System : public SystemInfo {
 public:
  SysResult<Memory> memoryStatus() override {
    MEMORYSTATUSEX status{};
    status.dwLength = kMemoryStatusSize;
    if (!::GlobalMemoryStatusEx(&status)) return SysResult<Memory>::failure(lastError());
    return SysResult<Memory>::success({status.ullTotalPhys, status.ullAvailPhys});
  }

  SysResult<std::wstring> windowsDirectory() override {
    std::vector<wchar_t> buffer(MAX_PATH + 1);
    UINT length = ::GetSystemWindowsDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
    if (length >= buffer.size()) {  // too small: the answer is the size needed
      buffer.resize(length + 1);
      length = ::GetSystemWindowsDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
    }
    if (length == 0) return SysResult<std::wstring>::failure(lastError());
    if (length >= buffer.size()) return SysResult<std::wstring>::failure(ERROR_INSUFFICIENT_BUFFER);
    return SysResult<std::wstring>::success(std::wstring(buffer.data(), length));
  }

  SysResult<std::vector<std::uint32_t>> diskDriveSignatures() override {
    using Signatures = SysResult<std::vector<std::uint32_t>>;
    auto failed = [](HRESULT hr) { return Signatures::failure(static_cast<std::uint32_t>(hr)); };
    ComRef<IWbemLocator> locator;
    if (const HRESULT hr = ::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                              locator.receiveVoid());
        FAILED(hr))
      return failed(hr);
    ComRef<IWbemServices> services;
    Bstr ns(L"root\\cimv2");
    if (!ns) return failed(E_OUTOFMEMORY);
    if (const HRESULT hr = locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                                  services.receive());
        FAILED(hr))
      return failed(hr);
    // Without impersonation the provider may refuse to answer for the disks.
    ::CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                        RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    ComRef<IEnumWbemClassObject> rows;
    Bstr language(L"WQL"), query(L"SELECT * FROM Win32_DiskDrive");
    if (!language || !query) return failed(E_OUTOFMEMORY);
    if (const HRESULT hr = services->ExecQuery(language.get(), query.get(),
                                               WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                               rows.receive());
        FAILED(hr))
      return failed(hr);
    std::vector<std::uint32_t> signatures;
    for (int n = 0;; ++n) {
      if (n == kMaxRows) return failed(WBEM_E_FAILED);
      ComRef<IWbemClassObject> row;
      ULONG got = 0;
      const HRESULT hr = rows->Next(kRowWaitMs, 1, row.receive(), &got);
      if (hr == WBEM_S_TIMEDOUT) return failed(hr);
      if (hr != WBEM_S_NO_ERROR || got == 0) break;
      Variant signature;
      if (FAILED(row->Get(L"Signature", 0, signature.get(), nullptr, nullptr))) continue;
      const VARIANT& v = signature.value();
      if (v.vt == VT_I4) signatures.push_back(static_cast<std::uint32_t>(v.lVal));
      else if (v.vt == VT_UI4) signatures.push_back(v.ulVal);
    }
    return Signatures::success(std::move(signatures));
  }
};

}  // namespace

namespace {

class Win32Clock : public Clock {
 public:
  SystemTime systemTime() override {
    SYSTEMTIME t{};
    ::GetSystemTime(&t);
    return {t.wYear, t.wMonth, t.wDayOfWeek, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds};
  }

  std::uint64_t systemTimeAsFileTime() override {
    FILETIME ft{};
    ::GetSystemTimeAsFileTime(&ft);
    return (std::uint64_t{ft.dwHighDateTime} << 32) | ft.dwLowDateTime;
  }

  void sleep(std::uint32_t milliseconds) override { ::Sleep(milliseconds); }

};

class Win32Broadcast : public DeviceBroadcast {
 public:
  SysResult<std::int32_t> broadcast(std::uint32_t flags, std::uint32_t message, std::uint64_t wParam,
                                    const Bytes& record) override {
    DWORD recipients = BSM_ALLCOMPONENTS;
    const long r = ::BroadcastSystemMessageW(flags, &recipients, message, static_cast<WPARAM>(wParam),
                                             reinterpret_cast<LPARAM>(record.data()));
    if (r < 0) return SysResult<std::int32_t>::failure(static_cast<std::uint32_t>(::GetLastError()), -1);
    return SysResult<std::int32_t>::success(static_cast<std::int32_t>(r));
  }

};

}  // namespace

std::unique_ptr<SystemInfo> makeSystemInfo() { return std::make_unique<Win32System>(); }
std::unique_ptr<Clock> makeClock() { return std::make_unique<Win32Clock>(); }
std::unique_ptr<DeviceBroadcast> makeDeviceBroadcast() { return std::make_unique<Win32Broadcast>(); }

}  // namespace vmd::win32
