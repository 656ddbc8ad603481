// Commands this build does not carry yet: each checks the controller session
// like every command, then says so plainly and fails.
#include "commands/commands.h"
#include "controller/controller.h"

namespace vmd {

namespace {
CommandResult notInThisBuild(App& app, const wchar_t* name) {
  if (!checkSession(app)) return Failed;
  app.io.err(L"Error: command '%s' is not available in this build!\n", name);
  return Failed;
}
}  // namespace

CommandResult lsCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"ls"); }
CommandResult addCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"add"); }
CommandResult delCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"del"); }
CommandResult viewCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"view"); }
CommandResult editCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"edit"); }
CommandResult rebuildCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"rebuild"); }
CommandResult initCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"init"); }
CommandResult saveCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"save"); }
CommandResult exportCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"export"); }
CommandResult imCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"im"); }
CommandResult memCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"mem"); }

}  // namespace vmd
