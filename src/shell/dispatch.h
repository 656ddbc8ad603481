// Start-up and command dispatch: one command word per run.
#pragma once

#include "commands/commands.h"

namespace vmd {

// The command table, in search order, ending with a null-name row.
extern const CommandEntry kCommandTable[];

// The whole run: start-up checks, one command, the verdict line. Returns the
// exit code. argv[0] is the program as started.
int runProgram(Platform& sys, int argc, wchar_t** argv);

// The file-name part of argv[0]: the text after its last backslash.
const wchar_t* programNameOf(const wchar_t* argv0);

// The row of a command word (no "-" or "/" dropped), or null.
const CommandEntry* findCommand(const wchar_t* word);

// The common start the row asks for, then its handler. The session check's
// and the index's failures are printed here: Failed, or InvalidUse when a
// disk command has no index. argv holds the words after the command word.
CommandResult runCommand(App& app, const CommandEntry& entry, const wchar_t* programName, int argc, wchar_t** argv);
// The same by command word; InvalidUse for a word no row has.
CommandResult runCommand(App& app, const wchar_t* programName, const wchar_t* word, int argc, wchar_t** argv);

CommandResult helpCommand(App& app, const CommandArgs& args);

}  // namespace vmd
