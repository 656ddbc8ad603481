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

std::uint32_t StdioFiles::attributes(const std::wstring& path) {
  struct stat st {};
  if (::stat(toUtf8(path).c_str(), &st) != 0) return InvalidFileAttributes;
  return S_ISDIR(st.st_mode) ? 0x10 : 0x80;
}

FileService::Size StdioFiles::fileSize(const std::wstring& path) {
  struct stat st {};
  if (::stat(toUtf8(path).c_str(), &st) != 0) return {false, systemError(errno), 0};
  if (S_ISDIR(st.st_mode)) return {false, syserr::AccessDenied, 0};
  return {true, 0, static_cast<std::uint64_t>(st.st_size)};
}

std::optional<Bytes> StdioFiles::readHead(const std::wstring& path, std::uint32_t count) {
  std::FILE* f = std::fopen(toUtf8(path).c_str(), "rb");
  if (!f) return std::nullopt;
  Bytes data(count);
  const std::size_t got = std::fread(data.data(), 1, data.size(), f);
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  if (failed) return std::nullopt;
  data.resize(got);
  return data;
}

std::uint32_t StdioFiles::writeWhole(const std::wstring& path, const Bytes& data) {
  std::FILE* f = std::fopen(toUtf8(path).c_str(), "wb");
  if (!f) return syserr::OpenFailed;
  const bool written = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && written ? 0 : syserr::WriteFault;
}

bool StdioFiles::pathIsDirectory(const std::wstring& path) { return attributes(path) == 0x10; }

}  // namespace vmd
