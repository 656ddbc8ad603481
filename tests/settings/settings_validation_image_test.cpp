// Validation of image files, and the checks of a backing file's path and of
// an image file.
#include "settings/settings_validation.h"

#include <gtest/gtest.h>

#include <string>

#include "settings/settings_validation_support.h"

namespace vmd::test {
namespace settings_validation_image_test {

// ---- Image file ----

TEST(ValidateDiskSettings, NewPlainImageGetsSaveAtShutdownAndQuickSave) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFlags = imageflag::RealTimeSave;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave |
                                imageflag::RealTimeSave);
  EXPECT_EQ(v.s.compressionLevel, 1u);
  EXPECT_EQ(v.s.timingSaveMinutes, 60u);  // no timing save: the interval still reads 60
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, TimingSaveIntervalOutOfRangeBecomes60) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 7000;
  s.imageFlags = imageflag::TimingSave;
  Validated v = validate(s);
  EXPECT_EQ(v.s.timingSaveMinutes, 60u);
  EXPECT_TRUE(v.s.imageFlags & imageflag::TimingSave);
  s.timingSaveMinutes = 6000;
  EXPECT_EQ(validate(s).s.timingSaveMinutes, 6000u);
  s.timingSaveMinutes = static_cast<std::uint32_t>(-4);
  EXPECT_EQ(validate(s).s.timingSaveMinutes, 60u);
}

TEST(ValidateDiskSettings, ZeroIntervalClearsTimingSave) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 0;
  s.imageFlags = imageflag::TimingSave;
  const Validated v = validate(s);
  EXPECT_FALSE(v.s.imageFlags & imageflag::TimingSave);
}

TEST(ValidateDiskSettings, TimingAndRealTimeSaveAreForPlainImagesOnly) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.timingSaveMinutes = 30;
  s.imageFlags = imageflag::TimingSave | imageflag::RealTimeSave;
  s.imageFormat = imageformat::Smart;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave);
  EXPECT_EQ(v.s.timingSaveMinutes, 0u);
}

TEST(ValidateDiskSettings, CompressionLevelIsBroughtInto1To9) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFormat = imageformat::Compr;
  s.imageFlags = imageflag::QuickSave;
  s.compressionLevel = 12;
  Validated v = validate(s);
  EXPECT_EQ(v.s.compressionLevel, 9u);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown);
  s.compressionLevel = 0;
  EXPECT_EQ(validate(s).s.compressionLevel, 1u);
  s.compressionLevel = static_cast<std::uint32_t>(-7);
  EXPECT_EQ(validate(s).s.compressionLevel, 1u);
  s.compressionLevel = 5;
  EXPECT_EQ(validate(s).s.compressionLevel, 5u);
}

