#include "settings/image_file.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "base/bytes.h"
#include "controller/codes.h"
#include "settings/disk_settings.h"
#include "settings/settings_record.h"
#include "support/sim_app.h"
#include "base/text_codec.h"
#include "sim/record_layout.h"
#include "sim/sim_services.h"

namespace vmd {
namespace image_file_test {

using sim::json;
using test::SimApp;

// Files held in memory; records what was asked of it.
class MemoryFiles : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring& path) override {
    if (!files.count(path)) return SysResult<std::uint32_t>::failure(syserr::FileNotFound, InvalidFileAttributes);
    return SysResult<std::uint32_t>::success(0x20);
  }
  SysResult<std::uint64_t> fileSize(const std::wstring& path) override {
    ++sizeQueries;
    auto it = lengths.find(path);
    if (it == lengths.end()) return SysResult<std::uint64_t>::failure(syserr::FileNotFound);
    return SysResult<std::uint64_t>::success(it->second);
  }
  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override {
    counts.push_back(count);
    auto it = files.find(path);
    if (it == files.end()) return SysResult<Bytes>::failure(syserr::FileNotFound);
    Bytes b = it->second;
    if (b.size() > count) b.resize(count);
    return SysResult<Bytes>::success(std::move(b));
  }
  SysStatus writeWhole(const std::wstring&, const Bytes&) override { return SysStatus::failure(syserr::NotSupported); }
  SysResult<bool> pathIsDirectory(const std::wstring&) override { return SysResult<bool>::success(false); }

  void add(const std::wstring& path, Bytes head, std::uint64_t length) {
    files[path] = std::move(head);
    lengths[path] = length;
  }

  std::map<std::wstring, Bytes> files;
  std::map<std::wstring, std::uint64_t> lengths;
  std::vector<std::uint32_t> counts;
  int sizeQueries = 0;
};

Bytes sector() { return Bytes(512, 0); }

Bytes smartHead(std::uint64_t diskSize) {
  Bytes b = sector();
  put64(b, 0, imagemagic::Smart);
  put64(b, 40, diskSize);
  return b;
}

Bytes comprHead(std::uint64_t diskSize, std::uint32_t level) {
  Bytes b = sector();
  put64(b, 0, imagemagic::Compr);
  put32(b, 20, level);
  put64(b, 24, diskSize);
  return b;
}

Bytes plainHead() {
  Bytes b = sector();
  b[510] = 0x55;
  b[511] = 0xAA;
  return b;
}

TEST(DetectImageFormat, SmartMagicGivesTheSizeAtForty) {
  MemoryFiles files;
  files.add(L"C:\\s.img", smartHead(0x40000000), 4096);
  std::uint64_t size = 0;
  std::uint32_t level = 77;
  EXPECT_EQ(DetectImageFormat(files, L"C:\\s.img", &size, &level), 1);
  EXPECT_EQ(size, 0x40000000u);
  EXPECT_EQ(level, 77u);  // only COMPR has a level
  EXPECT_EQ(files.counts, std::vector<std::uint32_t>{512});
}

TEST(DetectImageFormat, ComprMagicGivesSizeAndLevel) {
  MemoryFiles files;
  files.add(L"C:\\c.img", comprHead(0x80000000ull, 6), 4096);
  std::uint64_t size = 0;
  std::uint32_t level = 0;
  EXPECT_EQ(DetectImageFormat(files, L"C:\\c.img", &size, &level), 2);
  EXPECT_EQ(size, 0x80000000ull);
  EXPECT_EQ(level, 6u);
}

TEST(DetectImageFormat, BootSignatureGivesPlainWithTheFilesLength) {
  MemoryFiles files;
  files.add(L"C:\\p.img", plainHead(), 134217728);
  std::uint64_t size = 0;
  EXPECT_EQ(DetectImageFormat(files, L"C:\\p.img", &size), 0);
  EXPECT_EQ(size, 134217728u);
}

TEST(DetectImageFormat, MagicWinsOverTheBootSignature) {
  MemoryFiles files;
  Bytes smart = smartHead(1 << 20);
  smart[510] = 0x55;
  smart[511] = 0xAA;
  files.add(L"C:\\s.img", smart, 1 << 20);
  Bytes compr = comprHead(2 << 20, 1);
  compr[510] = 0x55;
  compr[511] = 0xAA;
  files.add(L"C:\\c.img", compr, 1 << 20);
  std::uint64_t size = 0;
  EXPECT_EQ(DetectImageFormat(files, L"C:\\s.img", &size), 1);
  EXPECT_EQ(size, 1u << 20);
  EXPECT_EQ(DetectImageFormat(files, L"C:\\c.img", &size), 2);
  EXPECT_EQ(size, 2u << 20);
  EXPECT_EQ(files.sizeQueries, 0);
}

