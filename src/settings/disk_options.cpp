#include "settings/disk_options.h"

#include "base/decimal.h"
#include "base/text_codec.h"

namespace vmd {

const wchar_t kDiskOptionString[] = L"n:t:d:v::m::i::p:f:c:l:X::N::Q:T::r:z:I:L::D::F:K:sge:";

const LongOption kDiskLongOptions[] = {
    {L"size", 1, nullptr, L'n'},     {L"type", 1, nullptr, L't'},     {L"drive", 1, nullptr, L'd'},
    {L"volatile", 2, nullptr, L'v'}, {L"dmm", 2, nullptr, L'm'},      {L"im", 2, nullptr, L'i'},
    {L"pd", 1, nullptr, L'p'},       {L"fs", 1, nullptr, L'f'},       {L"clus", 1, nullptr, L'c'},
    {L"label", 1, nullptr, L'l'},    {L"nc", 2, nullptr, L'X'},       {L"nni", 2, nullptr, L'N'},
    {L"np", 1, nullptr, L'Q'},       {L"temp", 2, nullptr, L'T'},     {L"dir", 1, nullptr, L'r'},
    {L"vsn", 1, nullptr, L'z'},      {L"image", 1, nullptr, L'I'},    {L"nosave", 2, nullptr, L'L'},
    {L"delay", 2, nullptr, L'D'},    {L"format", 1, nullptr, L'F'},   {L"timing", 1, nullptr, L'K'},
    {L"silent", 0, nullptr, L's'},   {L"skipsave", 0, nullptr, L'g'}, {L"node", 1, nullptr, L'e'},
    {nullptr, 0, nullptr, 0},
};

namespace {

bool isBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

int hexDigit(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'f') return c - L'a' + 10;
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return -1;
}

// A switch with an optional value: on without one, else on for a nonzero number.
bool switchOn(const wchar_t* arg) { return arg == nullptr || decimalToLong(arg) != 0; }

template <class T>
void setBits(T& word, T bits, bool on) {
  word = on ? static_cast<T>(word | bits) : static_cast<T>(word & ~bits);
}

std::uint8_t parsePermissions(std::wstring_view text) {
  std::uint8_t bits = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && text[i] == L'?') ++i;
    if (i >= text.size()) break;
    std::size_t end = text.find(L'?', i);
    if (end == std::wstring_view::npos) end = text.size();
    if (end - i == 1) {
      switch (asciiUpper(text[i])) {
        case L'F':
          return static_cast<std::uint8_t>(bits | permission::Full);  // nothing after F is read
        case L'M':
          bits |= permission::Modify;
          break;
        case L'W':
          bits |= permission::Write;
          break;
        case L'X':
          bits |= permission::ReadExec;
          break;
        default:
          break;
      }
    }
    i = end;
  }
  return bits;
}

void parseFolders(App& app, std::wstring_view text, DiskSettings& s) {
  for (auto& f : s.customFolders) f.clear();
  std::uint32_t count = 0;
  std::size_t i = 0;
  for (;;) {
    while (i < text.size() && text[i] == L'?') ++i;
    if (i >= text.size() || count >= kMaxCustomFolders) break;
    const std::size_t q = text.find(L'?', i);
    if (q == std::wstring_view::npos) {
      // The last name is taken as it stands, unchecked.
      s.customFolders[count++] = std::wstring(text.substr(i));
      break;
    }
    std::wstring name(text.substr(i, q - i));
    if (CheckCustomFolder(name, s.customFolders, count)) {
      s.customFolders[count++] = name;
    } else {
      app.io.err(L"Warning: custom folder '%s' is invalid or duplicate!\n", name);
    }
    i = q + 1;
  }
  s.customFolderCount = count;
}

std::uint64_t parseNodeMask(std::wstring_view text) {
  std::uint64_t mask = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t end = text.find(L',', i);
    if (end == std::wstring_view::npos) end = text.size();
    if (end > i) {
      const std::wstring piece(text.substr(i, end - i));
      const std::int32_t n = decimalToLong(piece.c_str());
      if (n >= 0 && n <= 63) mask |= std::uint64_t{1} << n;
    }
    i = end + 1;
  }
  return mask;
}