TEST(ValidateDiskSettings, LoadOnlyImageThatDoesNotExistPasses) {
  DiskSettings s = withImage(L"C:\\missing.img");
  s.loadOnly = 1;
  s.timingSaveMinutes = 30;
  s.imageFlags = imageflag::TimingSave | imageflag::QuickSave | imageflag::DelayLoad | 0x80000 |
                 imageflag::FurtherSave;
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 0;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::DelayLoad);
  EXPECT_EQ(v.s.timingSaveMinutes, 0u);
  EXPECT_EQ(v.s.imageFormat, imageformat::Compr);  // untouched: a Load Only image is never saved
  EXPECT_EQ(v.s.compressionLevel, 0u);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfUnknownFormatIsRefused) {
  DiskSettings s = withImage(L"C:\\junk.img");
  s.loadOnly = 1;
  const Validated v = validate(s, withFiles(machine(), json::array({{{"path", "C:\\junk.img"}, {"size", 4096}}})));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.err, L"Error: image file 'C:\\junk.img' is either in unknown format or damaged!\n");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfAnotherSizeIsRefused) {
  DiskSettings s = withImage(L"C:\\smart.img");
  s.loadOnly = 1;
  const json files = json::array(
      {{{"path", "C:\\smart.img"}, {"image", {{"format", "smart"}, {"diskSize", 64 << 20}}}, {"size", 1 << 20}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: image file 'C:\\smart.img' does not match the virtual disk size!\n");
}

TEST(ValidateDiskSettings, LoadOnlyImageOfTheRightSizeIsAccepted) {
  DiskSettings s = withImage(L"C:\\plain.img", 64);
  s.loadOnly = 1;
  const json files = json::array({{{"path", "C:\\plain.img"}, {"image", {{"format", "plain"}, {"diskSize", 64 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted);
}

TEST(ValidateDiskSettings, ExistingSmartImageSupersedesCompr) {
  DiskSettings s = withImage(L"C:\\smart.img");
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 4;
  const json files =
      json::array({{{"path", "C:\\smart.img"}, {"image", {{"format", "smart"}, {"diskSize", 128 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFormat, imageformat::Smart);
  EXPECT_EQ(v.s.compressionLevel, 1u);
  EXPECT_EQ(v.s.imageFlags, imageflag::Accepted | imageflag::SaveAtShutdown | imageflag::QuickSave);
  EXPECT_EQ(v.err, L"Warning: image format option 'compr' is supersede by the existing image file format!\n");
}

TEST(ValidateDiskSettings, ExistingPlainOrComprImageSupersedesSmart) {
  for (const char* format : {"plain", "compr"}) {
    DiskSettings s = withImage(L"C:\\disk.img");
    s.imageFormat = imageformat::Smart;
    const json files = json::array(
        {{{"path", "C:\\disk.img"}, {"image", {{"format", format}, {"diskSize", 128 << 20}, {"level", 3}}}}});
    const Validated v = validate(s, withFiles(machine(), files));
    EXPECT_TRUE(v.result) << format;
    EXPECT_EQ(v.s.imageFormat, std::string(format) == "plain" ? imageformat::Plain : imageformat::Compr);
    EXPECT_EQ(v.err, L"Warning: image format option 'smart' is superseded by the existing image file format!\n");
  }
}

TEST(ValidateDiskSettings, PlainAndComprMaySwitch) {
  DiskSettings s = withImage(L"C:\\disk.img");
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 6;
  const json files =
      json::array({{{"path", "C:\\disk.img"}, {"image", {{"format", "plain"}, {"diskSize", 128 << 20}}}}});
  const Validated v = validate(s, withFiles(machine(), files));
  EXPECT_EQ(v.s.imageFormat, imageformat::Compr);
  EXPECT_EQ(v.s.compressionLevel, 6u);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, ExistingImageOfUnknownFormatWillBeOverwritten) {
  DiskSettings s = withImage(L"C:\\junk.img");
  s.imageFormat = imageformat::Smart;
  const Validated v = validate(s, withFiles(machine(), json::array({{{"path", "C:\\junk.img"}, {"size", 100}}})));
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFormat, imageformat::Smart);
  EXPECT_EQ(v.err, L"");
}

TEST(ValidateDiskSettings, ReadOnlyImageIsRefused) {
  const json files = json::array({{{"path", "C:\\ro.img"}, {"attributes", "0x21"}}});
  const Validated v = validate(withImage(L"C:\\ro.img"), withFiles(machine(), files));
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.err, L"Error: image file 'C:\\ro.img' is read-only!\n");
}

TEST(ValidateDiskSettings, ImageWithBadPathOrDriveIsInvalid) {
  for (const wchar_t* path : {L"C:\\a\\\\b.img", L"N:\\share.img", L"Q:\\nodrive.img", L"disk.img"}) {
    const Validated v = validate(withImage(path));
    EXPECT_FALSE(v.result) << path;
    EXPECT_EQ(v.err, std::wstring(L"Error: file '") + path + L"' is invalid!\n");
  }
}

TEST(ValidateDiskSettings, ImageAbove4GbOnFatIsRefused) {
  const Validated v = validate(withImage(L"D:\\img.bin", 4097), machine(), false);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, kExternal +
                       L"Error: file 'D:\\img.bin' is invalid - \nfile size cannot exceed 4GB on a FAT/FAT32 "
                       L"partition!\n");
}

TEST(ValidateDiskSettings, ImageOfExactly4GbOnFatPasses) {
  DiskSettings s = withImage(L"D:\\img.bin", 4096);
  s.fileSystem = filesystem::Fat32;
  const Validated v = validate(s, machine(), false);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.err, kExternal);  // on a FAT32 drive while Windows is on NTFS
}

TEST(ValidateDiskSettings, ImageWithoutRoomIsRefused) {
  const Validated v = validate(withImage(L"E:\\disk.img", 2048), machine(), false);
  EXPECT_FALSE(v.result);
  EXPECT_EQ(v.err, L"Error: not enough disk space for image file 'E:\\disk.img'!\n");
}

TEST(ValidateDiskSettings, ImageOnAHybridDiskIsDropped) {
  DiskSettings s = withImage(L"C:\\disk.img", 1024);
  s.physicalDriveFile = L"C:\\h.hbd";
  s.physicalDriveSizeMb = 512;
  s.imageFlags = imageflag::SaveAtShutdown;
  const Validated v = validate(s);
  EXPECT_TRUE(v.result);
  EXPECT_EQ(v.s.imageFile, L"");
  EXPECT_EQ(v.s.imageFlags, 0u);
  EXPECT_EQ(v.err, L"Warning: hybrid-disk or file-disk does not support image file!\n");
}

TEST(ValidateDiskSettings, NoImageClearsTheImageFlags) {
  DiskSettings s = plainDisk();
  s.imageFlags = imageflag::DelayLoad | imageflag::TimingSave;
  const Validated v = validate(s);
  EXPECT_EQ(v.s.imageFlags, 0u);
  EXPECT_EQ(v.err, L"");
}

// ---- CheckBackingFilePath ----

bool backing(const std::wstring& path, std::uint32_t sizeMb, json state, std::wstring& err) {
  SimApp sim(std::move(state));
  const bool r = CheckBackingFilePath(sim.app, path, sizeMb);
  err = sim.err();
  return r;
}

TEST(CheckBackingFilePath, NewFileInAPlainFolderPasses) {
  std::wstring err;
  EXPECT_TRUE(backing(L"C:\\hybrid.hbd", 3072, machine(), err));
  EXPECT_EQ(err, L"");
}

TEST(CheckBackingFilePath, BadPathIsInvalid) {
  std::wstring err;
  EXPECT_FALSE(backing(L"C:\\dir\\", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'C:\\dir\\' is invalid!\n");
}

TEST(CheckBackingFilePath, DriveMustBeFixedOrRemovable) {
  std::wstring err;
  EXPECT_FALSE(backing(L"N:\\x.bin", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'N:\\x.bin' is invalid - \nno volume is mounted, or the volume is not suitable!\n");
  EXPECT_TRUE(backing(L"E:\\x.bin", 64, machine(), err));
}

TEST(CheckBackingFilePath, FatVolumeHoldsAtMost4096Mb) {
  std::wstring err;
  EXPECT_FALSE(backing(L"D:\\x.bin", 4097, machine(), err));
  EXPECT_EQ(err, L"Error: file 'D:\\x.bin' is invalid - \nfile size cannot exceed 4GB on a FAT/FAT32 partition!\n");
  EXPECT_TRUE(backing(L"D:\\x.bin", 4096, machine(), err));
  EXPECT_EQ(err, L"Warning: file 'D:\\x.bin' is located on an external (USB etc.) disk or dynamic disk, or a "
                 L"partition of which file system is not same as boot file system!\n");
}

TEST(CheckBackingFilePath, CompressedOrEncryptedFolderOfANewFileIsRefused) {
  for (const char* attrs : {"0x810", "0x4010"}) {
    std::wstring err;
    const json files = json::array({{{"path", "C:\\packed"}, {"attributes", attrs}}});
    EXPECT_FALSE(backing(L"C:\\packed\\x.bin", 64, withFiles(machine(), files), err)) << attrs;
    EXPECT_EQ(err, L"Error: file 'C:\\packed\\x.bin' is invalid - \nfile or directory cannot be read-only, "
                   L"compressed, or encrypted\n");
  }
}

TEST(CheckBackingFilePath, MissingFolderIsRefusedToo) {
  std::wstring err;
  EXPECT_FALSE(backing(L"C:\\nowhere\\x.bin", 64, machine(), err));
  EXPECT_EQ(err, L"Error: file 'C:\\nowhere\\x.bin' is invalid - \nfile or directory cannot be read-only, "
                 L"compressed, or encrypted\n");
}

TEST(CheckBackingFilePath, ReadOnlyCompressedOrEncryptedFileIsRefused) {
  for (const char* attrs : {"0x21", "0x820", "0x4020"}) {
    std::wstring err;
    const json files = json::array({{{"path", "C:\\x.bin"}, {"attributes", attrs}}});
    EXPECT_FALSE(backing(L"C:\\x.bin", 64, withFiles(machine(), files), err)) << attrs;
    EXPECT_EQ(err, L"Error: file 'C:\\x.bin' is invalid - \nfile or directory cannot be read-only, compressed, "
                   L"or encrypted!\n");
  }
  std::wstring err;
  const json plain = json::array({{{"path", "C:\\x.bin"}, {"attributes", "0x20"}}});
  EXPECT_TRUE(backing(L"C:\\x.bin", 64, withFiles(machine(), plain), err));
}

// ---- CheckImageFile ----

TEST(CheckImageFile, FormatStartsAsZeroAndReportsTheExistingFile) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "C:\\c.img"},
                                                {"image", {{"format", "compr"}, {"diskSize", 64 << 20}, {"level", 7}}}},
                                               {{"path", "C:\\junk.img"}, {"size", 600}}})));
  int format = 55;
  std::uint32_t second = 0;
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\new.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, 0);
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\c.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, 2);
  EXPECT_EQ(second, 7u);
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\junk.img", 64 << 20, 0, false, &format, &second));
  EXPECT_EQ(format, -1);
  EXPECT_EQ(sim.err(), L"");
}

TEST(CheckImageFile, SmartRequiredRefusesOtherFormats) {
  SimApp sim(withFiles(machine(), json::array({{{"path", "C:\\p.img"},
                                                {"image", {{"format", "plain"}, {"diskSize", 64 << 20}}}},
                                               {{"path", "C:\\s.img"},
                                                {"image", {{"format", "smart"}, {"diskSize", 64 << 20}}}}})));
  EXPECT_FALSE(CheckImageFile(sim.app, L"C:\\p.img", 64 << 20, 1, true));
  EXPECT_EQ(sim.err(), L"Error: image file 'C:\\p.img' is not a Smart Image which is required for hybrid-disk!\n");
  sim.streams.clear();
  EXPECT_TRUE(CheckImageFile(sim.app, L"C:\\s.img", 64 << 20, 0, true));
  EXPECT_EQ(sim.err(), L"");
}

TEST(CheckImageFile, LoadOnlyDoesNotCareForSpaceOrFatLimit) {
  SimApp sim(machine());
  EXPECT_TRUE(CheckImageFile(sim.app, L"E:\\new.img", 8ull << 30, 1, false));
  EXPECT_TRUE(CheckImageFile(sim.app, L"D:\\new.img", 8ull << 30, 1, false));
}

}  // namespace settings_validation_image_test
}  // namespace vmd::test
