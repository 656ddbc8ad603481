#include "descriptor/descriptor_tool.h"

#include <vector>

#include "base/drive_letter.h"
#include "base/format.h"
#include "base/text_codec.h"
#include "console/option_scanner.h"
#include "settings/descriptor_file.h"
#include "settings/settings_record.h"
#include "settings/settings_report.h"

namespace vmd {

namespace {

constexpr wchar_t kHelp[] =
    L"vddinfo: checks a Tarnby Ramdisk disk descriptor file and shows what it holds.\n"
    L"\n"
    L"Usage: vddinfo <file>\n"
    L"       vddinfo -?\n"
    L"\n"
    L"<file>    A disk descriptor file (.vdd), as \"vmdctl export\" writes it.\n"
    L"-?, -h    Shows this text.\n"
    L"\n"
    L"The file is checked in this order: the magic number, the header size, the\n"
    L"file's length against the length its header gives, and the checksum of the\n"
    L"settings record; then the record's own header size, length and checksum,\n"
    L"and where each of its sections, paths, labels and lists lies. The first\n"
    L"fault found is named, and nothing else is shown.\n"
    L"\n"
    L"For a valid file it shows the header's variant code and drive letter, the\n"
    L"disk's settings in the words \"vmdctl view\" uses, and one \"vmdctl add\"\n"
    L"command line that creates a disk with these settings. The arguments of that\n"
    L"line are quoted by the Windows command-line rules, so paths and labels with\n"
    L"blanks survive when it is pasted into a command prompt. Settings that no\n"
    L"option of \"add\" can set (an automatically chosen serial number, controller\n"
    L"bits) are left out of it.\n"
    L"\n"
    L"Exit codes:\n"
    L"    0    the file is a valid disk descriptor file\n"
    L"    2    invalid use: no file, more than one, or an unknown option\n"
    L"    3    the file cannot be read, or it is not a valid disk descriptor file\n"
    L"\n"
    L"Example:\n"
    L"    vddinfo \"C:\\Disk Settings\\ramdisk.vdd\"\n";

constexpr wchar_t kUsage[] = L"Usage: vddinfo <file>\nFor more information, type: vddinfo -?\n";

void add(std::vector<std::wstring>& line, const std::wstring& option) { line.push_back(option); }
void add(std::vector<std::wstring>& line, const std::wstring& option, const std::wstring& value) {
  line.push_back(option);
  line.push_back(value);
}

// The tokens of -Q that give these permission bits back.
std::wstring permissionTokens(std::uint8_t p) {
  if ((p & permission::Full) == permission::Full) return L"f";
  std::wstring tokens;
  auto token = [&tokens](const wchar_t* t) { tokens += (tokens.empty() ? L"" : L"?") + std::wstring(t); };
  if ((p & permission::Modify) == permission::Modify) {
    token(L"m");
  } else {
    if (p & permission::Write) token(L"w");
    if (p & permission::ReadExec) token(L"x");
  }
  return tokens;
}

std::wstring nodeList(std::uint64_t mask) {
  std::wstring list;
  for (int n = 0; n < 64; ++n)
    if (mask & (std::uint64_t{1} << n)) list += (list.empty() ? L"" : L",") + format(L"%d", n);
  return list;
}

void showHeader(Output& out, const std::wstring& path, const DescriptorCheck& c) {
  out.out(L"Disk descriptor file: %s\n", path);
  out.out(L"Settings record: %u bytes, checksum 0x%08X\n", c.payloadSize, c.checksum);
  out.out(L"Variant code: 0x%04X\n", c.variantCode);
  const wchar_t letter = static_cast<wchar_t>(c.driveLetter);
  if (c.driveLetter == 0)
    out.out(L"Drive letter: -\n");
  else if (isAsciiLetter(letter))
    out.out(L"Drive letter: %c\n", letter);
  else
    out.out(L"Drive letter: - (the header holds 0x%04X)\n", c.driveLetter);
}

}  // namespace

std::wstring QuoteArgument(const std::wstring& a) {
  if (!a.empty() && a.find_first_of(L" \t\n\v\"") == std::wstring::npos) return a;
  std::wstring q = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : a) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    // Backslashes count only before a quote: there they are doubled.
    q.append(c == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
    backslashes = 0;
    q += c;
  }
  q.append(2 * backslashes, L'\\');
  q += L'"';
  return q;
}

