// Files: attributes, size, the first bytes, whole writes.
#include <algorithm>

#include "platform/win32/win32.h"
#include "platform/win32/win32_platform.h"

#include <shlwapi.h>  // after windows.h

namespace vmd::win32 {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kChunk = 1u << 20;  // one WriteFile call at most this many bytes

class Win32Files : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring& path) override {
    const DWORD attrs = ::GetFileAttributesW(path.c_str());
    if (attrs == INVALID_FILE_ATTRIBUTES) return SysResult<std::uint32_t>::failure(lastError(), InvalidFileAttributes);
    return SysResult<std::uint32_t>::success(attrs);
  }

  SysResult<std::uint64_t> fileSize(const std::wstring& path) override {
    // No access asked for, so a file that another program holds open still answers.
    FileHandle file(::CreateFileW(path.c_str(), 0, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return SysResult<std::uint64_t>::failure(lastError());
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file.get(), &size)) return SysResult<std::uint64_t>::failure(lastError());
    return SysResult<std::uint64_t>::success(static_cast<std::uint64_t>(size.QuadPart));
  }

  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override {
    FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return SysResult<Bytes>::failure(lastError());
    Bytes head(count);
    DWORD total = 0;
    while (total < count) {
      DWORD got = 0;
      if (!::ReadFile(file.get(), head.data() + total, count - total, &got, nullptr))
        return SysResult<Bytes>::failure(lastError());
      if (got == 0) break;  // end of file
      total += got;
    }
    head.resize(total);
    return SysResult<Bytes>::success(std::move(head));
  }

  SysStatus writeWhole(const std::wstring& path, const Bytes& data) override {
    FileHandle file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return SysStatus::failure(ERROR_OPEN_FAILED);
    bool written = true;
    for (std::size_t done = 0; written && done < data.size();) {
      const DWORD want = static_cast<DWORD>(std::min<std::size_t>(kChunk, data.size() - done));
      DWORD wrote = 0;
      written = ::WriteFile(file.get(), data.data() + done, want, &wrote, nullptr) && wrote == want;
      done += wrote;
    }
    // Closed by hand: a failed close (the last data not written) is a write fault.
    const bool closed = ::CloseHandle(file.release()) != FALSE;
    return written && closed ? SysStatus::success() : SysStatus::failure(ERROR_WRITE_FAULT);
  }

  SysResult<bool> pathIsDirectory(const std::wstring& path) override {
    return SysResult<bool>::success(::PathIsDirectoryW(path.c_str()) != FALSE);
  }
};

}  // namespace

std::unique_ptr<FileService> makeFileService() { return std::make_unique<Win32Files>(); }

}  // namespace vmd::win32
