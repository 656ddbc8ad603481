// The reader's files on Linux, through the C runtime: it needs nothing of a
// machine but the one file it is given.
#pragma once

#include "platform/platform.h"

namespace vmd {

class StdioFiles : public FileService {
 public:
  std::uint32_t attributes(const std::wstring& path) override;
  Size fileSize(const std::wstring& path) override;
  std::optional<Bytes> readHead(const std::wstring& path, std::uint32_t count) override;
  std::uint32_t writeWhole(const std::wstring& path, const Bytes& data) override;
  bool pathIsDirectory(const std::wstring& path) override;
};

}  // namespace vmd
