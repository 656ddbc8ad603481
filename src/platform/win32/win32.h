// The one header of the Windows side that includes <windows.h>, with an owner
// for every kind of handle the Win32 services hold. Only src/platform/win32
// includes it; the rest of the program sees platform.h alone.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <setupapi.h>

#include <cstdint>
#include <utility>

namespace vmd::win32 {

// The calling thread's last error, as the platform reports errors.
inline std::uint32_t lastError() { return static_cast<std::uint32_t>(::GetLastError()); }

// Owns one handle and releases it with Traits::close when it goes.
template <class Traits>
class Scoped {
 public:
  using Value = typename Traits::Value;

  Scoped() noexcept : value_(Traits::invalid()) {}
  explicit Scoped(Value value) noexcept : value_(value) {}
  ~Scoped() { reset(); }
  Scoped(Scoped&& other) noexcept : value_(other.release()) {}
  Scoped& operator=(Scoped&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

  Value get() const noexcept { return value_; }
  bool valid() const noexcept { return value_ != Traits::invalid(); }
  explicit operator bool() const noexcept { return valid(); }

  // For calls that hand the handle back through a pointer.
  Value* receive() noexcept {
    reset();
    return &value_;
  }
  Value release() noexcept { return std::exchange(value_, Traits::invalid()); }
  void reset(Value value = Traits::invalid()) noexcept {
    if (valid()) Traits::close(value_);
    value_ = value;
  }

 private:
  Value value_;
};

// Files and devices: CreateFileW gives INVALID_HANDLE_VALUE on failure.
struct FileHandleTraits {
  using Value = HANDLE;
  static Value invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Value v) noexcept { ::CloseHandle(v); }
};

// Tokens, mutexes and the like: null on failure.
struct KernelHandleTraits {
  using Value = HANDLE;
  static Value invalid() noexcept { return nullptr; }
  static void close(Value v) noexcept { ::CloseHandle(v); }
};

struct RegKeyTraits {
  using Value = HKEY;
  static Value invalid() noexcept { return nullptr; }
  static void close(Value v) noexcept { ::RegCloseKey(v); }
};

struct DevInfoTraits {
  using Value = HDEVINFO;
  static Value invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Value v) noexcept { ::SetupDiDestroyDeviceInfoList(v); }
};

// Buffers the system allocated for us (FORMAT_MESSAGE_ALLOCATE_BUFFER).
struct LocalBufferTraits {
  using Value = HLOCAL;
  static Value invalid() noexcept { return nullptr; }
  static void close(Value v) noexcept { ::LocalFree(v); }
};

// SIDs from AllocateAndInitializeSid.
struct SidTraits {
  using Value = PSID;
  static Value invalid() noexcept { return nullptr; }
  static void close(Value v) noexcept { ::FreeSid(v); }
};

using FileHandle = Scoped<FileHandleTraits>;
using KernelHandle = Scoped<KernelHandleTraits>;
using RegKey = Scoped<RegKeyTraits>;
using DevInfoSet = Scoped<DevInfoTraits>;
using LocalBuffer = Scoped<LocalBufferTraits>;
using Sid = Scoped<SidTraits>;

// A COM interface pointer that releases its reference.
template <class T>
class ComRef {
 public:
  ComRef() noexcept = default;
  ~ComRef() { reset(); }
  ComRef(const ComRef&) = delete;
  ComRef& operator=(const ComRef&) = delete;

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  T** receive() noexcept {
    reset();
    return &p_;
  }
  void** receiveVoid() noexcept { return reinterpret_cast<void**>(receive()); }
  void reset() noexcept {
    if (p_) p_->Release();
    p_ = nullptr;
  }

 private:
  T* p_ = nullptr;
};

// The interface's opaque handle carries the Win32 HANDLE value itself.
inline std::int64_t toHandleValue(HANDLE h) { return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(h)); }
inline HANDLE fromHandleValue(std::int64_t v) { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(v)); }

}  // namespace vmd::win32
