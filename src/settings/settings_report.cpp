#include "settings/settings_report.h"

namespace vmd {

namespace {

constexpr wchar_t kNone[] = L"-";

std::wstring memoryFeatures(Output& out, const DiskSettings& s, std::uint32_t mode) {
  if (s.substanceFlags == 0) return kNone;
  std::wstring text;
  if (s.substanceFlags & substance::InvisibleMemory) {
    text += L"IM ";
    // The status form always shows the quota in use; the settings form only a set one.
    if (mode != reportmode::Settings)
      text += format(L"(%d MB) ", s.imQuotaMb);
    else if (s.imQuotaMb != 0)
      text += format(L"(Quota: %d MB) ", s.imQuotaMb);
  }
  if (s.substanceFlags & substance::Dmm) {
    text += L"DMM ";
    if (s.substanceFlags & substance::DmmCompact) text += L"Compact";
  }
  return text;
}

const wchar_t* fileSystemName(std::uint8_t code) {
  switch (code) {
    case filesystem::Ntfs: return L"NTFS";
    case filesystem::Fat: return L"FAT";
    case filesystem::Fat32: return L"FAT32";
    default: return L"RAW";
  }
}

std::wstring clusterText(Output& out, std::uint32_t bytes) {
  return bytes == 0 ? std::wstring(L"Default") : FormatClusterSize(out, bytes);
}

std::wstring permissionText(std::uint8_t p) {
  if (p == 0) return kNone;
  std::wstring text;
  if (p & permission::FullBit) text += L"Full, ";
  if (p & permission::ModifyBit) text += L"Modify, ";
  if (p & permission::ReadExecBit) text += L"Read & Exec, ";
  if (p & permission::WriteBit) text += L"Write, ";
  while (!text.empty() && (text.back() == L',' || text.back() == L' ')) text.pop_back();
  return text;
}

std::wstring imageFormatText(Output& out, const DiskSettings& s) {
  switch (s.imageFormat) {
    case imageformat::Plain: return out.str(strid::PlainImage);
    case imageformat::Smart: return out.str(strid::SmartImage);
    case imageformat::Compr:
      return format(L"%s (level = %d)", out.str(strid::CompressedImage), s.compressionLevel);
    default: return out.str(strid::UnknownFormat);
  }
}

}  // namespace

void PrintDiskSettings(Output& out, const DiskSettings& s, std::uint32_t mode) {
  const std::wstring yes = out.str(strid::Yes), no = out.str(strid::No);
  auto yesNo = [&](bool v) -> const std::wstring& { return v ? yes : no; };
  const bool full = mode == reportmode::Settings;

  out.out(kRule);
  out.out(L"Disk size: %d MB\nDisk type: %s\n", s.sizeMb, (s.diskFlags & diskflag::DirectIo) ? L"Direct-IO" : L"SCSI");
  if (full) out.out(L"Drive letter: %c\n", s.driveLetter ? static_cast<wchar_t>(s.driveLetter) : L'-');
  out.out(L"One-time disk: %s\n", yesNo(s.diskFlags & diskflag::OneTime));
  out.out(L"Memory size: %d MB\nMemory features: %s\nDrive file size: %d MB\nDrive file name: %s\n",
          s.sizeMb - s.physicalDriveSizeMb, memoryFeatures(out, s, mode), s.physicalDriveSizeMb,
          s.physicalDriveSizeMb != 0 ? s.physicalDriveFile : std::wstring(kNone));

  if (full) {
    const bool ntfs = s.fileSystem == filesystem::Ntfs;
    const std::wstring compression = ntfs ? yesNo(s.fsFlags & fsflag::Compress) : std::wstring(kNone);
    const std::wstring indexing = ntfs ? yesNo(!(s.fsFlags & fsflag::NoIndexing)) : std::wstring(kNone);
    out.out(L"File system: %s\nCluster size: %s\nVolume label: %s\nNTFS compression: %s\nNTFS indexing: %s\n",
            fileSystemName(s.fileSystem), clusterText(out, s.clusterSize), s.volumeLabel, compression, indexing);
    out.out(L"NTFS \"Everyone\" permission: %s\n", permissionText(s.everyonePermissions));
    out.out(L"Create \"TEMP\" folder: %s\n", yesNo(s.fsFlags & fsflag::TempFolder));
    if (s.customFolderCount != 0) {
      out.out(L"Custom folders: \n");
      for (std::uint32_t i = 0; i < s.customFolderCount && i < kMaxCustomFolders; ++i)
        out.out(L"    %s\n", s.customFolders[i]);
    } else {
      out.out(L"Custom folders: -\n");
    }
    const std::wstring serial =
        s.volumeSerial ? format(L"%04X-%04X", s.volumeSerial >> 16, s.volumeSerial & 0xFFFF) : std::wstring(kNone);
    out.out(L"Volume serial number: %s\n", serial);
  }

  out.out(L"Enable image file: %s\n", yesNo(!s.imageFile.empty()));
  if (!s.imageFile.empty()) {
    out.out(L"Image file name: %s\nLoad/Save functions: %s\nDelay Load mode: %s\n", s.imageFile,
            s.loadOnly ? L"Load only" : L"Load & save", yesNo(s.imageFlags & imageflag::DelayLoad));
    if (!s.loadOnly) {
      out.out(L"Image format: %s\n", imageFormatText(out, s));
      std::wstring when = out.str(strid::SaveAtShutdown);
      if (s.imageFlags & imageflag::TimingSave)
        when += format(L", %s (%d min)", out.str(strid::TimingSave), s.timingSaveMinutes);
      if (s.imageFlags & imageflag::RealTimeSave) when += L", " + out.str(strid::RealTimeSave);
      out.out(L"When to save: %s\nQuick Save mode: %s\n", when, yesNo(s.imageFlags & imageflag::QuickSave));
    }
  }
  out.out(kRule);
}

std::wstring FormatClusterSize(Output& out, std::uint32_t bytes) {
  if (bytes >= 1024) return format(L"%d ", bytes >> 10) + out.str(strid::UnitKB);
  return format(L"%d", bytes);
}

std::wstring FormatByteSize(Output& out, std::uint64_t bytes) {
  if (bytes >= (1ull << 30)) {
    // The half megabyte rounds to the nearest MB before the two decimals.
    const double gb = static_cast<double>(static_cast<std::uint32_t>(bytes >> 30)) +
                      static_cast<double>((bytes & 0x3FFFFFFF) + 0x80000) / static_cast<double>(1ull << 30);
    return format(L"%.2f ", gb) + out.str(strid::UnitGB);
  }
  if (bytes >= (1ull << 20))
    return format(L"%d ", static_cast<std::uint32_t>((bytes + 0x80000) >> 20)) + out.str(strid::UnitMB);
  return L"0 " + out.str(strid::UnitMB);
}

}  // namespace vmd
