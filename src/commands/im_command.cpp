// `im`: the Invisible Memory status, enabling it (or changing its options)
// and disabling it.
#include <array>

#include "commands/commands.h"
#include "base/bytes.h"
#include "controller/codes.h"
#include "base/decimal.h"
#include "controller/im_status.h"
#include "base/text_codec.h"

namespace vmd {

namespace {

// The 24-byte input of SetImOptions.
struct ImOptions {
  std::uint32_t size = 24;
  std::uint32_t reserveMb = 0;
  std::uint32_t quotaMb = 0;
  std::uint32_t hiberDrive = 0;  // a UTF-16 code unit, as typed
  std::uint32_t hiberSupport = 0;

  std::array<std::uint8_t, 24> bytes() const {
    std::array<std::uint8_t, 24> b{};
    putLE(b.data(), b.size(), 0, 4, size);
    putLE(b.data(), b.size(), 4, 4, reserveMb);
    putLE(b.data(), b.size(), 8, 4, quotaMb);
    putLE(b.data(), b.size(), 12, 4, hiberDrive);
    putLE(b.data(), b.size(), 16, 4, hiberSupport);
    return b;
  }
};

bool otherImManagerPresent(App& app) {
  for (const OtherImManager& m : kOtherImManagers) {
    const SysResult<std::uint32_t> v = app.sys.registry.readDword(m.key, m.value);
    if (v.ok && v.value != 0) return true;
  }
  return false;
}

wchar_t defaultHiberDrive(App& app) {
  const SysResult<std::wstring> dir = app.sys.system.windowsDirectory();
  return dir.ok && !dir.value.empty() ? dir.value[0] : 0;
}

void showImStatus(App& app) {
  Output& io = app.io;
  io.out(L"\n");
  std::uint32_t error = 0;
  const std::optional<ImStatus> s = queryImStatus(app.controller, &error);
  if (!s) {
    io.err(L"Error: getting status of Invisible Memory failed (0x%08x)!\n", error);
    return;
  }
  if (s->recordSize < kImRecordSize) {
    io.err(L"Error: Invisible Memory Manager version too low!\n");
    return;
  }
  io.out(L"Global Status: ");
  if (s->state == kImNotActive) {
    io.out(L"Invisible Memory Manager is not active!\n");
    return;
  }
  if (s->state != 0) {
    io.out(L"Failed to detect Invisible Memory!\n");
    return;
  }
  auto mb = [&](std::uint32_t units) { return static_cast<std::int32_t>(imUnitsToMb(units, s->unitSize)); };
  io.out(L"Invisible Memory Manager has started.\n");
  io.out(kRule);
  io.out(L"Total usable size: %d MB\n", mb(s->endUnit - s->firstUnit));
  io.out(L"Front-end reserve: ");
  if (s->reserveInEffect) io.out(L"%d MB", mb(s->reserveInEffect));
  else io.out(L"No");
  io.out(L"\n");
  io.out(L"Quota limit: ");
  if (s->quotaInEffect) io.out(L"%d MB", mb(s->quotaInEffect));
  else io.out(L"No");
  io.out(L"\n");
  io.out(L"Hiberfile location: ");
  if (s->hiberDriveInEffect) io.out(L"%c:\\", static_cast<wchar_t>(s->hiberDriveInEffect));
  else io.out(L"-");
  io.out(L"\n\n");
  io.out(L"Local Status: ");
  if (s->localState) {
    io.out(L"Invisible Memory is enabled.\n");
    io.out(kRule);
    io.out(L"Hibernation support: %s\n", s->hiberInEffect ? L"Yes" : L"No");
  } else {
    io.out(L"Invisible Memory is NOT enabled.\n");
  }
  if (s->reserveConfigured != s->reserveInEffect || s->quotaConfigured != s->quotaInEffect ||
      s->hiberDriveConfigured != s->hiberDriveInEffect || s->hiberConfigured != s->hiberInEffect) {
    io.out(L"\n");
    io.out(L"(!) Invisible Memory options have been changed. Because Invisible Memory is being used, you must "
           L"restart the computer to apply these changes.\n");
  }
}

// The element that holds the option just scanned, as the user typed it.
const wchar_t* optionAsTyped(const OptionScanner& options, wchar_t** argv) {
  const int last = options.optind - 1;
  if (last < 0) return L"";
  // A value in an element of its own follows the option's element.
  if (options.optarg == argv[last] && last > 0) return argv[last - 1];
  return argv[last];
}

// A reserve or quota in MB: the field keeps its value when it is out of range.
void applyMegabytes(App& app, wchar_t** argv, std::uint32_t& field) {
  const std::uint32_t v = static_cast<std::uint32_t>(decimalToLong(app.options.optarg));
  if (v > 65535) {
    app.io.err(L"Warning: bad value for option '%s', valid range: 0 - 65535\n", optionAsTyped(app.options, argv));
    return;
  }
  field = v;
}

void parseImOptions(App& app, int argc, wchar_t** argv, ImOptions& options, bool& silent) {
  static const LongOption kLong[] = {
      {L"rsvd", 1, nullptr, L'r'},     {L"quota", 1, nullptr, L'q'},  {L"loc", 1, nullptr, L'l'},
      {L"nohiber", 0, nullptr, L'n'},  {L"silent", 0, nullptr, L's'}, {nullptr, 0, nullptr, 0},
  };
  silent = false;
  OptionScanner& scan = app.options;
  for (;;) {
    const int c = scan.next(argc, argv, L"r:q:l:ns", kLong);
    if (c == -1) break;
    switch (c) {
      case L'r':
        applyMegabytes(app, argv, options.reserveMb);
        break;
      case L'q':
        applyMegabytes(app, argv, options.quotaMb);
        break;
      case L'l': {
        const wchar_t letter = scan.optarg ? scan.optarg[0] : 0;
        const wchar_t upper = asciiUpper(letter);
        if (upper >= L'A' && upper <= L'Z' && (app.sys.volumes.logicalDrives().valueOr(0) & (1u << (upper - L'A'))))
          options.hiberDrive = static_cast<std::uint32_t>(letter);
        else
          app.io.err(L"Warning: bad value for option '%s'\n", optionAsTyped(scan, argv));
        break;
      }
      case L'n':
        options.hiberSupport = 0;
        break;
      case L's':
        silent = true;
        break;
      default:
        break;  // the scanner has printed its warning
    }
  }
  scan.reportLeftovers(argc, argv);
}

CommandResult enableIm(App& app, int argc, wchar_t** argv, const std::optional<ImStatus>& status, bool valid,
                       bool enabled) {
  ImOptions options;
  if (valid) {
    options.reserveMb = static_cast<std::uint32_t>(imUnitsToMb(status->reserveConfigured, status->unitSize));
    options.quotaMb = static_cast<std::uint32_t>(imUnitsToMb(status->quotaConfigured, status->unitSize));
    options.hiberDrive = status->hiberDriveConfigured;
  } else {
    options.hiberDrive = static_cast<std::uint32_t>(defaultHiberDrive(app));
  }
  options.hiberSupport = enabled ? status->hiberConfigured : 1;
  bool silent = false;
  parseImOptions(app, argc, argv, options, silent);
  if (!silent) {
    bool go;
    if (otherImManagerPresent(app)) {
      app.io.err(L"Warning: program detected that other software has managed Invisible Memory. You need to "
                 L"disable Invisible Memory management in other software first to prevent the possible conflict.\n");
      go = app.io.confirm(L"Press 'Y' or 'y' to continue anyway, any other key to cancel: ");
    } else {
      app.io.out(L"Are you sure to enable/change Invisible Memory?\n");
      go = app.io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: ");
    }
    if (!go) return Cancelled;
  }
  // Options first; the enable is not sent when they are refused.
  const auto record = options.bytes();
  SysResult<std::uint32_t> r = app.controller.request(ioctl::SetImOptions, record.data(), 24, nullptr, 0);
  if (r.ok) r = app.controller.request(ioctl::EnableIm, nullptr, 0, nullptr, 0);
  if (!r.ok) {
    app.io.err(L"Error: failed to enable/change Invisbile Memory (0x%08x)!\n", r.error);
    return Failed;
  }
  if (silent) return Success;
  app.io.err(L"Success: Invisible Memory has been enabled!\n");
  showImStatus(app);
  return Success;
}

}  // namespace

CommandResult imCommand(App& app, const CommandArgs& args) {
  const int argc = args.argc;
  wchar_t** const argv = args.argv;
  if (argc <= 0) {
    showImStatus(app);
    return Success;
  }
  const std::optional<ImStatus> status = queryImStatus(app.controller);
  const bool valid = status && status->valid();
  const bool enabled = valid && status->localState != 0;
  const wchar_t* word = argv[0];
  if (*word == L'-' || *word == L'/') ++word;
  if (equalsNoCase(word, L"disable")) {
    CommandResult result = Success;
    if (enabled && !app.controller.request(ioctl::DisableIm, nullptr, 0, nullptr, 0).ok) {
      app.io.err(L"Error: failed to disable Invisible Memory!\n");
      result = Failed;
    }
    // Reported even after a failure: both lines are shown then.
    app.io.err(L"Success: Invisible Memory has been disabled!\n");
    return result;
  }
  if (equalsNoCase(word, L"enable")) return enableIm(app, argc - 1, argv + 1, status, valid, enabled);
  return InvalidUse;
}

}  // namespace vmd
