// Checks of device interfaces and device handles.
// Included through contract_checks.h, which undefines its macros after them.
#pragma once

#include "contract_support.h"

namespace vmd::contract {

inline void noControllerMeansAnEmptySet(Subject& s, Report& r) {
  const SysResult<std::vector<DeviceSetup::Interface>> found =
      s.setup.presentInterfaces(kControllerClass, DeviceSetup::Scope::FirstOnly);
  VERIFY(found.ok);
  VERIFY_EQ(found.value.size(), std::size_t{0});
}

inline void volumeInterfacesComeInIndexOrderWithPaths(Subject& s, Report& r) {
  const SysResult<std::vector<DeviceSetup::Interface>> found =
      s.setup.presentInterfaces(kVolumeClass, DeviceSetup::Scope::All);
  VERIFY(found.ok);
  if (!found.ok) return;
  const std::vector<DeviceSetup::Interface>& list = found.value;
  r.note(std::to_string(list.size()) + " volume interface(s)");
  for (std::size_t i = 0; i < list.size(); ++i) {
    VERIFY(!list[i].path.empty());
    if (i > 0) VERIFY(list[i].index > list[i - 1].index);
  }
}

inline void openingAMissingDeviceGivesTheError(Subject& s, Report& r) {
  const SysResult<DeviceIo::Handle> o =
      s.io.open(L"\\\\.\\VelmoRdDevPort0Target0", kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, 0);
  VERIFY(!o.ok);
  VERIFY_EQ(o.value, DeviceIo::Invalid);
  VERIFY(o.error == syserr::FileNotFound || o.error == syserr::PathNotFound);
}

inline void aFileOpensFlushesAndRefusesDiskRequests(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"io-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(100)).ok);
  const SysResult<DeviceIo::Handle> o =
      s.io.open(path, kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, DeviceIo::AttributeNormal);
  VERIFY(o.ok);
  VERIFY_EQ(o.error, 0u);
  if (!o.ok) return;
  VERIFY(o.value != DeviceIo::Invalid);
  VERIFY(s.io.flush(o.value).ok);
  std::uint8_t out[32] = {};
  const SysResult<std::uint32_t> ctl = s.io.control(o.value, kGetPartitionInfo, nullptr, 0, out, sizeof(out));
  VERIFY(!ctl.ok);
  VERIFY(ctl.error != 0);
  s.io.close(o.value);
  s.fixture.removeFile(path);
}

// Counts the closes that reach the service, and whether each handle was still open.
class CountingIo : public DeviceIo {
 public:
  CountingIo(DeviceIo& inner, Fixture& fixture) : inner_(inner), fixture_(fixture) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    return inner_.open(path, access, share, disposition, flags);
  }
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    return inner_.control(h, code, in, inSize, out, outSize);
  }
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override {
    if (fixture_.handleIsOpen(h)) ++closedOpen;
    ++closes;
    inner_.close(h);
  }
  int closes = 0;
  int closedOpen = 0;

 private:
  DeviceIo& inner_;
  Fixture& fixture_;
};

inline void deviceHandleClosesOnceAfterMoves(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"handle-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(8)).ok);
  CountingIo io(s.io, s.fixture);
  {
    SysResult<DeviceHandle> opened =
        DeviceHandle::open(io, path, kReadWrite, kShareReadWrite, DeviceIo::AttributeNormal);
    VERIFY(opened.ok);
    VERIFY_EQ(opened.error, 0u);
    DeviceHandle first = std::move(opened.value);
    VERIFY(first.valid());
    DeviceHandle second(std::move(first));
    VERIFY(!first.valid());
    VERIFY(second.valid());
    DeviceHandle third;
    third = std::move(second);
    VERIFY(!second.valid());
    VERIFY(third.valid());
    VERIFY(third.flush().ok);
    DeviceHandle& same = third;
    third = std::move(same);  // moving onto itself keeps it
    VERIFY(third.valid());
    VERIFY_EQ(io.closes, 0);
    // The moved-to handle still reaches the file: a file refuses disk requests.
    std::uint8_t out[32] = {};
    const SysResult<std::uint32_t> c = third.control(kGetPartitionInfo, nullptr, 0, out, sizeof(out));
    VERIFY(!c.ok);
    VERIFY(c.error != syserr::InvalidHandle);
  }
  VERIFY_EQ(io.closes, 1);
  VERIFY_EQ(io.closedOpen, 1);
  s.fixture.removeFile(path);
}

inline void deviceHandleCloseIsExplicitAndFinal(Subject& s, Report& r) {
  const std::wstring path = scratchFile(s, L"handle-", L".bin");
  VERIFY(s.files.writeWhole(path, pattern(8)).ok);
  CountingIo io(s.io, s.fixture);
  const SysResult<DeviceIo::Handle> o = io.open(path, kReadWrite, kShareReadWrite, DeviceIo::OpenExisting, 0);
  VERIFY(o.ok);
  {
    DeviceHandle h(io, o.value);
    h.close();
    VERIFY(!h.valid());
    VERIFY(!s.fixture.handleIsOpen(o.value));
    VERIFY_EQ(h.control(kGetPartitionInfo).error, syserr::InvalidHandle);
    VERIFY_EQ(h.flush().error, syserr::InvalidHandle);
  }
  VERIFY_EQ(io.closes, 1);
  s.fixture.removeFile(path);
}

inline void deviceHandleThatDidNotOpenClosesNothing(Subject& s, Report& r) {
  CountingIo io(s.io, s.fixture);
  std::uint32_t error = 0;
  {
    SysResult<DeviceHandle> h = DeviceHandle::open(io, L"\\\\.\\VelmoRdDevPort0Target0", DeviceIo::GenericRead,
                                                   DeviceIo::ShareRead, DeviceIo::AttributeNormal);
    VERIFY(!h.ok);
    VERIFY(!h.value.valid());
    error = h.error;
  }
  VERIFY(error == syserr::FileNotFound || error == syserr::PathNotFound);
  VERIFY_EQ(io.closes, 0);
}

}  // namespace vmd::contract
