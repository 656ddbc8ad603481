// Device handles and synchronous control requests.
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

class Win32DeviceIo : public DeviceIo {
 public:
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    const HANDLE h = ::CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
    if (h == INVALID_HANDLE_VALUE) return SysResult<Handle>::failure(::GetLastError(), Invalid);
    return SysResult<Handle>::success(toHandleValue(h));
  }

  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    DWORD returned = 0;
    const BOOL ok = ::DeviceIoControl(fromHandleValue(h), code, const_cast<void*>(in), inSize, out, outSize, &returned,
                                      nullptr);
    if (!ok) return SysResult<std::uint32_t>::failure(::GetLastError(), returned);
    return SysResult<std::uint32_t>::success(returned);
  }

  SysStatus flush(Handle h) override {
    if (!::FlushFileBuffers(fromHandleValue(h))) return SysStatus::failure(::GetLastError());
    return SysStatus::success();
  }

  void close(Handle h) override { ::CloseHandle(fromHandleValue(h)); }
};

}  // namespace

std::unique_ptr<DeviceIo> makeDeviceIo() { return std::make_unique<Win32DeviceIo>(); }

}  // namespace vmd::win32
