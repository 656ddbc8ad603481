// The reader's files on Linux, through the C runtime: it needs nothing of a
// machine but the one file it is given.
#pragma once

#include "platform/platform.h"

namespace vmd {

class StdioFiles : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring& path) override;
  SysResult<std::uint64_t> fileSize(const std::wstring& path) override;
  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override;
  SysStatus writeWhole(const std::wstring& path, const Bytes& data) override;
  SysResult<bool> pathIsDirectory(const std::wstring& path) override;
};

}  // namespace vmd
