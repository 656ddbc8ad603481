#include "shell/dispatch.h"

#include "commands/commands.h"
#include "controller/controller.h"
#include "base/text_codec.h"

namespace vmd {

// A row that names a disk has the common start open the session and find
// the disk before its handler runs (runCommand).
const CommandEntry kCommandTable[] = {
    {L"ls", lsCommand, 0x1100, setup::Session},
    {L"add", addCommand, 0x1200, setup::Session},
    {L"del", delCommand, 0x1300, setup::Disk},
    {L"view", viewCommand, 0x1400, setup::Disk},
    {L"edit", editCommand, 0x1500, setup::Disk},
    {L"rebuild", rebuildCommand, 0x1600, setup::Disk},
    {L"init", initCommand, 0x1700, setup::Disk},
    {L"save", saveCommand, 0x1800, setup::Disk},
    {L"export", exportCommand, 0x1900, setup::Disk},
    {L"im", imCommand, 0x1A00, setup::Session},
    {L"mem", memCommand, 0x1B00, setup::Session},
    {L"ver", verCommand, 0x1C00, setup::Session},
    {L"?", helpCommand, msgid::Usage, setup::None},
    {L"help", helpCommand, msgid::Usage, setup::None},
    {nullptr, nullptr, 0, setup::None},
};

namespace {

void bannerAndUsage(Output& io, const wchar_t* programName) {
  io.message(Stream::Err, msgid::Banner, {kCommanderVersion});
  io.err(L"\n");
  io.message(Stream::Err, msgid::Usage, {programName});
}

const wchar_t* sessionError(SessionStatus status) {
  switch (status) {
    case SessionStatus::NoController: return L"Error: Tarnby Ramdisk controller initialization failed!\n";
    case SessionStatus::VersionUnread: return L"Error: Tarnby Ramdisk controller version checking failed!\n";
    case SessionStatus::VersionTooOld: return L"Error: command requires Tarnby Ramdisk 5.6.0 or later!\n";
    case SessionStatus::Ready: break;
  }
  return L"";
}

void printLookupError(Output& io, const DiskLookup& lookup) {
  switch (lookup.status) {
    case DiskLookup::NotANumber: io.err(L"Error: please specify the disk index!\n"); return;
    case DiskLookup::OutOfRange: io.err(L"Error: invalid disk index!\n"); return;
    // This message has no exclamation mark.
    case DiskLookup::NotFound: io.err(L"Error: cannot find the disk #%d\n", static_cast<int>(lookup.index)); return;
    case DiskLookup::Found: return;
  }
}

}  // namespace

const CommandEntry* findCommand(const wchar_t* word) {
  for (const CommandEntry* e = kCommandTable; e->name; ++e)
    if (equalsNoCase(word, e->name)) return e;
  return nullptr;
}

CommandResult runCommand(App& app, const CommandEntry& entry, const wchar_t* programName, int argc, wchar_t** argv) {
  CommandArgs args{programName, argc, argv, nullptr};
  if (entry.needs & setup::Session) {
    if (const SessionStatus s = checkSession(app.controller); s != SessionStatus::Ready) {
      app.io.err(sessionError(s));
      return Failed;
    }
  }
  if ((entry.needs & setup::Disk) != setup::Disk) return entry.handler(app, args);
  if (argc < 1) return InvalidUse;
  DiskInventory inventory(app.controller);
  const DiskLookup lookup = inventory.resolveDiskIndex(argv[0]);
  if (lookup.status != DiskLookup::Found) {
    printLookupError(app.io, lookup);
    return Failed;
  }
  DiskVolumes volumes(inventory, app.sys.io, app.sys.volumes, app.sys.setup);
  DiskTarget disk{lookup.info, inventory, volumes};
  args.argc = argc - 1;
  args.argv = argv + 1;
  args.disk = &disk;
  return entry.handler(app, args);
}

CommandResult runCommand(App& app, const wchar_t* programName, const wchar_t* word, int argc, wchar_t** argv) {
  const CommandEntry* entry = findCommand(word);
  return entry ? runCommand(app, *entry, programName, argc, argv) : InvalidUse;
}

const wchar_t* programNameOf(const wchar_t* argv0) {
  const wchar_t* name = argv0;
  for (const wchar_t* p = argv0; *p; ++p)
    if (*p == L'\\') name = p + 1;
  return name;
}

CommandResult helpCommand(App& app, const CommandArgs& args) {
  const wchar_t* programName = args.programName;
  if (args.argc <= 0) {
    app.io.message(Stream::Out, msgid::Usage, {programName});
    return Success;
  }
  // No "-" or "/" is dropped here: "? -edit" names no command.
  const CommandEntry* e = findCommand(args.argv[0]);
  if (!e) {
    app.io.message(Stream::Out, msgid::UnknownCommand, {programName, args.argv[0]});
    return Success;
  }
  app.io.message(Stream::Out, e->helpId ? e->helpId : msgid::Usage, {programName, e->name});
  return Success;
}

int runProgram(Platform& sys, int argc, wchar_t** argv) {
  Output io(sys.streams, sys.catalog, sys.keys);
  if (!sys.process.initFramework().ok) {
    io.err(L"Error: library initialization failed!\n");
    return Failed;
  }
  // Failing to create the mutex counts as another instance running.
  const SysResult<bool> existed = sys.process.createInstanceMutex(L"Quarnel-VelmoRd");
  if (!existed.ok || existed.value) {
    io.err(L"Error: an instance of %s is currently running!\n", io.str(strid::ProductName));
    return Failed;
  }
  if (const SysResult<bool> admin = sys.process.tokenHasAdministrators(); !admin.ok || !admin.value) {
    io.err(L"Error: program requires administrative privileges!\n");
    return Failed;
  }
  if (!sys.process.comInitialize().ok) {
    io.err(L"Error: COM library initialization failed!\n");
    return Failed;
  }
  if (argc < 1) {
    bannerAndUsage(io, nullptr);
    sys.process.comUninitialize();
    return InvalidUse;
  }
  const wchar_t* programName = programNameOf(argv[0]);
  if (argc < 2) {
    bannerAndUsage(io, programName);
    sys.process.comUninitialize();
    return InvalidUse;
  }
  const wchar_t* word = argv[1];
  if (*word == L'-' || *word == L'/') ++word;
  const CommandEntry* entry = findCommand(word);
  if (!entry) {
    bannerAndUsage(io, programName);
    sys.process.comUninitialize();
    return InvalidUse;
  }
  OptionScanner options(io);
  CVmDevControl controller(sys.setup, sys.io);
  App app{sys, io, options, controller};
  const CommandResult result = runCommand(app, *entry, programName, argc - 2, argv + 2);
  if (result == InvalidUse) io.message(Stream::Err, msgid::InvalidUse, {programName, entry->name});
  if (result == Cancelled) io.message(Stream::Err, msgid::Cancelled, {programName, entry->name});
  sys.process.comUninitialize();
  return static_cast<int>(result);
}

}  // namespace vmd
