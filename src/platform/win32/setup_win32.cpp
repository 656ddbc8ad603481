// Device-interface discovery through the setup API.
#include <algorithm>
#include <cstddef>
#include <new>
#include <vector>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"
#include "base/text_codec.h"

namespace vmd::win32 {

namespace {

// The fixed part of SP_DEVICE_INTERFACE_DETAIL_DATA_W (cbSize and the first
// character) as the 64-bit setup API counts it, and where the path starts.
constexpr DWORD kDetailHeadSize = 8;
constexpr std::size_t kDetailPathOffset = 4;
constexpr DWORD kFirstDetailSize = 520;
// The enumeration ends when the setup API says there is no more; a machine
// has far fewer interfaces of one class than this, and a setup API that
// never says so cannot hold the program.
constexpr DWORD kMaxInterfaces = 65536;
constexpr DWORD kPresentProfileInterfaces = DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE;  // 0x1A
static_assert(kPresentProfileInterfaces == 0x1A);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) == kDetailHeadSize);
static_assert(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) == kDetailPathOffset);
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32 && sizeof(SP_DEVINFO_DATA) == 32);

GUID toGuid(const InterfaceClass& c) {
  GUID g;
  g.Data1 = c.data1;
  g.Data2 = c.data2;
  g.Data3 = c.data3;
  for (int i = 0; i < 8; ++i) g.Data4[i] = c.data4[i];
  return g;
}

// A detail buffer sized in bytes, aligned for the record's DWORD head.
class DetailBuffer {
 public:
  // False when the memory is not there; the buffer is then empty.
  bool allocate(DWORD bytes) {
    try {
      words_.assign((bytes + sizeof(DWORD) - 1) / sizeof(DWORD), 0);
    } catch (const std::bad_alloc&) {
      words_.clear();
      size_ = 0;
      return false;
    }
    size_ = bytes;
    return true;
  }
  auto* record() {
    auto* r = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(words_.data());
    r->cbSize = kDetailHeadSize;
    return r;
  }
  DWORD size() const { return size_; }
  std::wstring path() const {
    return readUtf16z(reinterpret_cast<const std::uint8_t*>(words_.data()), size_, kDetailPathOffset);
  }

 private:
  std::vector<DWORD> words_;
  DWORD size_ = 0;
};

class Win32Setup : public DeviceSetup {
 public:
  SysResult<std::vector<Interface>> presentInterfaces(const InterfaceClass& cls, Scope scope) override {
    using Found = SysResult<std::vector<Interface>>;
    const GUID guid = toGuid(cls);
    DevInfoSet set(::SetupDiGetClassDevsW(&guid, nullptr, nullptr, kPresentProfileInterfaces));
    if (!set) return Found::failure(static_cast<std::uint32_t>(::GetLastError()));
    DetailBuffer detail;
    if (!detail.allocate(kFirstDetailSize)) return Found::failure(ERROR_NOT_ENOUGH_MEMORY);

    std::vector<Interface> found;
    for (DWORD index = 0; index < kMaxInterfaces; ++index) {
      SP_DEVICE_INTERFACE_DATA data{};
      data.cbSize = sizeof(data);
      if (!::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &guid, index, &data)) break;
      SP_DEVINFO_DATA device{};
      device.cbSize = sizeof(device);
      DWORD required = 0;
      BOOL ok = ::SetupDiGetDeviceInterfaceDetailW(set.get(), &data, detail.record(), detail.size(), &required, &device);
      if (!ok && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        // One retry with the size the system asked for (never less than the
        // first, which holds the record's head); it stays for later interfaces.
        if (!detail.allocate(std::max(required, kFirstDetailSize))) return Found::failure(ERROR_NOT_ENOUGH_MEMORY);
        ok = ::SetupDiGetDeviceInterfaceDetailW(set.get(), &data, detail.record(), detail.size(), &required, &device);
      }
      if (ok) found.push_back({index, detail.path()});
      if (scope == Scope::FirstOnly) break;
    }
    return Found::success(std::move(found));
  }
};

}  // namespace

std::unique_ptr<DeviceSetup> makeDeviceSetup() { return std::make_unique<Win32Setup>(); }

}  // namespace vmd::win32
