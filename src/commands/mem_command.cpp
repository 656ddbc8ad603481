// `mem`: free and total Invisible Memory held for this product, and free and
// total memory that the operating system manages.
#include "commands/commands.h"
#include "controller/im_status.h"

namespace vmd {

CommandResult memCommand(App& app, const CommandArgs&) {
  std::uint64_t freeBytes = 0, totalBytes = 0;
  app.io.out(L"OS Invisible Memory (Free/Total): ");
  if (getImFreeTotal(app.controller, &freeBytes, &totalBytes))
    app.io.out(L"%u/%u MB", static_cast<std::uint32_t>(freeBytes >> 20), static_cast<std::uint32_t>(totalBytes >> 20));
  else
    app.io.out(L"N/A");
  app.io.out(L"\n");
  app.io.out(L"OS Managed Memory (Free/Total): ");
  if (const SysResult<SystemInfo::Memory> memory = app.sys.system.memoryStatus(); memory.ok)
    app.io.out(L"%I64u/%I64u MB", memory.value.availPhys >> 20, memory.value.totalPhys >> 20);
  else
    app.io.out(L"N/A");
  app.io.out(L"\n");
  return Success;
}

}  // namespace vmd
