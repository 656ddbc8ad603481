// vmdsnap: captures the machine and writes it as a state for vmdctl-sim, so
// that a command can be tried on a copy before it is run for real.
#pragma once

#include "platform/platform.h"

namespace vmd::snapshot {

// Exit codes of vmdsnap.
namespace snapexit {
constexpr int Complete = 0;
constexpr int InvalidUse = 2;
constexpr int Incomplete = 3;  // something could not be read, or the file not written
}  // namespace snapexit

// argv[0] is the program, the rest its arguments. Reads the machine through
// `sys`; writes the document to standard output or, with -o, through
// replaceHostFile.
int runSnapshot(int argc, wchar_t** argv, Platform& sys);

}  // namespace vmd::snapshot
