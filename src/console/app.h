// What a command handler is given: the machine's services, the console, the
// option scanner and the one controller object of the process.
#pragma once

#include <cstdint>

#include "platform/platform.h"
#include "console/option_scanner.h"
#include "console/output.h"

namespace vmd {

class CVmDevControl;

// A handler's result, which is also the process exit code.
enum CommandResult : std::uint32_t {
  Success = 0,
  InvalidUse = 2,
  Failed = 3,
  Cancelled = 4,
};

struct App {
  Platform& sys;
  Output& io;
  OptionScanner& options;
  CVmDevControl& controller;
};

// The commander's own version, shown by the banner and `ver`.
inline constexpr wchar_t kCommanderVersion[] = L"5.7.0";

}  // namespace vmd