TEST(DetectImageFormat, AnythingElseIsUnknown) {
  MemoryFiles files;
  files.add(L"C:\\zero.img", sector(), 512);
  Bytes halfSignature = sector();
  halfSignature[510] = 0x55;
  files.add(L"C:\\half.img", halfSignature, 512);
  Bytes swapped = sector();
  swapped[510] = 0xAA;
  swapped[511] = 0x55;
  files.add(L"C:\\swapped.img", swapped, 512);
  Bytes shortSmart = smartHead(1 << 20);
  shortSmart.resize(511);
  files.add(L"C:\\short.img", shortSmart, 511);
  std::uint64_t size = 99;
  for (const wchar_t* p : {L"C:\\zero.img", L"C:\\half.img", L"C:\\swapped.img", L"C:\\short.img", L"C:\\none.img"})
    EXPECT_EQ(DetectImageFormat(files, p, &size), -1) << p;
  EXPECT_EQ(size, 99u);
}

TEST(DetectImageFormat, OutputsAreOptional) {
  MemoryFiles files;
  files.add(L"C:\\c.img", comprHead(1, 2), 512);
  files.add(L"C:\\p.img", plainHead(), 512);
  EXPECT_EQ(DetectImageFormat(files, L"C:\\c.img"), 2);
  EXPECT_EQ(DetectImageFormat(files, L"C:\\p.img"), 0);
  EXPECT_EQ(files.sizeQueries, 0);
}

TEST(DetectImageFormat, SimulatedImageFiles) {
  SimApp sim(json::parse(R"({"files": [
    {"path": "C:\\p.img", "image": {"format": "plain", "diskSize": 67108864}},
    {"path": "C:\\s.img", "image": {"format": "smart", "diskSize": 67108864}, "size": 1048576},
    {"path": "C:\\c.img", "image": {"format": "compr", "diskSize": 67108864, "level": 9}},
    {"path": "C:\\bad.img", "size": 1048576},
    {"path": "C:\\gone.img", "image": {"format": "smart", "diskSize": 1}, "readFails": true}
  ]})"));
  std::uint64_t size = 0;
  std::uint32_t level = 0;
  EXPECT_EQ(DetectImageFormat(sim.platform.files, L"C:\\p.img", &size), 0);
  EXPECT_EQ(size, 67108864u);
  EXPECT_EQ(DetectImageFormat(sim.platform.files, L"c:\\S.IMG", &size), 1);
  EXPECT_EQ(DetectImageFormat(sim.platform.files, L"C:\\c.img", &size, &level), 2);
  EXPECT_EQ(level, 9u);
  EXPECT_EQ(DetectImageFormat(sim.platform.files, L"C:\\bad.img", &size), -1);
  EXPECT_EQ(DetectImageFormat(sim.platform.files, L"C:\\gone.img", &size), -1);
}

// ---- ParseImageFileStatus ----

Bytes statusRecord(const json& settings) { return sim::buildRecord(settings); }

TEST(ParseImageFileStatus, RecordWithoutImageSection) {
  const ImageFileStatus st = ParseImageFileStatus(statusRecord({{"sizeMb", 128}}));
  EXPECT_EQ(st, ImageFileStatus{});
  EXPECT_EQ(st.imagePath, L"");
  EXPECT_FALSE(st.loadOnly);
  EXPECT_TRUE(st.noFilePart);
}

TEST(ParseImageFileStatus, ImageFlagsAndPath) {
  const ImageFileStatus st = ParseImageFileStatus(statusRecord(
      {{"sizeMb", 128}, {"imageFile", "D:\\images\\disk.img"}, {"imageFlags", "0x00811031"}}));
  EXPECT_EQ(st.imagePath, L"D:\\images\\disk.img");
  EXPECT_FALSE(st.loadOnly);
  EXPECT_TRUE(st.delayLoad);
  EXPECT_TRUE(st.quickSave);
  EXPECT_TRUE(st.timingSave);
  EXPECT_TRUE(st.realTimeSave);
}

TEST(ParseImageFileStatus, NoSaveModeIsLoadOnly) {
  for (const char* flags : {"0x00000001", "0x00810001"}) {
    const ImageFileStatus st =
        ParseImageFileStatus(statusRecord({{"imageFile", "C:\\a.img"}, {"imageFlags", flags}}));
    EXPECT_TRUE(st.loadOnly) << flags;
  }
  for (const char* flags : {"0x10", "0x20", "0x1000", "0x4000"}) {
    const ImageFileStatus st =
        ParseImageFileStatus(statusRecord({{"imageFile", "C:\\a.img"}, {"imageFlags", flags}}));
    EXPECT_FALSE(st.loadOnly) << flags;
  }
}

TEST(ParseImageFileStatus, SubstanceGivesSmartCapableAndFilePart) {
  ImageFileStatus st = ParseImageFileStatus(statusRecord({{"substanceFlags", "0x00200400"}}));
  EXPECT_TRUE(st.smartCapable);
  EXPECT_TRUE(st.noFilePart);
  st = ParseImageFileStatus(statusRecord(
      {{"sizeMb", 1024}, {"physicalDriveSizeMb", 512}, {"physicalDriveFile", "C:\\h.hbd"}}));
  EXPECT_FALSE(st.smartCapable);
  EXPECT_FALSE(st.noFilePart);
}

