#include "descriptor/stdio_files.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

#include "base/text_codec.h"

namespace vmd {

namespace {

// errno as the nearest system error the reader reports.
std::uint32_t systemError(int e) {
  switch (e) {
    case ENOENT: return syserr::FileNotFound;
    case ENOTDIR: return syserr::PathNotFound;
    case EACCES:
    case EPERM:
    case EISDIR: return syserr::AccessDenied;
    default: return syserr::GenFailure;
  }
}

}  // namespace

SysResult<std::uint32_t> StdioFiles::attributes(const std::wstring& path) {
  struct stat st {};
  if (::stat(toUtf8(path).c_str(), &st) != 0)
    return SysResult<std::uint32_t>::failure(systemError(errno), InvalidFileAttributes);
  return SysResult<std::uint32_t>::success(S_ISDIR(st.st_mode) ? 0x10 : 0x80);
}

SysResult<std::uint64_t> StdioFiles::fileSize(const std::wstring& path) {
  struct stat st {};
  if (::stat(toUtf8(path).c_str(), &st) != 0) return SysResult<std::uint64_t>::failure(systemError(errno));
  if (S_ISDIR(st.st_mode)) return SysResult<std::uint64_t>::failure(syserr::AccessDenied);
  return SysResult<std::uint64_t>::success(static_cast<std::uint64_t>(st.st_size));
}

SysResult<Bytes> StdioFiles::readHead(const std::wstring& path, std::uint32_t count) {
  std::FILE* f = std::fopen(toUtf8(path).c_str(), "rb");
  if (!f) return SysResult<Bytes>::failure(systemError(errno));
  Bytes data(count);
  const std::size_t got = std::fread(data.data(), 1, data.size(), f);
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  if (failed) return SysResult<Bytes>::failure(syserr::GenFailure);
  data.resize(got);
  return SysResult<Bytes>::success(std::move(data));
}

SysStatus StdioFiles::writeWhole(const std::wstring& path, const Bytes& data) {
  std::FILE* f = std::fopen(toUtf8(path).c_str(), "wb");
  if (!f) return SysStatus::failure(syserr::OpenFailed);
  const bool written = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && written ? SysStatus::success() : SysStatus::failure(syserr::WriteFault);
}

SysResult<bool> StdioFiles::pathIsDirectory(const std::wstring& path) {
  const SysResult<std::uint32_t> attrs = attributes(path);
  return SysResult<bool>::success(attrs.ok && attrs.value == 0x10);
}

}  // namespace vmd
