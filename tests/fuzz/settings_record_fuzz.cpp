// Random bytes as the controller's record: decoding must stay inside them,
// and settings derived from them must survive a creation record and back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "base/bytes.h"
#include "settings/creation_record.h"
#include "settings/settings_record.h"

namespace {

class FixedSystem : public vmd::SystemInfo, public vmd::Clock {
 public:
  vmd::SysResult<Memory> memoryStatus() override { return vmd::SysResult<Memory>::failure(31); }
  vmd::SysResult<std::wstring> windowsDirectory() override { return vmd::SysResult<std::wstring>::failure(31); }
  vmd::SystemTime systemTime() override { return {2026, 11, 0, 22, 3, 41, 22, 500}; }
  std::uint64_t systemTimeAsFileTime() override { return 0x01DA2B3C4D5E6F70ull; }
  void sleep(std::uint32_t) override {}
  vmd::SysResult<std::vector<std::uint32_t>> diskDriveSignatures() override {
    return vmd::SysResult<std::vector<std::uint32_t>>::success({});
  }
};

void check(bool ok) {
  if (!ok) std::abort();
}

// Keeps what a creation record can carry back unchanged: validated ranges,
// text without NULs, a Load Only image with the format defaults.
void normalise(vmd::DiskSettings& s) {
  auto clean = [](std::wstring& t) {
    for (wchar_t& c : t)
      if (c == 0 || static_cast<std::uint32_t>(c) > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) c = L'?';
    if (t.size() > 200) t.resize(200);
  };
  clean(s.physicalDriveFile);
  clean(s.volumeLabel);
  clean(s.imageFile);
  if (s.physicalDriveSizeMb == 0) s.physicalDriveFile.clear();
  if (s.numaNodeMasks.size() > 16) s.numaNodeMasks.resize(16);
  s.clusterSize &= 0xFF << 9;
  s.fsExtraMask &= 0x07;
  if (!(s.fsExtraMask & vmd::fsextra::Permissions)) s.everyonePermissions = 0;
  if (!(s.fsExtraMask & vmd::fsextra::Serial)) s.volumeSerial = 0;
  if (s.customFolderCount > vmd::kMaxCustomFolders) s.customFolderCount = vmd::kMaxCustomFolders;
  if (s.customFolderCount == 0) s.fsExtraMask &= ~vmd::fsextra::Folders;
  for (std::uint32_t i = 0; i < vmd::kMaxCustomFolders; ++i) {
    clean(s.customFolders[i]);
    if (s.customFolders[i].size() > 40) s.customFolders[i].resize(40);
    // An empty name would end the list early when it is read back.
    if (i < s.customFolderCount && s.customFolders[i].empty()) s.customFolders[i] = L"f";
    if (i >= s.customFolderCount) s.customFolders[i].clear();
  }
  if (s.customFolderCount != 0) s.fsExtraMask |= vmd::fsextra::Folders;
  else s.fsExtraMask &= ~vmd::fsextra::Folders;
  s.timingSaveMinutes &= 0xFFFF;
  s.compressionLevel = static_cast<std::uint32_t>(static_cast<std::int8_t>(s.compressionLevel & 0xFF));
  s.imageFormat &= 0xFF;
  if (s.imageFile.empty()) s.imageFlags = 0;
  s.loadOnly = s.imageFile.empty() ? 0 : ((s.imageFlags & vmd::imageflag::SaveSet) == 0);
  if (s.imageFile.empty() || s.loadOnly) {
    s.imageFormat = 0;
    s.compressionLevel = 1;
    s.timingSaveMinutes = 0;
  } else {
    // The record's substance flags follow the image format.
    if (s.imageFormat == vmd::imageformat::Smart)
      s.substanceFlags |= vmd::substance::Hybrid;
    else
      s.substanceFlags &= ~(vmd::substance::Hybrid | vmd::substance::DmmCompact);
  }
  s.driveLetter &= 0x7F;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Exactly `size` bytes on the heap: any read past them is a sanitizer report.
  const vmd::Bytes record(data, data + size);
  vmd::DiskSettings s;
  vmd::DiskSettingsFromRecord(record, s);
  check(s.customFolderCount <= vmd::kMaxCustomFolders);

  normalise(s);
  FixedSystem system;
  const std::optional<vmd::Bytes> built = vmd::BuildCreationRecord(s, &record, system, system);
  check(built.has_value());  // normalised settings stay far inside the 16-bit layout
  check(vmd::DiskSettingsRecord::checksum(*built) == vmd::get32(*built, vmd::DiskSettingsRecord::Header::Checksum));
  check(vmd::get8(*built, vmd::DiskSettingsRecord::Header::DiskIndex) ==
        vmd::get8(record, vmd::DiskSettingsRecord::Header::DiskIndex));
  vmd::DiskSettings back;
  vmd::DiskSettingsFromRecord(*built, back);
  // The serial always goes on the wire; it reads back only when the user gave it.
  back.fsExtraMask &= 0x07;
  check(back == s);
  return 0;
}
