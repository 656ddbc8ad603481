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

}  // namespace vmd
