#include "settings/creation_record.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "base/bytes.h"
#include "settings/settings_record.h"
#include "base/text_codec.h"
#include "sim/record_layout.h"

namespace vmd {
namespace creation_record_test {

using H = DiskSettingsRecord::Header;
using S = DiskSettingsRecord::Substance;
using F = DiskSettingsRecord::Format;
using I = DiskSettingsRecord::Image;

// A clock and a disk-signature list under the test's control.
class FakeSystem : public SystemInfo, public Clock {
 public:
  SysResult<Memory> memoryStatus() override { return SysResult<Memory>::failure(31); }
  SysResult<std::wstring> windowsDirectory() override { return SysResult<std::wstring>::failure(31); }
  SystemTime systemTime() override {
    ++timeReads;
    return time;
  }
  std::uint64_t systemTimeAsFileTime() override { return fileTime; }
  void sleep(std::uint32_t) override {}
  SysResult<std::vector<std::uint32_t>> diskDriveSignatures() override {
    ++signatureQueries;
    if (!signatures) return SysResult<std::vector<std::uint32_t>>::failure(0x80041001u);  // WBEM_E_FAILED
    return SysResult<std::vector<std::uint32_t>>::success(*signatures);
  }

  std::uint64_t fileTime = 0x01DA'2B3C'4D5E'6F70ull;
  SystemTime time{2026, 11, 0, 22, 3, 41, 22, 500};
  std::optional<std::vector<std::uint32_t>> signatures = std::vector<std::uint32_t>{};
  int timeReads = 0;
  int signatureQueries = 0;
};

// Bits 24..55 of fileTime above.
constexpr std::uint32_t kTimeSignature = 0xDA2B3C4D;
// From 2026-11-22 03:41:22.500 (see ChooseVolumeSerial below).
constexpr std::uint32_t kTimeSerial = 0x0A2130EDu;

Bytes build(const DiskSettings& s, const Bytes* previous = nullptr) {
  FakeSystem system;
  auto r = BuildCreationRecord(s, previous, system, system);
  EXPECT_TRUE(r);
  return r ? *r : Bytes{};
}

void putUtf16At(Bytes& b, std::size_t at, std::wstring_view text) { putUtf16z(b.data() + at, b.size() - at, text); }

TEST(ChooseVolumeSerial, BytesAreTimeFieldSumsModulo256) {
  FakeSystem system;
  // year 2026 = 0x07EA: 0xEA + 3 = 0xED; 0x07 + 41 = 0x30; 11 + 22 = 0x21; 22 + (500 & 0xFF = 0xF4) = 0x10A -> 0x0A.
  EXPECT_EQ(ChooseVolumeSerial(system), 0x0A2130EDu);
}

TEST(ChooseVolumeSerial, ZeroBecomesOne) {
  FakeSystem system;
  system.time = SystemTime{0x0000, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(ChooseVolumeSerial(system), 1u);
  system.time = SystemTime{0x00FF, 0, 0, 0, 1, 0, 0, 0};  // 0xFF + 1 wraps to 0
  EXPECT_EQ(ChooseVolumeSerial(system), 1u);
}

TEST(ChooseDiskSignature, TakesBits24To55OfTheFileTime) {
  FakeSystem system;
  EXPECT_EQ(ChooseDiskSignature(system, system), kTimeSignature);
  EXPECT_EQ(system.signatureQueries, 1);
}

TEST(ChooseDiskSignature, StepsPastEveryTakenSignature) {
  FakeSystem system;
  system.signatures = std::vector<std::uint32_t>{kTimeSignature + 1, 7, kTimeSignature, kTimeSignature + 2};
  EXPECT_EQ(ChooseDiskSignature(system, system), kTimeSignature + 3);
}

TEST(ChooseDiskSignature, WrapsFromAllOnesToOneNeverZero) {
  FakeSystem system;
  system.fileTime = 0x00FFFFFFFF000000ull;
  system.signatures = std::vector<std::uint32_t>{0xFFFFFFFF, 1};
  EXPECT_EQ(ChooseDiskSignature(system, system), 2u);
}

TEST(ChooseDiskSignature, ZeroCandidateBecomesOne) {
  FakeSystem system;
  system.fileTime = 0xFF00000000FFFFFFull;  // bits 24..55 all clear
  EXPECT_EQ(ChooseDiskSignature(system, system), 1u);
}

TEST(ChooseDiskSignature, FailedQueryLeavesTheCandidateUnchecked) {
  FakeSystem system;
  system.signatures = std::nullopt;
  EXPECT_EQ(ChooseDiskSignature(system, system), kTimeSignature);
}

TEST(FolderListBytes, SumsNamesWithTheirNulsAndOneClosingNul) {
  std::array<std::wstring, kMaxCustomFolders> folders{L"aaa", L"bb", L"c"};
  EXPECT_EQ(FolderListBytes(folders, 0), 0u);
  EXPECT_EQ(FolderListBytes(folders, -1), 2u);
  EXPECT_EQ(FolderListBytes(folders, 1), 8u + 2u);
  EXPECT_EQ(FolderListBytes(folders, 3), 8u + 6u + 4u + 2u);
  EXPECT_EQ(FolderListBytes(folders, 4), 8u + 6u + 4u + 2u + 2u);  // an empty fourth name
}

TEST(BuildCreationRecord, DefaultSettingsGiveThe188ByteRecordByteForByte) {
  FakeSystem system;
  const auto r = BuildCreationRecord(DiskSettings{}, nullptr, system, system);
  ASSERT_TRUE(r);

  Bytes expect(188, 0);
  put32(expect, 0, 64);
  put32(expect, 4, 188);
  put64(expect, 16, 128ull << 20);
  put8(expect, 24, 255);
  put8(expect, 25, 0x80);
  put32(expect, 28, kTimeSignature);
  put16(expect, 40, 64);
  put16(expect, 42, 56);
  put16(expect, 44, 128);
  put16(expect, 46, 60);
  // Substance section at 64.
  put32(expect, 64, 56);
  put32(expect, 68, 56);
  put64(expect, 64 + 16, 128ull << 20);
  // Format section at 128: FAT32, automatic serial, "RAMDISK".
  put32(expect, 128, 44);
  put32(expect, 132, 60);
  put8(expect, 128 + 9, 0x08);
  put8(expect, 128 + 10, 19);
  put32(expect, 128 + 12, kTimeSerial);
  put16(expect, 128 + 40, 16);
  putUtf16At(expect, 128 + 42, L"RAMDISK");
  std::uint32_t sum = 0;
  for (std::size_t i = 12; i < expect.size(); ++i) sum += expect[i];
  put32(expect, 8, sum);

  EXPECT_EQ(*r, expect);
  EXPECT_EQ(sim::checkRecord(*r), "");
}

TEST(BuildCreationRecord, BackingPathAndOneNodeMaskGiveA128ByteSubstanceSection) {
  DiskSettings s;
  s.sizeMb = 4096;
  s.physicalDriveSizeMb = 1024;
  s.physicalDriveFile = L"D:\\ramdisk\\hyb1.file";  // 20 characters
  ASSERT_EQ(s.physicalDriveFile.size(), 20u);
  s.numaNodeMasks = {0x25};
  const Bytes r = build(s);
  ASSERT_EQ(get16(r, H::SubstanceOffset), 64);
  ASSERT_EQ(get16(r, H::SubstanceLength), 128);

  Bytes expect(128, 0);
  put32(expect, 0, 56);
  put32(expect, 4, 128);
  put16(expect, 12, 120);
  put16(expect, 14, 1);
  put64(expect, 16, 4096ull << 20);
  put64(expect, 32, 1024ull << 20);
  put16(expect, 48, 66);
  putUtf16At(expect, 50, L"\\DosDevices\\D:\\ramdisk\\hyb1.file");
  put64(expect, 120, 0x25);
  EXPECT_EQ(Bytes(r.begin() + 64, r.begin() + 192), expect);
  EXPECT_EQ(get16(r, H::FormatOffset), 192);
  EXPECT_EQ(sim::checkRecord(r), "");
}

TEST(BuildCreationRecord, MaskOffsetIsRoundedUpToEight) {
  DiskSettings s;
  s.physicalDriveSizeMb = 16;
  s.physicalDriveFile = L"C:\\a";  // 16 characters with the prefix: 56 + 32 = 88, already aligned
  s.numaNodeMasks = {1, 2};
  Bytes r = build(s);
  EXPECT_EQ(get16(r, 64 + S::MaskOffset), 88);
  EXPECT_EQ(get16(r, H::SubstanceLength), 88 + 16);
  s.physicalDriveFile = L"C:\\ab";  // 56 + 34 = 90 -> 96
  r = build(s);
  EXPECT_EQ(get16(r, 64 + S::MaskOffset), 96);
  EXPECT_EQ(get16(r, H::SubstanceLength), 96 + 16);
  EXPECT_EQ(get64(r, 64 + 96), 1u);
  EXPECT_EQ(get64(r, 64 + 104), 2u);
}

TEST(BuildCreationRecord, HybridShareWithoutItsPathFieldsWhenShareIsZero) {
  DiskSettings s;
  s.physicalDriveFile = L"C:\\ignored.hbd";
  const Bytes r = build(s);
  EXPECT_EQ(get16(r, H::SubstanceLength), 56);
  EXPECT_EQ(get16(r, 64 + S::PathBytes), 0);
  EXPECT_EQ(get64(r, 64 + S::DriveShare), 0u);
}

TEST(BuildCreationRecord, FormatSectionCarriesLabelFoldersAndValues) {
  DiskSettings s;
  s.volumeLabel = L"DATA";
  s.fileSystem = filesystem::Ntfs;
  s.fsFlags = fsflag::Compress | fsflag::TempFolder;
  s.clusterSize = 8192;
  s.everyonePermissions = permission::Modify;
  s.volumeSerial = 0x12345678;
  s.customFolderCount = 2;
  s.customFolders = {L"one", L"two"};
  s.fsExtraMask = fsextra::Permissions | fsextra::Serial | fsextra::Folders;
  const Bytes r = build(s);
  const std::size_t f = get16(r, H::FormatOffset);
  EXPECT_EQ(f, 128u);
  EXPECT_EQ(get16(r, H::FormatLength), 44 + 10 + 18);
  EXPECT_EQ(get8(r, f + F::FsFlags), 3);
  EXPECT_EQ(get8(r, f + F::ExtraMask), 7);  // a serial the user gave: no automatic bit
  EXPECT_EQ(get8(r, f + F::FileSystem), 2);
  EXPECT_EQ(get8(r, f + F::ClusterSectors), 16);
  EXPECT_EQ(get32(r, f + F::Serial), 0x12345678u);
  EXPECT_EQ(get8(r, f + F::Permissions), 0x26);
  EXPECT_EQ(get8(r, f + F::FolderCount), 2);
  EXPECT_EQ(get16(r, f + F::FolderBytes), 18);
  EXPECT_EQ(get16(r, f + F::FolderOffset), 54);
  EXPECT_EQ(get16(r, f + F::LabelBytes), 10);
  EXPECT_EQ(readUtf16z(r.data(), r.size(), f + F::Label), L"DATA");
  Bytes list(r.begin() + static_cast<std::ptrdiff_t>(f + 54), r.begin() + static_cast<std::ptrdiff_t>(f + 72));
  EXPECT_EQ(list, (Bytes{'o', 0, 'n', 0, 'e', 0, 0, 0, 't', 0, 'w', 0, 'o', 0, 0, 0, 0, 0}));
  EXPECT_EQ(sim::checkRecord(r), "");
}

TEST(BuildCreationRecord, EmptyLabelHasNoLabelBytes) {
  DiskSettings s;
  s.volumeLabel.clear();
  const Bytes r = build(s);
  EXPECT_EQ(get16(r, H::FormatLength), 44);
  EXPECT_EQ(get16(r, 128 + F::LabelBytes), 0);
  EXPECT_EQ(r.size(), 172u);
}

TEST(BuildCreationRecord, ClusterSectorsKeepOnlyTheLowByte) {
  DiskSettings s;
  s.clusterSize = 65536 * 2;  // 256 sectors
  EXPECT_EQ(get8(build(s), 128 + F::ClusterSectors), 0);
}

TEST(BuildCreationRecord, ImageSectionFollowsTheFormatSectionOn16Bytes) {
  DiskSettings s;
  s.imageFile = L"C:\\disk.img";  // 23 characters with the prefix
  s.imageFlags = 0x11011;
  s.imageFormat = imageformat::Plain;
  s.compressionLevel = 1;
  s.timingSaveMinutes = 300;
  const Bytes r = build(s);
  EXPECT_EQ(get16(r, H::ImageOffset), 192);  // format section ends at 188
  EXPECT_EQ(get16(r, H::ImageLength), 2 * 23 + 40);
  EXPECT_EQ(r.size(), 192u + 86u);
  EXPECT_EQ(get32(r, 192 + I::Size), 40u);
  EXPECT_EQ(get32(r, 192 + I::Length), 86u);
  EXPECT_EQ(get32(r, 192 + I::Flags), 0x11011u);
  EXPECT_EQ(get8(r, 192 + I::Format), 0);
  EXPECT_EQ(get8(r, 192 + I::Level), 1);
  EXPECT_EQ(get16(r, 192 + I::TimingMinutes), 300);
  EXPECT_EQ(get16(r, 192 + I::PathBytes), 48);
  EXPECT_EQ(readUtf16z(r.data(), r.size(), 192 + I::Path), L"\\DosDevices\\C:\\disk.img");
  EXPECT_EQ(sim::checkRecord(r), "");
}

TEST(BuildCreationRecord, NewDiskGetsIndex255AndAFreeSignature) {
  FakeSystem system;
  system.signatures = std::vector<std::uint32_t>{kTimeSignature};
  const auto r = BuildCreationRecord(DiskSettings{}, nullptr, system, system);
  ASSERT_TRUE(r);
  EXPECT_EQ(get8(*r, H::DiskIndex), 255);
  EXPECT_EQ(get8(*r, H::Marker), 0x80);
  EXPECT_EQ(get32(*r, H::Signature), kTimeSignature + 1);
}

TEST(BuildCreationRecord, EditedDiskKeepsIndexAndSignature) {
  Bytes previous = sim::buildRecord({{"index", 6}, {"signature", "0xA1B2C3D4"}});
  FakeSystem system;
  const auto r = BuildCreationRecord(DiskSettings{}, &previous, system, system);
  ASSERT_TRUE(r);
  EXPECT_EQ(get8(*r, H::DiskIndex), 6);
  EXPECT_EQ(get32(*r, H::Signature), 0xA1B2C3D4u);
  EXPECT_EQ(system.signatureQueries, 0);
}

TEST(BuildCreationRecord, AutomaticSerialSurvivesEdit) {
  const Bytes previous = sim::buildRecord({{"volumeSerial", "0x0BADF00D"}, {"fsExtraMask", 0x08}});
  FakeSystem system;
  const auto r = BuildCreationRecord(DiskSettings{}, &previous, system, system);
  ASSERT_TRUE(r);
  EXPECT_EQ(get8(*r, 128 + F::ExtraMask), 0x08);
  EXPECT_EQ(get32(*r, 128 + F::Serial), 0x0BADF00Du);
  EXPECT_EQ(system.timeReads, 0);
}

TEST(BuildCreationRecord, PreviousSerialWithoutTheAutomaticBitIsNotReused) {
  const Bytes previous = sim::buildRecord({{"volumeSerial", "0x0BADF00D"}, {"fsExtraMask", 0x02}});
  const Bytes r = build(DiskSettings{}, &previous);
  EXPECT_EQ(get8(r, 128 + F::ExtraMask), 0x08);
  EXPECT_EQ(get32(r, 128 + F::Serial), kTimeSerial);
}

TEST(BuildCreationRecord, PreviousRecordWithoutFormatSectionGetsANewSerial) {
  Bytes previous = sim::buildRecord({{"volumeSerial", "0x0BADF00D"}, {"fsExtraMask", 0x08}});
  put16(previous, H::FormatLength, 0);
  EXPECT_EQ(get32(build(DiskSettings{}, &previous), 128 + F::Serial), kTimeSerial);
}

TEST(BuildCreationRecord, UserSerialIsKeptThroughItsSettingsValue) {
  const Bytes previous = sim::buildRecord({{"volumeSerial", "0x0BADF00D"}, {"fsExtraMask", 0x08}});
  DiskSettings s;
  s.volumeSerial = 0xFEEDBEEF;
  s.fsExtraMask = fsextra::Serial;
  const Bytes r = build(s, &previous);
  EXPECT_EQ(get8(r, 128 + F::ExtraMask), 0x02);
  EXPECT_EQ(get32(r, 128 + F::Serial), 0xFEEDBEEFu);
}

DiskSettings savedImage(std::uint32_t format) {
  DiskSettings s;
  s.substanceFlags = substance::Dmm | substance::DmmCompact | substance::Hybrid;
  s.imageFile = L"C:\\i.img";
  s.imageFlags = 0x11;
  s.imageFormat = format;
  s.compressionLevel = 5;
  return s;
}

TEST(BuildCreationRecord, PlainAndComprImagesClearCompactModeAndTheHybridBit) {
  for (std::uint32_t format : {imageformat::Plain, imageformat::Compr, 7u}) {
    const Bytes r = build(savedImage(format));
    EXPECT_EQ(get32(r, 64 + S::Flags), substance::Dmm) << format;
  }
}

TEST(BuildCreationRecord, SmartImageKeepsCompactModeAndSetsTheHybridBit) {
  DiskSettings s = savedImage(imageformat::Smart);
  s.substanceFlags = substance::Dmm | substance::DmmCompact;
  const Bytes r = build(s);
  EXPECT_EQ(get32(r, 64 + S::Flags), substance::Dmm | substance::DmmCompact | substance::Hybrid);
}

TEST(BuildCreationRecord, LoadOnlyImageLeavesSubstanceFlagsAndFormatBytesAlone) {
  DiskSettings s = savedImage(imageformat::Compr);
  s.loadOnly = 1;
  s.imageFlags = 0x1;
  s.timingSaveMinutes = 9;
  const Bytes r = build(s);
  EXPECT_EQ(get32(r, 64 + S::Flags), s.substanceFlags);
  const std::size_t img = get16(r, H::ImageOffset);
  EXPECT_EQ(get32(r, img + 12), 0u);
  EXPECT_EQ(get32(r, img + I::Flags), 1u);
}

TEST(BuildCreationRecord, HeaderCarriesFlagsSizeAndDriveLetterLowByte) {
  DiskSettings s;
  s.sizeMb = 1048576;
  s.diskFlags = 0x41000000 | 0x2;  // bits the options never set travel too
  s.driveLetter = 0x0152;          // only the low byte goes on the wire
  const Bytes r = build(s);
  EXPECT_EQ(get32(r, H::DiskFlags), 0x41000002u);
  EXPECT_EQ(get64(r, H::DiskSize), 1ull << 40);
  EXPECT_EQ(get64(r, 64 + S::DiskSize), 1ull << 40);
  EXPECT_EQ(get8(r, H::DriveLetter), 0x52);
}

TEST(BuildCreationRecord, QuotaIsStoredInBytes) {
  DiskSettings s;
  s.substanceFlags = substance::InvisibleMemory;
  s.imQuotaMb = 5000;
  EXPECT_EQ(get64(build(s), 64 + S::ImQuota), 5000ull << 20);
}

TEST(BuildCreationRecord, ChecksumCoversEveryByteFromTwelveAndNothingBefore) {
  DiskSettings s;
  s.imageFile = L"C:\\i.img";
  s.imageFlags = 0x11;
  const Bytes r = build(s);
  std::uint32_t sum = 0;
  for (std::size_t i = 12; i < r.size(); ++i) sum += r[i];
  EXPECT_EQ(get32(r, H::Checksum), sum);
  for (std::size_t i = 0; i < r.size(); ++i) {
    Bytes changed = r;
    changed[i] ^= 0x40;
    const bool covered = DiskSettingsRecord::checksum(changed) != get32(r, H::Checksum);
    EXPECT_EQ(covered, i >= 12) << "byte " << i;
  }
}

TEST(BuildCreationRecord, NegativeFolderCountGivesAnEmptyList) {
  DiskSettings s;
  s.customFolderCount = 0xFFFFFFFF;
  const Bytes r = build(s);
  EXPECT_EQ(get16(r, 128 + F::FolderBytes), 2);
  EXPECT_EQ(get16(r, 128 + F::FolderOffset), 60);
  EXPECT_EQ(get8(r, 128 + F::FolderCount), 0xFF);
  EXPECT_EQ(get16(r, H::FormatLength), 62);
}

TEST(BuildCreationRecord, RecordBeyondSixteenBitsIsNotBuilt) {
  DiskSettings s;
  s.numaNodeMasks.assign(8200, 1);  // 56 + 65600 bytes of substance
  FakeSystem system;
  EXPECT_FALSE(BuildCreationRecord(s, nullptr, system, system));
  s.numaNodeMasks.assign(100, 1);
  s.imageFile.assign(33000, L'x');
  EXPECT_FALSE(BuildCreationRecord(s, nullptr, system, system));
  s.imageFile.assign(247, L'x');
  EXPECT_TRUE(BuildCreationRecord(s, nullptr, system, system));
}

TEST(BuildCreationRecord, ReadsBackAsTheSameSettings) {
  DiskSettings s;
  s.sizeMb = 8192;
  s.diskFlags = diskflag::DirectIo;
  s.driveLetter = L'Q';
  s.substanceFlags = substance::InvisibleMemory | substance::Dmm | substance::Hybrid;
  s.imQuotaMb = 2048;
  s.physicalDriveSizeMb = 3072;
  s.physicalDriveFile = L"C:\\hybrid.hbd";
  s.numaNodeMasks = {0x3, 0x30};
  s.volumeLabel = L"WORK";
  s.clusterSize = 4096;
  s.fileSystem = filesystem::Ntfs;
  s.fsFlags = fsflag::NoIndexing;
  s.everyonePermissions = permission::Full;
  s.volumeSerial = 0x11223344;
  s.customFolderCount = 3;
  s.customFolders = {L"a", L"bb", L"ccc"};
  s.fsExtraMask = fsextra::Permissions | fsextra::Serial | fsextra::Folders;
  s.imageFile = L"D:\\x.img";
  s.imageFlags = imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::TimingSave | imageflag::QuickSave;
  s.imageFormat = imageformat::Smart;
  s.compressionLevel = 1;
  s.timingSaveMinutes = 60;
  const Bytes r = build(s);
  EXPECT_EQ(sim::checkRecord(r), "");

  DiskSettings back;
  back.numaNodeMasks.clear();
  DiskSettingsFromRecord(r, back);
  EXPECT_EQ(back, s);
}

TEST(BuildCreationRecord, SimulatedDriverReadsTheSameValues) {
  DiskSettings s;
  s.sizeMb = 300;
  s.volumeLabel = L"Ünïcode €";
  s.customFolderCount = 1;
  s.customFolders[0] = L"Mappe";
  s.fsExtraMask = fsextra::Folders;
  s.imageFile = L"C:\\images\\ä.img";
  s.imageFlags = 0x10011;
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 9;
  const Bytes r = build(s);
  ASSERT_EQ(sim::checkRecord(r), "");
  const sim::json d = sim::decodeRecord(r);
  EXPECT_EQ(d["sizeMb"], 300);
  EXPECT_EQ(d["index"], 255);
  EXPECT_EQ(d["volumeLabel"], "Ünïcode €");
  EXPECT_EQ(d["customFolders"], sim::json::array({"Mappe"}));
  EXPECT_EQ(d["imageFile"], "C:\\images\\ä.img");
  EXPECT_EQ(d["imageFormat"], 2);
  EXPECT_EQ(d["compressionLevel"], 9);
  EXPECT_EQ(d["fsExtraMask"], 0x0C);
}

TEST(CreationRecordFields, ReadTotalLengthLetterFlagAndLetter) {
  DiskSettings s;
  s.driveLetter = L'R';
  s.diskFlags = diskflag::DirectIo;
  const Bytes r = build(s);
  EXPECT_EQ(creationTotalLength(r), r.size());
  EXPECT_TRUE(controllerAssignsLetter(r));
  EXPECT_EQ(requestedLetter(r), L'R');
}

TEST(CreationRecordFields, ScsiDiskLeavesTheLetterToTheSystem) {
  DiskSettings s;
  s.driveLetter = L'S';
  const Bytes r = build(s);
  EXPECT_FALSE(controllerAssignsLetter(r));
  EXPECT_EQ(requestedLetter(r), L'S');
}

TEST(CreationRecordFields, TheLetterIsAWideCharacterOfTwoBytes) {
  Bytes r(64, 0);
  r[26] = 0x52;
  r[27] = 0x04;  // a byte the builder never writes, read as the high half
  EXPECT_EQ(requestedLetter(r), 0x0452);
  r[15] = 0xFE;  // every bit of the flags byte but the letter flag
  EXPECT_FALSE(controllerAssignsLetter(r));
}

TEST(CreationRecordFields, AFieldBeyondAShortRecordReadsAsZero) {
  const Bytes r(10, 0xFF);
  EXPECT_EQ(creationTotalLength(r), 0xFFFFFFFFu);  // bytes 4..7 are there
  EXPECT_FALSE(controllerAssignsLetter(r));
  EXPECT_EQ(requestedLetter(r), 0);
  EXPECT_EQ(creationTotalLength(Bytes(3, 0xFF)), 0u);
}

}  // namespace creation_record_test
}  // namespace vmd
