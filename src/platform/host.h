// The console and catalogue of the machine the program runs on. The Windows
// build takes them from Win32 (text-mode C runtime streams, FormatMessageW and
// LoadStringW on the executable's own resources); the Linux build from stdio
// and the catalogue compiled in. CMake picks the implementation.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace vmd {

std::unique_ptr<OutputStreams> makeHostStreams();
std::unique_ptr<MessageCatalog> makeHostCatalog();

// `bytes` as the whole file at `path` on the host's own file system: written
// to a new file in the same folder, then renamed over `path`, so the path
// holds the old file or all of the new one, never a part. ok false with the
// system error otherwise, and the new file is gone again.
SysStatus replaceHostFile(const std::wstring& path, const std::string& bytes);

}  // namespace vmd
