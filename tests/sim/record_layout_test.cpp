#include "sim/record_layout.h"

#include <gtest/gtest.h>

#include "sim/sim_services.h"

namespace vmd::sim {
namespace record_layout_test {

std::uint16_t u16(const RecordBytes& r, std::size_t at) {
  return static_cast<std::uint16_t>(r[at] | (r[at + 1] << 8));
}
std::uint32_t u32(const RecordBytes& r, std::size_t at) {
  return static_cast<std::uint32_t>(u16(r, at)) | (static_cast<std::uint32_t>(u16(r, at + 2)) << 16);
}
void set16(RecordBytes& r, std::size_t at, std::uint16_t v) {
  r[at] = static_cast<std::uint8_t>(v);
  r[at + 1] = static_cast<std::uint8_t>(v >> 8);
}
void reseal(RecordBytes& r) {
  const std::uint32_t sum = recordChecksum(r);
  for (int i = 0; i < 4; ++i) r[8 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(sum >> (8 * i));
}

const json kFull = {{"sizeMb", 2048},
                    {"diskFlags", "0x01000000"},
                    {"driveLetter", "S"},
                    {"substanceFlags", "0x00000500"},
                    {"imQuotaMb", 256},
                    {"physicalDriveSizeMb", 1024},
                    {"physicalDriveFile", "C:\\h.hbd"},
                    {"numaNodeMasks", {"0x0000000000000001", "0x0000000000000006"}},
                    {"volumeLabel", "VOL"},
                    {"clusterSize", 4096},
                    {"fileSystem", 2},
                    {"fsFlags", 2},
                    {"fsExtraMask", 5},
                    {"everyonePermissions", 39},
                    {"volumeSerial", "0x00000000"},
                    {"customFolders", {"x", "yy"}},
                    {"imageFile", "D:\\i.img"},
                    {"imageFlags", "0x00011011"},
                    {"imageFormat", 0},
                    {"compressionLevel", 1},
                    {"timingSaveMinutes", 5},
                    {"signature", "0x11223344"},
                    {"index", 4},
                    {"marker", 128}};

TEST(SimRecordLayout, DefaultSettingsMakeThe188ByteRecord) {
  const RecordBytes r = buildRecord(json::object());
  EXPECT_EQ(r.size(), 188u);
  EXPECT_EQ(u16(r, 40), 64);
  EXPECT_EQ(u16(r, 42), 56);
  EXPECT_EQ(u16(r, 44), 128);
  EXPECT_EQ(u16(r, 46), 60);
  EXPECT_EQ(u16(r, 50), 0);
  EXPECT_EQ(u32(r, 8), recordChecksum(r));
  EXPECT_EQ(checkRecord(r), "");
}

TEST(SimRecordLayout, DecodeGivesBackWhatWasBuilt) {
  const RecordBytes r = buildRecord(kFull);
  EXPECT_EQ(checkRecord(r), "");
  json d = decodeRecord(r);
  EXPECT_EQ(d["driveLetter"], "S");
  EXPECT_EQ(d["physicalDriveFile"], "C:\\h.hbd");
  EXPECT_EQ(d["customFolders"], json::array({"x", "yy"}));
  EXPECT_EQ(d["imageFile"], "D:\\i.img");
  EXPECT_EQ(d["numaNodeMasks"], kFull["numaNodeMasks"]);
  EXPECT_EQ(buildRecord(d), r);
}

TEST(SimRecordLayout, ImageWithoutFlagsIsASavedPlainImage) {
  const json d = decodeRecord(buildRecord({{"imageFile", "C:\\a.img"}}));
  EXPECT_EQ(d["imageFlags"], "0x00010011");
  EXPECT_EQ(d["compressionLevel"], 1);
}

TEST(SimRecordLayout, DiskKeysStandInForMissingSettings) {
  const json disk = {{"index", 9}, {"signature", "0xCAFEBABE"}, {"size", 67108864}, {"settings", {{"sizeMb", 32}}}};
  const json d = decodeRecord(diskRecord(disk));
  EXPECT_EQ(d["index"], 9);
  EXPECT_EQ(d["signature"], "0xcafebabe");
  EXPECT_EQ(d["sizeMb"], 32);  // the settings win
}

TEST(SimRecordLayout, InventoryKeysOfTheDiskDescribeItsRecord) {
  const json disk = {{"index", 2}, {"size", 67108864}, {"directIo", true}, {"letter", "R"}};
  const json d = decodeRecord(diskRecord(disk));
  EXPECT_EQ(d["index"], 2);
  EXPECT_EQ(d["sizeMb"], 64);
  EXPECT_EQ(d["diskFlags"], "0x01000000");
  EXPECT_EQ(d["driveLetter"], "R");
  EXPECT_EQ(d["volumeLabel"], "RAMDISK");
}

TEST(SimRecordLayout, RawRecordIsTakenAsItStands) {
  const json disk = {{"index", 0}, {"settingsRecord", "01 02 03"}};
  EXPECT_EQ(diskRecord(disk), (RecordBytes{1, 2, 3}));
}

TEST(SimRecordLayout, OversizedSettingsAreRefused) {
  EXPECT_THROW(buildRecord({{"imageFile", std::string(33000, 'x')}}), std::runtime_error);
}

TEST(SimRecordCheck, FindsEachKindOfFault) {
  const RecordBytes good = buildRecord(kFull);
  ASSERT_EQ(checkRecord(good), "");
  auto broken = [&](auto change) {
    RecordBytes r = good;
    change(r);
    reseal(r);
    return checkRecord(r);
  };
  EXPECT_EQ(checkRecord(RecordBytes(10, 0)), "record shorter than its header");
  EXPECT_EQ(broken([](RecordBytes& r) { r[0] = 60; }), "header size is not 64");
  EXPECT_EQ(broken([](RecordBytes& r) { r.push_back(0); }), "total length differs from the bytes given");
  {
    RecordBytes r = good;
    r[100] ^= 1;
    EXPECT_EQ(checkRecord(r), "checksum mismatch");
  }
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 42, 0); }), "substance section missing");
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 40, 32); }), "substance section overlaps the header");
  EXPECT_EQ(broken([&](RecordBytes& r) { set16(r, 46, static_cast<std::uint16_t>(r.size())); }),
            "format section runs past the record");
  EXPECT_EQ(broken([](RecordBytes& r) { r[64] = 57; }), "substance section fixed-part size is wrong");
  EXPECT_EQ(broken([](RecordBytes& r) { r[68] ^= 8; }), "substance section length differs from the header's");
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 64 + 48, 3); }), "backing-file path length is not a whole string");
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 64 + 12, u16(r, 64 + 12) + 4); }), "node masks are not 8-aligned");
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 64 + 14, 50); }), "node masks run past their section");
  EXPECT_EQ(broken([](RecordBytes& r) { set16(r, 64 + 12, 56); }), "node masks overlap the backing-file path");
  const std::size_t fmt = u16(good, 44);
  EXPECT_EQ(broken([&](RecordBytes& r) { r[fmt + 48] = 'x'; }),
            "volume label is not NUL-terminated");
  EXPECT_EQ(broken([&](RecordBytes& r) { r[fmt + 19] = 3; }), "custom-folder count differs from the list");
  EXPECT_EQ(broken([&](RecordBytes& r) { set16(r, fmt + 22, 40); }),
            "custom-folder list overlaps the fixed part or the label");
  const std::size_t img = u16(good, 48);
  EXPECT_EQ(broken([&](RecordBytes& r) { set16(r, img + 36, 0); }), "image path length is not a whole string");
  EXPECT_EQ(broken([&](RecordBytes& r) { set16(r, 50, static_cast<std::uint16_t>(u16(r, 50) + 16)); }),
            "image section runs past the record");
}

TEST(SimRecordCheck, SectionsMayNotOverlap) {
  RecordBytes r = buildRecord({{"imageFile", "C:\\a.img"}});
  // Stretch the format section over the image section that follows it.
  const std::size_t fmt = u16(r, 44);
  const auto stretched = static_cast<std::uint16_t>(r.size() - fmt);
  set16(r, 46, stretched);
  set16(r, fmt + 4, stretched);
  reseal(r);
  EXPECT_EQ(checkRecord(r), "image section overlaps the format section");
}

}  // namespace record_layout_test
}  // namespace vmd::sim
