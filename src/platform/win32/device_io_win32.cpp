// Device handles and synchronous control requests.
#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

namespace vmd::win32 {

namespace {

class Win32DeviceIo : public DeviceIo {
 public:
  OpenResult open(const std::wstring& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition,
                  std::uint32_t flags) override {
    const HANDLE h = ::CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
    const DWORD error = ::GetLastError();
    return {toHandleValue(h), h == INVALID_HANDLE_VALUE ? error : 0};
  }

  ControlResult control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                        std::uint32_t outSize) override {
    DWORD returned = 0;
    const BOOL ok = ::DeviceIoControl(fromHandleValue(h), code, const_cast<void*>(in), inSize, out, outSize, &returned,
                                      nullptr);
    return {ok != FALSE, returned, ok ? 0 : static_cast<std::uint32_t>(::GetLastError())};
  }

  Status flush(Handle h) override {
    const BOOL ok = ::FlushFileBuffers(fromHandleValue(h));
    return {ok != FALSE, ok ? 0 : static_cast<std::uint32_t>(::GetLastError())};
  }

  void close(Handle h) override { ::CloseHandle(fromHandleValue(h)); }
};

}  // namespace

std::unique_ptr<DeviceIo> makeDeviceIo() { return std::make_unique<Win32DeviceIo>(); }

}  // namespace vmd::win32
