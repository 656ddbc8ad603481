// The command table's rows and the handlers they name. A row says what the
// command needs before it starts; the dispatcher (shell/dispatch.cpp) does
// that common start once for every command.
#pragma once

#include <cstdint>

#include "console/app.h"
#include "controller/controller.h"
#include "volume/volume.h"

namespace vmd {

// The disk a command's index argument named, as the common start found it.
struct DiskTarget {
  DiskInfo info;
  DiskInventory& inventory;
  DiskVolumes& volumes;
};

// What a handler is given besides the App.
struct CommandArgs {
  const wchar_t* programName;
  // The words after the command word; for a command that names a disk, the
  // words after its index.
  int argc;
  wchar_t** argv;
  DiskTarget* disk;  // set when the row needs a disk, else null
};

using CommandHandler = CommandResult (*)(App& app, const CommandArgs& args);

// What a row needs before its handler runs.
namespace setup {
constexpr std::uint32_t None = 0;
constexpr std::uint32_t Session = 1;         // the controller found and its version accepted
constexpr std::uint32_t Disk = 2 | Session;  // and the disk of the first argument (none: InvalidUse)
}  // namespace setup

struct CommandEntry {
  const wchar_t* name;
  CommandHandler handler;
  std::uint32_t helpId;
  std::uint32_t needs;  // setup::
};

CommandResult lsCommand(App& app, const CommandArgs& args);
CommandResult addCommand(App& app, const CommandArgs& args);
CommandResult delCommand(App& app, const CommandArgs& args);
CommandResult viewCommand(App& app, const CommandArgs& args);
CommandResult editCommand(App& app, const CommandArgs& args);
CommandResult rebuildCommand(App& app, const CommandArgs& args);
CommandResult initCommand(App& app, const CommandArgs& args);
CommandResult saveCommand(App& app, const CommandArgs& args);
CommandResult exportCommand(App& app, const CommandArgs& args);
CommandResult imCommand(App& app, const CommandArgs& args);
CommandResult memCommand(App& app, const CommandArgs& args);
CommandResult verCommand(App& app, const CommandArgs& args);

}  // namespace vmd