std::wstring AddCommandLine(const DiskSettings& s, wchar_t letter) {
  std::vector<std::wstring> line;
  add(line, L"-n", format(L"%u", s.sizeMb));
  if (s.diskFlags & diskflag::DirectIo) add(line, L"-t", L"dio");
  if (letter != 0) add(line, L"-d", std::wstring(1, letter));
  if (s.diskFlags & diskflag::OneTime) add(line, L"-v");
  if (s.substanceFlags & substance::Dmm)
    add(line, (s.substanceFlags & substance::DmmCompact) ? L"-m=compact" : L"-m");
  if (s.substanceFlags & substance::InvisibleMemory)
    add(line, s.imQuotaMb != 0 ? format(L"-i=%u", s.imQuotaMb) : std::wstring(L"-i"));
  if (s.physicalDriveSizeMb != 0 && !s.physicalDriveFile.empty())
    add(line, L"-p", format(L"%s?%u", s.physicalDriveFile, s.physicalDriveSizeMb));
  if (s.fileSystem == filesystem::Ntfs) add(line, L"-f", L"ntfs");
  if (s.fileSystem == filesystem::Fat) add(line, L"-f", L"fat");
  if (s.fileSystem == filesystem::Fat32) add(line, L"-f", L"fat32");
  // A size of 512 bytes or more is read as bytes, which every stored size is.
  if (s.clusterSize != 0) add(line, L"-c", format(L"%u", s.clusterSize));
  add(line, L"-l", s.volumeLabel);
  if (s.fsFlags & fsflag::Compress) add(line, L"-X");
  if (s.fsFlags & fsflag::NoIndexing) add(line, L"-N");
  if (s.fsFlags & fsflag::TempFolder) add(line, L"-T");
  if (const std::wstring q = permissionTokens(s.everyonePermissions); !q.empty()) add(line, L"-Q", q);
  if (s.customFolderCount != 0) {
    std::wstring folders;
    for (std::uint32_t i = 0; i < s.customFolderCount && i < kMaxCustomFolders; ++i)
      folders += (i ? L"?" : L"") + s.customFolders[i];
    add(line, L"-r", folders);
  }
  if (s.volumeSerial != 0) add(line, L"-z", format(L"%08X", s.volumeSerial));
  if (!s.imageFile.empty()) {
    add(line, L"-I", s.imageFile);
    if (s.loadOnly) add(line, L"-L");
    if (s.imageFlags & imageflag::DelayLoad) add(line, L"-D");
    if (!s.loadOnly) {
      if (s.imageFormat == imageformat::Smart) add(line, L"-F", L"smart");
      if (s.imageFormat == imageformat::Compr) add(line, L"-F", format(L"compr?%u", s.compressionLevel));
      if ((s.imageFlags & imageflag::TimingSave) && s.timingSaveMinutes != 0)
        add(line, L"-K", format(L"%u", s.timingSaveMinutes));
    }
  }
  // A mask of no node is written too (as an empty list), so the disk made by
  // the line carries the same record.
  if (!s.numaNodeMasks.empty()) add(line, L"-e", nodeList(s.numaNodeMasks.front()));

  std::wstring text = L"vmdctl add";
  for (const std::wstring& a : line) text += L" " + QuoteArgument(a);
  return text;
}

int runDescriptorReader(int argc, wchar_t** argv, FileService& files, Output& out) {
  std::vector<std::wstring> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (args.size() == 1 && isHelpArgument(args[0])) {
    out.out(kHelp);
    return readerexit::Valid;
  }
  const wchar_t* problem = nullptr;
  if (args.empty() || (args.size() == 1 && args[0].empty()))
    problem = L"Error: please specify the descriptor file!\n";
  else if (args.size() > 1)
    problem = L"Error: only one file can be read at a time!\n";
  if (problem || (args[0].size() > 1 && args[0][0] == L'-')) {
    // A lone "-" is a file name; a path that begins with a dash is given as .\-name.
    if (problem)
      out.err(problem);
    else
      out.err(L"Error: unknown option '%s'!\n", args[0]);
    out.err(kUsage);
    return readerexit::InvalidUse;
  }
  const std::wstring& path = args[0];

  const SysResult<std::uint64_t> size = files.fileSize(path);
  if (!size.ok) {
    out.err(L"Error: cannot open file '%s' (0x%08x)!\n", path, size.error);
    return readerexit::NotValid;
  }
  if (size.value > kMaxDescriptorBytes) {
    out.err(L"Error: '%s' is not a valid disk descriptor file: the file is %llu bytes long, larger than any "
            L"descriptor can be!\n",
            path, static_cast<unsigned long long>(size.value));
    return readerexit::NotValid;
  }
  const SysResult<Bytes> data = files.readHead(path, static_cast<std::uint32_t>(size.value));
  if (!data.ok) {
    out.err(L"Error: cannot read file '%s'!\n", path);
    return readerexit::NotValid;
  }
  const DescriptorCheck c = CheckDescriptor(data.value.data(), data.value.size());
  if (!c.valid()) {
    out.err(L"Error: '%s' is not a valid disk descriptor file: %s!\n", path, c.problem);
    return readerexit::NotValid;
  }

  showHeader(out, path, c);
  DiskSettings settings;
  DiskSettingsFromRecord(c.record, settings);
  out.out(L"\nDisk Settings\n");
  PrintDiskSettings(out, settings, reportmode::Settings);

  wchar_t letter = static_cast<wchar_t>(c.driveLetter);
  if (!isAsciiLetter(letter)) letter = static_cast<wchar_t>(settings.driveLetter);
  out.out(L"\nCommand line to create this disk:\n%s\n",
          AddCommandLine(settings, isAsciiLetter(letter) ? asciiUpper(letter) : 0));
  return readerexit::Valid;
}

}  // namespace vmd