void parseImageFormat(std::wstring_view arg, DiskSettings& s) {
  if (equalsNoCase(arg, L"smart")) {
    s.imageFormat = imageformat::Smart;
  } else if (arg.size() >= 5 && equalsNoCase(arg.substr(0, 5), L"compr")) {
    if (arg.size() == 5) {
      s.imageFormat = imageformat::Compr;
      s.compressionLevel = 0;  // validation raises it to 1
    } else if (arg[5] == L'?') {
      s.imageFormat = imageformat::Compr;
      s.compressionLevel = static_cast<std::uint32_t>(decimalToLong(std::wstring(arg.substr(6)).c_str()));
    } else {
      s.imageFormat = imageformat::Plain;
    }
  } else {
    s.imageFormat = imageformat::Plain;
  }
}

void applyOption(App& app, int letter, const wchar_t* arg, DiskSettings& s, std::uint32_t& silent,
                 std::uint32_t* saveBeforeRemoval) {
  const std::wstring_view text = arg ? std::wstring_view(arg) : std::wstring_view();
  switch (letter) {
    case L'n':
      s.sizeMb = static_cast<std::uint32_t>(decimalToLong(arg));
      break;
    case L't':
      setBits(s.diskFlags, diskflag::DirectIo, equalsNoCase(text, L"d") || equalsNoCase(text, L"dio"));
      break;
    case L'd':
      s.driveLetter = text.empty() ? 0 : static_cast<std::uint16_t>(asciiUpper(text[0]));
      break;
    case L'v':
      setBits(s.diskFlags, diskflag::OneTime, switchOn(arg));
      break;
    case L'X':
      setBits(s.fsFlags, fsflag::Compress, switchOn(arg));
      break;
    case L'T':
      setBits(s.fsFlags, fsflag::TempFolder, switchOn(arg));
      break;
    case L'N':
      setBits(s.fsFlags, fsflag::NoIndexing, switchOn(arg));
      break;
    case L'L':
      s.loadOnly = switchOn(arg) ? 1 : 0;
      break;
    case L'D':
      setBits(s.imageFlags, imageflag::DelayLoad, switchOn(arg));
      break;
    case L'm':
      if (arg && equalsNoCase(text, L"compact")) {
        s.substanceFlags |= substance::Dmm | substance::DmmCompact;
      } else if (!arg || equalsNoCase(text, L"normal") || decimalToLong(arg) != 0) {
        s.substanceFlags = (s.substanceFlags | substance::Dmm) & ~substance::DmmCompact;
      } else {
        s.substanceFlags &= ~(substance::Dmm | substance::DmmCompact);
      }
      break;
    case L'i':
      if (!arg) {
        s.substanceFlags |= substance::InvisibleMemory;
        s.imQuotaMb = 0;
      } else {
        s.imQuotaMb = static_cast<std::uint32_t>(decimalToLong(arg));
        setBits(s.substanceFlags, substance::InvisibleMemory, s.imQuotaMb != 0);
      }
      break;
    case L'p': {
      const std::size_t q = text.rfind(L'?');
      if (q != std::wstring_view::npos) {
        s.physicalDriveSizeMb = static_cast<std::uint32_t>(decimalToLong(std::wstring(text.substr(q + 1)).c_str()));
        s.physicalDriveFile = std::wstring(text.substr(0, q));
      } else {
        s.physicalDriveFile = std::wstring(text);
        s.physicalDriveSizeMb = kDriveShareWholeDisk;
      }
      break;
    }
    case L'f':
      if (equalsNoCase(text, L"ntfs")) s.fileSystem = filesystem::Ntfs;
      else if (equalsNoCase(text, L"fat")) s.fileSystem = filesystem::Fat;
      else s.fileSystem = filesystem::Fat32;
      break;
    case L'c': {
      const std::int32_t v = decimalToLong(arg);
      // Small numbers are kilobytes: -c 4 and -c 4KB both mean 4096 bytes.
      s.clusterSize = (v >= 1 && v < 512) ? static_cast<std::uint32_t>(v) * 1024 : static_cast<std::uint32_t>(v);
      break;
    }
    case L'l':
      s.volumeLabel = std::wstring(text);
      break;
    case L'Q':
      s.everyonePermissions = parsePermissions(text);
      break;
    case L'r':
      parseFolders(app, text, s);
      break;
    case L'z':
      s.volumeSerial = LeadingHex(arg);
      break;
    case L'I':
      s.imageFile = std::wstring(text);
      break;
    case L'F':
      parseImageFormat(text, s);
      break;
    case L'K':
      s.timingSaveMinutes = static_cast<std::uint32_t>(decimalToLong(arg));
      setBits(s.imageFlags, imageflag::TimingSave, s.timingSaveMinutes != 0);
      break;
    case L's':
      silent = 1;
      break;
    case L'g':
      if (saveBeforeRemoval) *saveBeforeRemoval = 0;
      break;
    case L'e':
      s.numaNodeMasks.clear();
      s.numaNodeMasks.push_back(parseNodeMask(text));
      break;
    default:
      break;  // '?' and ':' were reported by the scanner
  }
}

}  // namespace

