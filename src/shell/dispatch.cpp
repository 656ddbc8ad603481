#include "shell/dispatch.h"

#include "commands/commands.h"
#include "controller/controller.h"
#include "base/text_codec.h"

namespace vmd {

const CommandEntry kCommandTable[] = {
    {L"ls", lsCommand, 0x1100},
    {L"add", addCommand, 0x1200},
    {L"del", delCommand, 0x1300},
    {L"view", viewCommand, 0x1400},
    {L"edit", editCommand, 0x1500},
    {L"rebuild", rebuildCommand, 0x1600},
    {L"init", initCommand, 0x1700},
    {L"save", saveCommand, 0x1800},
    {L"export", exportCommand, 0x1900},
    {L"im", imCommand, 0x1A00},
    {L"mem", memCommand, 0x1B00},
    {L"ver", verCommand, 0x1C00},
    {L"?", helpCommand, msgid::Usage},
    {L"help", helpCommand, msgid::Usage},
    {nullptr, nullptr, 0},
};

namespace {

const CommandEntry* findCommand(const wchar_t* word) {
  for (const CommandEntry* e = kCommandTable; e->name; ++e)
    if (equalsNoCase(word, e->name)) return e;
  return nullptr;
}

void bannerAndUsage(Output& io, const wchar_t* programName) {
  io.message(Stream::Err, msgid::Banner, {kCommanderVersion});
  io.err(L"\n");
  io.message(Stream::Err, msgid::Usage, {programName});
}

}  // namespace

const wchar_t* programNameOf(const wchar_t* argv0) {
  const wchar_t* name = argv0;
  for (const wchar_t* p = argv0; *p; ++p)
    if (*p == L'\\') name = p + 1;
  return name;
}

CommandResult helpCommand(App& app, const wchar_t* programName, int argc, wchar_t** argv) {
  if (argc <= 0) {
    app.io.message(Stream::Out, msgid::Usage, {programName});
    return Success;
  }
  // No "-" or "/" is dropped here: "? -edit" names no command.
  const CommandEntry* e = findCommand(argv[0]);
  if (!e) {
    app.io.message(Stream::Out, msgid::UnknownCommand, {programName, argv[0]});
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
  const CommandResult result = entry->handler(app, programName, argc - 2, argv + 2);
  if (result == InvalidUse) io.message(Stream::Err, msgid::InvalidUse, {programName, entry->name});
  if (result == Cancelled) io.message(Stream::Err, msgid::Cancelled, {programName, entry->name});
  sys.process.comUninitialize();
  return static_cast<int>(result);
}

}  // namespace vmd