TEST(ParseImageFileStatus, RecordWithNoSectionsAtAll) {
  Bytes header(64, 0);
  put32(header, 0, 64);
  put32(header, 4, 64);
  EXPECT_EQ(ParseImageFileStatus(header), ImageFileStatus{});
  EXPECT_EQ(ParseImageFileStatus(Bytes{}), ImageFileStatus{});
}

// ---- QueryDiskStatus ----

json diskMachine(json disk) {
  json m = json::object();
  m["controller"]["disks"] = json::array({std::move(disk)});
  return m;
}

std::uint32_t statusRequests(SimApp& sim) {
  const json& stats = sim.machine.stats;
  if (!stats.contains("requests")) return 0;
  return stats["requests"].value("QueryDiskStatus", 0u);
}

TEST(QueryDiskStatus, StatusDefaultsToTheSettingsRecord) {
  const json disk = {{"index", 3}, {"size", 134217728}, {"settings", {{"sizeMb", 128}, {"volumeLabel", "RD"}}}};
  SimApp sim(diskMachine(disk));
  const std::optional<DiskStatus> st = QueryDiskStatus(sim.controller, 3);
  ASSERT_TRUE(st);
  EXPECT_EQ(*st, sim::diskRecord(disk));
  EXPECT_EQ(statusRequests(sim), 1u);
}

TEST(QueryDiskStatus, ReadableStatusIsLaidOverTheSettings) {
  const json disk = {{"index", 0},
                     {"settings", {{"sizeMb", 256}, {"imQuotaMb", 0}, {"substanceFlags", "0x100"}}},
                     {"status", {{"imQuotaMb", 64}}}};
  SimApp sim(diskMachine(disk));
  const std::optional<DiskStatus> st = QueryDiskStatus(sim.controller, 0);
  ASSERT_TRUE(st);
  DiskSettings s;
  DiskSettingsFromRecord(*st, s);
  EXPECT_EQ(s.sizeMb, 256u);
  EXPECT_EQ(s.imQuotaMb, 64u);
  EXPECT_EQ(s.substanceFlags, 0x100u);
}

TEST(QueryDiskStatus, ReplyLargerThan1024BytesGrowsTheBuffer) {
  Bytes big(3000, 0);
  put32(big, 0, 64);
  put32(big, 4, 3000);
  SimApp sim(diskMachine({{"index", 1}, {"statusRecord", sim::toHex(big)}}));
  const std::optional<DiskStatus> st = QueryDiskStatus(sim.controller, 1);
  ASSERT_TRUE(st);
  EXPECT_EQ(st->size(), 3000u);
  EXPECT_EQ(statusRequests(sim), 3u);  // 1024, 2048, 4096
}

TEST(QueryDiskStatus, MoreDataGrowsTheBufferToo) {
  Bytes big(1500, 0);
  json m = diskMachine({{"index", 1}, {"statusRecord", sim::toHex(big)}});
  m["controller"]["shortBufferError"] = 234;
  SimApp sim(m);
  ASSERT_TRUE(QueryDiskStatus(sim.controller, 1));
  EXPECT_EQ(statusRequests(sim), 2u);
}

TEST(QueryDiskStatus, GivesUpAfterTheBufferOf131072Bytes) {
  Bytes huge(140000, 0);
  SimApp sim(diskMachine({{"index", 1}, {"statusRecord", sim::toHex(huge)}}));
  EXPECT_FALSE(QueryDiskStatus(sim.controller, 1));
  EXPECT_EQ(statusRequests(sim), 8u);  // 1024 .. 131072
}

TEST(QueryDiskStatus, OtherErrorsEndAtOnce) {
  json m = diskMachine({{"index", 1}});
  m["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x4606c"}, {"error", 1}}});
  SimApp sim(m);
  EXPECT_FALSE(QueryDiskStatus(sim.controller, 1));
  EXPECT_EQ(statusRequests(sim), 1u);
  SimApp none(diskMachine({{"index", 1}}));
  EXPECT_FALSE(QueryDiskStatus(none.controller, 2));
}

TEST(QueryDiskStatus, EachTryOpensTheControllerAfresh) {
  Bytes big(1500, 0);
  SimApp sim(diskMachine({{"index", 1}, {"statusRecord", sim::toHex(big)}}));
  ASSERT_TRUE(QueryDiskStatus(sim.controller, 1));
  const json& stats = sim.machine.stats;
  const std::string path = toUtf8(sim.controller.devicePath());
  EXPECT_EQ(stats["opens"].value(path, 0u), 2u);
  EXPECT_EQ(stats["closes"].value(path, 0u), 2u);
}

}  // namespace image_file_test
}  // namespace vmd
