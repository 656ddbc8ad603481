// The command handlers of the command table.
#pragma once

#include "console/app.h"

namespace vmd {

CommandResult lsCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult addCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult delCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult viewCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult editCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult rebuildCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult initCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult saveCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult exportCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult imCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult memCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);
CommandResult verCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);

}  // namespace vmd
