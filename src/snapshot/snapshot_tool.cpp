#include "snapshot/snapshot_tool.h"

#include <string>
#include <vector>

#include "base/format.h"
#include "base/text_codec.h"
#include "console/option_scanner.h"
#include "console/output.h"
#include "platform/host.h"
#include "snapshot/capture.h"
#include "snapshot/state_document.h"

namespace vmd::snapshot {

namespace {

constexpr wchar_t kHelp[] =
    L"vmdsnap: copies this machine's Tarnby Ramdisk disks, drive letters, volumes and\n"
    L"Invisible Memory into a state file for vmdctl-sim, to try a command on the copy.\n"
    L"\n"
    L"Usage: vmdsnap [-o <file>]\n"
    L"\n"
    L"-o <file>  Writes the copy to <file> (UTF-8), whole or not at all. Without it\n"
    L"           the copy goes to standard output, in ASCII (\\u escapes for the rest).\n"
    L"-?, -h     Shows this text.\n"
    L"\n"
    L"It only reads: no disk, letter, volume, file or registry value is changed.\n"
    L"Run it as an administrator, as vmdctl. What it cannot read is named on\n"
    L"standard error with the system's error code; the copy holds the rest.\n"
    L"\n"
    L"Exit codes:\n"
    L"    0    the copy is complete\n"
    L"    2    invalid use: an unknown option or argument\n"
    L"    3    something could not be read, or <file> could not be written\n"
    L"\n"
    L"Then: vmdctl-sim --sim-state <file> --sim-trace trace.txt del 2 -s\n";

constexpr wchar_t kUsage[] = L"Usage: vmdsnap [-o <file>]\nFor more information, type: vmdsnap -?\n";

}  // namespace

int runSnapshot(int argc, wchar_t** argv, Platform& sys) {
  Output out(sys.streams, sys.catalog, sys.keys);
  const std::vector<std::wstring> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (args.size() == 1 && isHelpArgument(args[0])) {
    out.out(kHelp);
    return snapexit::Complete;
  }
  std::optional<std::wstring> file;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::wstring& a = args[i];
    if ((a == L"-o" || a == L"/o") && i + 1 < args.size() && !args[i + 1].empty() && !file) {
      file = args[++i];
      continue;
    }
    if (a == L"-o" || a == L"/o")
      out.err(file ? L"Error: only one output file can be given!\n" : L"Error: option '%s' needs a file name!\n", a);
    else if (!a.empty() && (a[0] == L'-' || a[0] == L'/'))
      out.err(L"Error: unknown option '%s'!\n", a);
    else
      out.err(L"Error: argument '%s' is not understood!\n", a);
    out.err(kUsage);
    return snapexit::InvalidUse;
  }

  const Capture capture = captureMachine(sys);
  for (const Gap& g : capture.gaps) {
    if (g.error) out.err(L"Warning: could not read %s (0x%08x)!\n", g.what, g.error);
    else out.err(L"Warning: could not read %s!\n", g.what);
  }
  const nlohmann::ordered_json document = stateDocument(capture);
  if (file) {
    const SysStatus written = replaceHostFile(*file, document.dump(2) + "\n");
    if (!written.ok) {
      out.err(L"Error: cannot write '%s' (0x%08x)!\n", *file, written.error);
      return snapexit::Incomplete;
    }
  } else {
    // ASCII, so no code page between here and the reader can change a character.
    out.write(Stream::Out, fromUtf8(document.dump(2, ' ', true)) + L"\n");
  }
  return capture.complete() ? snapexit::Complete : snapexit::Incomplete;
}

}  // namespace vmd::snapshot
