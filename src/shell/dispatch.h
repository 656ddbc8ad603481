// Start-up and command dispatch: one command word per run.
#pragma once

#include "console/app.h"

namespace vmd {

// The command table, in search order, ending with a null-name row.
extern const CommandEntry kCommandTable[];

// The whole run: start-up checks, one command, the verdict line. Returns the
// exit code. argv[0] is the program as started.
int runProgram(Platform& sys, int argc, wchar_t** argv);

// The file-name part of argv[0]: the text after its last backslash.
const wchar_t* programNameOf(const wchar_t* argv0);

CommandResult helpCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv);

}  // namespace vmd