std::uint32_t LeadingHex(const wchar_t* text) {
  if (!text) return 0;
  const wchar_t* p = text;
  while (isBlank(*p)) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') negative = *p++ == L'-';
  if (p[0] == L'0' && (p[1] == L'x' || p[1] == L'X') && hexDigit(p[2]) >= 0) p += 2;
  std::uint64_t v = 0;
  bool overflow = false;
  for (int d; (d = hexDigit(*p)) >= 0; ++p) {
    v = v * 16 + static_cast<std::uint64_t>(d);
    if (v > 0xFFFFFFFFull) {
      overflow = true;
      v = 0xFFFFFFFFull;
    }
  }
  if (overflow) return 0xFFFFFFFFu;
  const std::uint32_t r = static_cast<std::uint32_t>(v);
  return negative ? 0u - r : r;
}

bool CheckCustomFolder(std::wstring& name, const std::array<std::wstring, kMaxCustomFolders>& accepted,
                       std::uint32_t count) {
  auto trimmed = [](wchar_t c) { return c == L'.' || c == L' '; };
  while (!name.empty() && trimmed(name.back())) name.pop_back();
  std::size_t lead = 0;
  while (lead < name.size() && trimmed(name[lead])) ++lead;
  name.erase(0, lead);
  if (name.empty()) return false;
  if (name.size() > 40) name.resize(40);
  if (name[0] == L'$') return false;
  if (name.find_first_of(L"/\\:*?\"<>|") != std::wstring::npos) return false;
  static const wchar_t* const kReserved[] = {L"TEMP", L"RECYCLER", L"Recycled", L"MSOCache",
                                             L"System Volume Information"};
  for (const wchar_t* r : kReserved)
    if (equalsNoCase(name, r)) return false;
  for (std::uint32_t i = 0; i < count && i < kMaxCustomFolders; ++i)
    if (equalsNoCase(name, accepted[i])) return false;
  return true;
}

void ParseDiskOptions(App& app, int argc, wchar_t** argv, DiskSettings& settings, std::uint32_t& silent,
                      std::uint32_t* saveBeforeRemoval) {
  silent = 0;
  if (saveBeforeRemoval) *saveBeforeRemoval = 1;
  OptionScanner& scan = app.options;
  for (;;) {
    const int letter = scan.next(argc, argv, kDiskOptionString, kDiskLongOptions);
    if (letter == -1) break;
    applyOption(app, letter, scan.optarg, settings, silent, saveBeforeRemoval);
  }
  scan.reportLeftovers(argc, argv);
}

}  // namespace vmd
