// Commands this build does not carry yet: each checks the controller session
// like every command, then says so plainly and fails. Temporary: each line
// goes when its command is built, and this file with the last one.
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

CommandResult initCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"init"); }
CommandResult saveCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"save"); }
CommandResult exportCommand(App& app, const wchar_t*, int, wchar_t**) { return notInThisBuild(app, L"export"); }

}  // namespace vmd
