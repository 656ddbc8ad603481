// `ver`: the commander's and the controller's versions.
#include "commands/commands.h"
#include "controller/controller.h"

namespace vmd {

CommandResult verCommand(App& app, const CommandArgs&) {
  app.io.message(Stream::Out, msgid::Banner, {kCommanderVersion});
  app.io.out(L"\n");
  app.io.out(L"Commander version: %s\n", kCommanderVersion);
  const ControllerFacts& f = app.controller.facts;
  app.io.out(L"Controller version: %d.%d.%d\n", static_cast<int>(f.major), static_cast<int>(f.minor),
             static_cast<int>(f.build));
  app.io.out(L"\n");
  return Success;
}

}  // namespace vmd
