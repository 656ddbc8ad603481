#include "settings/settings_record.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "base/bytes.h"
#include "controller/codes.h"
#include "controller/controller.h"
#include "settings/disk_settings.h"
#include "platform/host.h"
#include "sim/record_layout.h"
#include "sim/sim_platform.h"
#include "sim/sim_services.h"
#include "support/fakes.h"

namespace vmd {
namespace settings_record_test {

using sim::json;

// ---- Record to settings --------------------------------------------------

Bytes record(const json& settings) { return sim::buildRecord(settings); }

DiskSettings fromRecord(const Bytes& r, DiskSettings s = {}) {
  DiskSettingsFromRecord(r, s);
  return s;
}

TEST(DiskSettingsFromRecord, ReadsEveryFieldOfAFullRecord) {
  const Bytes r = record({{"sizeMb", 8192},
                          {"diskFlags", "0x41000000"},
                          {"driveLetter", "R"},
                          {"substanceFlags", "0x00300500"},
                          {"imQuotaMb", 1024},
                          {"physicalDriveSizeMb", 3072},
                          {"physicalDriveFile", "C:\\hybrid.hbd"},
                          {"numaNodeMasks", {"0x25", "0x8000000000000000"}},
                          {"volumeLabel", "SCRATCH"},
                          {"clusterSize", 4096},
                          {"fileSystem", 2},
                          {"fsFlags", 7},
                          {"fsExtraMask", 7},
                          {"everyonePermissions", 0x26},
                          {"volumeSerial", "0x1234ABCD"},
                          {"customFolders", {"aaa", "bbb", "ccc"}},
                          {"imageFile", "D:\\images\\disk.img"},
                          {"imageFlags", "0x00801031"},
                          {"imageFormat", 0},
                          {"compressionLevel", 1},
                          {"timingSaveMinutes", 30}});
  const DiskSettings s = fromRecord(r);
  EXPECT_EQ(s.sizeMb, 8192u);
  EXPECT_EQ(s.diskFlags, 0x41000000u);
  EXPECT_EQ(s.driveLetter, L'R');
  EXPECT_EQ(s.substanceFlags, 0x00300500u);
  EXPECT_EQ(s.imQuotaMb, 1024u);
  EXPECT_EQ(s.physicalDriveSizeMb, 3072u);
  EXPECT_EQ(s.physicalDriveFile, L"C:\\hybrid.hbd");
  EXPECT_EQ(s.numaNodeMasks, (std::vector<std::uint64_t>{0x25, 0x8000000000000000ull}));
  EXPECT_EQ(s.volumeLabel, L"SCRATCH");
  EXPECT_EQ(s.clusterSize, 4096u);
  EXPECT_EQ(s.fileSystem, filesystem::Ntfs);
  EXPECT_EQ(s.fsFlags, 7);
  EXPECT_EQ(s.fsExtraMask, 7);
  EXPECT_EQ(s.everyonePermissions, 0x26);
  EXPECT_EQ(s.volumeSerial, 0x1234ABCDu);
  EXPECT_EQ(s.customFolderCount, 3u);
  EXPECT_EQ(s.customFolders[0], L"aaa");
  EXPECT_EQ(s.customFolders[1], L"bbb");
  EXPECT_EQ(s.customFolders[2], L"ccc");
  EXPECT_EQ(s.imageFile, L"D:\\images\\disk.img");
  EXPECT_EQ(s.imageFlags, 0x00801031u);
  EXPECT_EQ(s.loadOnly, 0u);
  EXPECT_EQ(s.imageFormat, imageformat::Plain);
  EXPECT_EQ(s.compressionLevel, 1u);
  EXPECT_EQ(s.timingSaveMinutes, 30u);
}

TEST(DiskSettingsFromRecord, AbsentImageSectionGivesNoImageAndFormatDefaults) {
  DiskSettings before;
  before.imageFile = L"C:\\old.img";
  before.loadOnly = 1;
  before.imageFlags = 0x11;
  before.imageFormat = 2;
  before.compressionLevel = 7;
  before.timingSaveMinutes = 15;
  const DiskSettings s = fromRecord(record(json::object()), before);
  EXPECT_EQ(s.imageFile, L"");
  EXPECT_EQ(s.loadOnly, 0u);
  EXPECT_EQ(s.imageFlags, 0u);
  EXPECT_EQ(s.imageFormat, imageformat::Plain);
  EXPECT_EQ(s.compressionLevel, 1u);
  EXPECT_EQ(s.timingSaveMinutes, 0u);
}

TEST(DiskSettingsFromRecord, ImageWithoutSaveBitsIsLoadOnlyWhateverTheFormatBytesSay) {
  const Bytes r = record({{"imageFile", "C:\\a.img"},
                          {"imageFlags", "0x00810001"},
                          {"imageFormat", 2},
                          {"compressionLevel", 9},
                          {"timingSaveMinutes", 45}});
  const DiskSettings s = fromRecord(r);
  EXPECT_EQ(s.imageFile, L"C:\\a.img");
  EXPECT_EQ(s.imageFlags, 0x00810001u);
  EXPECT_EQ(s.loadOnly, 1u);
  EXPECT_EQ(s.imageFormat, imageformat::Plain);
  EXPECT_EQ(s.compressionLevel, 1u);
  EXPECT_EQ(s.timingSaveMinutes, 0u);
}

TEST(DiskSettingsFromRecord, EachSaveSetBitMakesTheImageSaved) {
  for (std::uint32_t bit : {0x10u, 0x20u, 0x1000u, 0x4000u}) {
    const DiskSettings s = fromRecord(record({{"imageFile", "C:\\a.img"}, {"imageFlags", bit}, {"imageFormat", 1}}));
    EXPECT_EQ(s.loadOnly, 0u) << bit;
    EXPECT_EQ(s.imageFormat, imageformat::Smart) << bit;
  }
}

TEST(DiskSettingsFromRecord, CompressionLevelIsASignedByte) {
  const DiskSettings s =
      fromRecord(record({{"imageFile", "C:\\a.img"}, {"imageFlags", 0x11}, {"imageFormat", 2}, {"compressionLevel", 0xFF}}));
  EXPECT_EQ(s.compressionLevel, 0xFFFFFFFFu);
}

TEST(DiskSettingsFromRecord, SizeIsTruncatedToWholeMegabytes) {
  EXPECT_EQ(fromRecord(record({{"sizeBytes", 1572864}})).sizeMb, 1u);  // 1.5 MB
  EXPECT_EQ(fromRecord(record({{"sizeBytes", 1048575}})).sizeMb, 0u);
}

TEST(DiskSettingsFromRecord, DriveLetterByteIsSignExtended) {
  EXPECT_EQ(fromRecord(record({{"driveLetter", "Z"}})).driveLetter, L'Z');
  EXPECT_EQ(fromRecord(record({{"driveLetter", 0}})).driveLetter, 0);
  EXPECT_EQ(fromRecord(record({{"driveLetter", 0xC4}})).driveLetter, 0xFFC4);
}

TEST(DiskSettingsFromRecord, PermissionsNeedTheirPresenceBit) {
  const DiskSettings s = fromRecord(record({{"everyonePermissions", 0x27}, {"fsExtraMask", 0x06}}));
  EXPECT_EQ(s.everyonePermissions, 0);
  EXPECT_EQ(s.fsExtraMask, 0x06);
}

TEST(DiskSettingsFromRecord, SerialNeedsItsPresenceBit) {
  EXPECT_EQ(fromRecord(record({{"volumeSerial", "0xCAFE0001"}, {"fsExtraMask", 0x08}})).volumeSerial, 0u);
  EXPECT_EQ(fromRecord(record({{"volumeSerial", "0xCAFE0001"}, {"fsExtraMask", 0x0A}})).volumeSerial, 0xCAFE0001u);
}

TEST(DiskSettingsFromRecord, FoldersNeedTheirPresenceBitAndLeaveOldNamesAlone) {
  DiskSettings before;
  before.customFolderCount = 2;
  before.customFolders[0] = L"keep";
  const DiskSettings s = fromRecord(record({{"customFolders", {"x"}}, {"fsExtraMask", 0}}), before);
  EXPECT_EQ(s.customFolderCount, 0u);
  EXPECT_EQ(s.customFolders[0], L"keep");
}

TEST(DiskSettingsFromRecord, NodeMasksAreAppendedNotReplaced) {
  DiskSettings before;
  before.numaNodeMasks = {0x1};
  const DiskSettings s = fromRecord(record({{"numaNodeMasks", {"0x2", "0x4"}}}), before);
  EXPECT_EQ(s.numaNodeMasks, (std::vector<std::uint64_t>{0x1, 0x2, 0x4}));
}

TEST(DiskSettingsFromRecord, PathPrefixIsSkippedWithoutBeingChecked) {
  Bytes r = record({{"physicalDriveSizeMb", 64}, {"physicalDriveFile", "C:\\f.hbd"}});
  const std::size_t path = DiskSettingsRecord::substance(r).offset + DiskSettingsRecord::Substance::Path;
  for (std::size_t i = 0; i < 12; ++i) put16(r, path + 2 * i, L'#');  // not "\DosDevices\"
  EXPECT_EQ(fromRecord(r).physicalDriveFile, L"C:\\f.hbd");
}

TEST(DiskSettingsFromRecord, ZeroPathLengthEmptiesTheBackingFile) {
  DiskSettings before;
  before.physicalDriveFile = L"C:\\old.hbd";
  const DiskSettings s = fromRecord(record(json::object()), before);
  EXPECT_EQ(s.physicalDriveFile, L"");
  EXPECT_EQ(s.physicalDriveSizeMb, 0u);
}

TEST(DiskSettingsFromRecord, ZeroLabelLengthEmptiesTheLabel) {
  EXPECT_EQ(fromRecord(record({{"volumeLabel", ""}})).volumeLabel, L"");
}

TEST(DiskSettingsFromRecord, AbsentSectionsLeaveTheirFieldsUntouched) {
  Bytes r = record(json::object());
  put16(r, DiskSettingsRecord::Header::SubstanceLength, 0);
  put16(r, DiskSettingsRecord::Header::FormatLength, 0);
  DiskSettings before;
  before.substanceFlags = 0x400;
  before.imQuotaMb = 5;
  before.physicalDriveFile = L"C:\\x";
  before.volumeLabel = L"KEEP";
  before.fileSystem = 2;
  before.clusterSize = 8192;
  before.everyonePermissions = 0x27;
  before.customFolderCount = 1;
  const DiskSettings s = fromRecord(r, before);
  EXPECT_EQ(s.substanceFlags, 0x400u);
  EXPECT_EQ(s.imQuotaMb, 5u);
  EXPECT_EQ(s.physicalDriveFile, L"C:\\x");
  EXPECT_EQ(s.volumeLabel, L"KEEP");
  EXPECT_EQ(s.fileSystem, 2);
  EXPECT_EQ(s.clusterSize, 8192u);
  EXPECT_EQ(s.everyonePermissions, 0x27);
  EXPECT_EQ(s.customFolderCount, 1u);
  EXPECT_EQ(s.sizeMb, 128u);  // the header is always read
}

TEST(DiskSettingsFromRecord, OffsetsAreTakenAsTheyStandWithoutTheTotalLength) {
  // A record that says it is shorter than its sections is still read whole.
  Bytes r = record({{"volumeLabel", "LONGLABEL"}});
  put32(r, DiskSettingsRecord::Header::TotalLength, 64);
  EXPECT_EQ(fromRecord(r).volumeLabel, L"LONGLABEL");
}

// ---- Malformed records: never a read outside the bytes ---------------------

TEST(DiskSettingsFromRecord, EmptyAndShortRecordsReadAsZeros) {
  const DiskSettings s = fromRecord(Bytes{});
  EXPECT_EQ(s.sizeMb, 0u);
  EXPECT_EQ(s.diskFlags, 0u);
  EXPECT_EQ(s.volumeLabel, L"RAMDISK");  // no format section
  EXPECT_EQ(s.imageFile, L"");
}

TEST(DiskSettingsFromRecord, EveryTruncationOfAFullRecordIsReadSafely) {
  const Bytes full = record({{"physicalDriveSizeMb", 64},
                             {"physicalDriveFile", "C:\\hybrid.hbd"},
                             {"numaNodeMasks", {"0x1", "0x2"}},
                             {"customFolders", {"aaa", "bbb"}},
                             {"imageFile", "C:\\i.img"}});
  for (std::size_t n = 0; n <= full.size(); ++n) {
    // Exactly n bytes on the heap, so a read past them is caught by the sanitizer.
    const Bytes cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n));
    DiskSettings s;
    DiskSettingsFromRecord(cut, s);
    EXPECT_LE(s.numaNodeMasks.size(), 2u);
    EXPECT_LE(s.customFolderCount, 2u);
  }
}

TEST(DiskSettingsFromRecord, SectionsPointingPastTheEndReadAsEmpty) {
  Bytes r = record(json::object());
  put16(r, DiskSettingsRecord::Header::SubstanceOffset, 0xFFF0);
  put16(r, DiskSettingsRecord::Header::FormatOffset, 0xFFFF);
  put16(r, DiskSettingsRecord::Header::ImageOffset, 0xFFFF);
  put16(r, DiskSettingsRecord::Header::ImageLength, 0xFFFF);
  const DiskSettings s = fromRecord(r);
  EXPECT_EQ(s.substanceFlags, 0u);
  EXPECT_TRUE(s.numaNodeMasks.empty());
  EXPECT_EQ(s.volumeLabel, L"");  // label length reads as 0
  EXPECT_EQ(s.imageFile, L"");
  EXPECT_EQ(s.loadOnly, 1u);  // flags read as 0
}

TEST(DiskSettingsFromRecord, NodeMasksOutsideTheRecordEndTheList) {
  Bytes r = record({{"numaNodeMasks", {"0x1"}}});
  const std::size_t sub = DiskSettingsRecord::substance(r).offset;
  put16(r, sub + DiskSettingsRecord::Substance::MaskCount, 0xFFFF);
  const DiskSettings s = fromRecord(r);
  // The first mask and whatever 8-byte groups follow it inside the record, no more.
  EXPECT_GE(s.numaNodeMasks.size(), 1u);
  EXPECT_LE(s.numaNodeMasks.size(), (r.size() - sub) / 8);
  EXPECT_EQ(s.numaNodeMasks[0], 1u);
}

TEST(DiskSettingsFromRecord, StringsWithoutTerminatorStopAtTheEnd) {
  Bytes r = record({{"volumeLabel", "ABCDEFGH"}});
  const std::size_t label = DiskSettingsRecord::format(r).offset + DiskSettingsRecord::Format::Label;
  r.resize(label + 6);  // "ABC", no NUL
  EXPECT_EQ(fromRecord(r).volumeLabel, L"ABC");
  r.push_back('D');  // an odd byte at the end is not half a character
  EXPECT_EQ(fromRecord(r).volumeLabel, L"ABC");
}

TEST(DiskSettingsFromRecord, FolderCountAboveTenIsCutToTen) {
  Bytes r = record({{"customFolders", {"a", "b"}}});
  const std::size_t fmt = DiskSettingsRecord::format(r).offset;
  put8(r, fmt + DiskSettingsRecord::Format::FolderCount, 255);
  const DiskSettings s = fromRecord(r);
  EXPECT_EQ(s.customFolderCount, 10u);
  EXPECT_EQ(s.customFolders[0], L"a");
  EXPECT_EQ(s.customFolders[1], L"b");
  EXPECT_EQ(s.customFolders[2], L"");  // the closing NUL reads as an empty name
}

TEST(DiskSettingsFromRecord, FolderListOffsetPastTheEndGivesEmptyNames) {
  Bytes r = record({{"customFolders", {"a"}}});
  const std::size_t fmt = DiskSettingsRecord::format(r).offset;
  put16(r, fmt + DiskSettingsRecord::Format::FolderOffset, 0xFFFF);
  const DiskSettings s = fromRecord(r);
  EXPECT_EQ(s.customFolderCount, 1u);
  EXPECT_EQ(s.customFolders[0], L"");
}

// ---- Header helpers -------------------------------------------------------

TEST(DiskSettingsRecordLayout, ChecksumSumsEveryByteFromOffsetTwelve) {
  Bytes r(20, 0);
  for (std::size_t i = 0; i < r.size(); ++i) r[i] = static_cast<std::uint8_t>(0xF0 + i);
  std::uint32_t expect = 0;
  for (std::size_t i = 12; i < r.size(); ++i) expect += r[i];
  EXPECT_EQ(DiskSettingsRecord::checksum(r), expect);
  DiskSettingsRecord::storeChecksum(r);
  EXPECT_EQ(get32(r, 8), expect);
  EXPECT_EQ(DiskSettingsRecord::checksum(r), expect);  // its own field is not covered
}

TEST(DiskSettingsRecordLayout, SectionsComeFromTheHeader) {
  const Bytes r = record({{"imageFile", "C:\\a.img"}});
  EXPECT_EQ(DiskSettingsRecord::substance(r).offset, 64);
  EXPECT_EQ(DiskSettingsRecord::substance(r).length, 56);
  EXPECT_EQ(DiskSettingsRecord::format(r).offset, 128);
  EXPECT_EQ(DiskSettingsRecord::format(r).length, 60);
  EXPECT_EQ(DiskSettingsRecord::image(r).offset, 192);
  EXPECT_TRUE(DiskSettingsRecord::image(r).present());
  EXPECT_FALSE(DiskSettingsRecord::image(record(json::object())).present());
  EXPECT_FALSE(DiskSettingsRecord::substance(Bytes(10, 0xFF)).present());
}

// ---- The read exchange against the simulated controller -------------------

// Passes every call to the simulated device layer and notes the output room
// each request was given.
class RecordingIo : public DeviceIo {
 public:
  explicit RecordingIo(DeviceIo& inner) : inner_(inner) {}
  SysResult<Handle> open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                         std::uint32_t disposition, std::uint32_t flags) override {
    return inner_.open(path, access, share, disposition, flags);
  }
  SysResult<std::uint32_t> control(Handle h, std::uint32_t code, const void* in, std::uint32_t inSize, void* out,
                                   std::uint32_t outSize) override {
    rooms.push_back(outSize);
    requests.emplace_back(static_cast<const std::uint8_t*>(in), static_cast<const std::uint8_t*>(in) + inSize);
    return inner_.control(h, code, in, inSize, out, outSize);
  }
  SysStatus flush(Handle h) override { return inner_.flush(h); }
  void close(Handle h) override { inner_.close(h); }

  std::vector<std::uint32_t> rooms;
  std::vector<Bytes> requests;

 private:
  DeviceIo& inner_;
};

class ReadExchange : public ::testing::Test {
 protected:
  void SetUp() override { machine.stats = json::object(); }

  std::optional<Bytes> read(std::uint8_t index) {
    sim::SimPlatform sim(machine, streams, *catalog, nullptr);
    RecordingIo io(sim.io);
    CVmDevControl controller(sim.setup, io);
    EXPECT_TRUE(controller.discover());
    std::optional<Bytes> r = ReadDiskSettingsRecord(controller, index);
    rooms = io.rooms;
    requests = io.requests;
    EXPECT_EQ(sim.io.openHandles(), 0u);
    return r;
  }

  void addDisk(json disk) {
    machine.edit([&](json& s) { s["controller"]["disks"].push_back(disk); });
  }
  void addRawDisk(std::uint32_t index, const Bytes& raw) {
    addDisk({{"index", index}, {"settingsRecord", sim::toHex(raw)}});
  }
  int requestCount() {
    return machine.stats["requests"].value(sim::codeName(ioctl::ReadDiskSettingsRecord), 0);
  }

  // A record-shaped block of exactly n bytes whose total-length field says n.
  static Bytes rawOfLength(std::size_t n) {
    Bytes b(n, 0x5A);
    put32(b, 0, 64);
    put32(b, 4, n);
    return b;
  }

  sim::Machine machine;
  test::CapturingStreams streams;
  std::unique_ptr<MessageCatalog> catalog = makeHostCatalog();
  std::vector<std::uint32_t> rooms;
  std::vector<Bytes> requests;
};

TEST_F(ReadExchange, SmallRecordComesInOneRequest) {
  addDisk({{"index", 3}, {"settings", {{"sizeMb", 512}, {"volumeLabel", "DATA"}}}});
  const auto r = read(3);
  ASSERT_TRUE(r);
  EXPECT_EQ(*r, *machine.world.controller.findDisk(3)->settings);
  EXPECT_EQ(fromRecord(*r).sizeMb, 512u);
  EXPECT_EQ(fromRecord(*r).volumeLabel, L"DATA");
  EXPECT_EQ(rooms, (std::vector<std::uint32_t>{1020}));
  EXPECT_EQ(requestCount(), 1);
}

TEST_F(ReadExchange, RequestIsTheTwelveByteDiskHead) {
  addDisk({{"index", 7}});
  ASSERT_TRUE(read(7));
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0], (Bytes{12, 0, 0, 0, 12, 0, 0, 0, 0, 0, 7, 0}));
}

TEST_F(ReadExchange, BufferDoublesWhileTheControllerAsksForMoreRoom) {
  addRawDisk(0, rawOfLength(3000));
  const auto r = read(0);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->size(), 3000u);
  EXPECT_EQ(rooms, (std::vector<std::uint32_t>{1020, 2044, 4092}));
  EXPECT_EQ(requestCount(), 3);
  EXPECT_EQ(machine.stats["opens"].begin().value(), 3);
  EXPECT_EQ(machine.stats["closes"].begin().value(), 3);
}

TEST_F(ReadExchange, ReplyThatJustFitsNeedsNoSecondRequest) {
  addRawDisk(0, rawOfLength(1020 - 12));
  ASSERT_TRUE(read(0));
  EXPECT_EQ(requestCount(), 1);
  addRawDisk(1, rawOfLength(1020 - 11));
  ASSERT_TRUE(read(1));
  EXPECT_EQ(rooms.size(), 2u);
}

TEST_F(ReadExchange, MoreDataErrorAlsoGrowsTheBuffer) {
  machine.world.controller.shortBufferError = 234;
  addRawDisk(0, rawOfLength(5000));
  ASSERT_TRUE(read(0));
  EXPECT_EQ(rooms, (std::vector<std::uint32_t>{1020, 2044, 4092, 8188}));
}

TEST_F(ReadExchange, LargestBufferIs131072Bytes) {
  addRawDisk(0, rawOfLength(131072 - 4 - 12));
  const auto r = read(0);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->size(), 131056u);
  EXPECT_EQ(rooms, (std::vector<std::uint32_t>{1020, 2044, 4092, 8188, 16380, 32764, 65532, 131068}));
}

TEST_F(ReadExchange, RecordThatDoesNotFit131072BytesFails) {
  addRawDisk(0, rawOfLength(131072 - 4 - 12 + 1));
  EXPECT_FALSE(read(0));
  EXPECT_EQ(requestCount(), 8);  // 1024 ... 131072, and no buffer after that
  EXPECT_EQ(rooms.back(), 131068u);
}

TEST_F(ReadExchange, OtherErrorsEndTheExchangeAtOnce) {
  addDisk({{"index", 0}});
  machine.edit([](json& s) { s["faults"] = json::array({{{"api", "DeviceIoControl"}, {"code", "0x4601c"}, {"error", 31}}}); });
  EXPECT_FALSE(read(0));
  EXPECT_EQ(requestCount(), 1);
}

TEST_F(ReadExchange, FailedOpenYieldsNothing) {
  addDisk({{"index", 0}});
  machine.edit([](json& s) { s["faults"] = json::array({{{"api", "CreateFileW"}, {"error", 5}}}); });
  EXPECT_FALSE(read(0));
  EXPECT_TRUE(rooms.empty());
}

TEST_F(ReadExchange, MissingDiskYieldsNothing) {
  addDisk({{"index", 0}});
  EXPECT_FALSE(read(1));
  EXPECT_EQ(requestCount(), 1);
}

TEST_F(ReadExchange, CopyIsExactlyTheRecordsOwnTotalLength) {
  Bytes raw = sim::buildRecord(json::object());
  const Bytes original = raw;
  raw.resize(raw.size() + 40, 0xEE);  // the controller returns more than the record
  addRawDisk(0, raw);
  EXPECT_EQ(read(0), original);
}

TEST_F(ReadExchange, TotalLengthBeyondTheReplyIsCutToWhatWasReturned) {
  Bytes raw = sim::buildRecord({{"volumeLabel", "CUT"}});
  put32(raw, DiskSettingsRecord::Header::TotalLength, 0x10000000);
  addRawDisk(0, raw);
  const auto r = read(0);
  ASSERT_TRUE(r);
  EXPECT_EQ(*r, raw);
  EXPECT_EQ(fromRecord(*r).volumeLabel, L"CUT");
}

TEST_F(ReadExchange, ReplyTooShortForTheTotalLengthYieldsNothing) {
  addRawDisk(0, Bytes{64, 0, 0, 0, 100, 0, 0});  // the total length is cut
  EXPECT_FALSE(read(0));
  addRawDisk(1, Bytes{64, 0, 0, 0, 0, 0, 0, 0});  // a record that says it is empty
  const auto r = read(1);
  ASSERT_TRUE(r);
  EXPECT_TRUE(r->empty());
}

TEST_F(ReadExchange, AppOverloadUsesTheProcessController) {
  addDisk({{"index", 2}, {"settings", {{"sizeMb", 64}}}});
  sim::SimPlatform sim(machine, streams, *catalog, nullptr);
  test::ScriptedKeys keys;
  Output out(streams, *catalog, keys);
  OptionScanner scanner(out);
  CVmDevControl controller(sim.setup, sim.io);
  ASSERT_TRUE(controller.discover());
  App app{sim.platform, out, scanner, controller};
  const auto r = ReadDiskSettingsRecord(app, 2);
  ASSERT_TRUE(r);
  EXPECT_EQ(fromRecord(*r).sizeMb, 64u);
  EXPECT_TRUE(streams.all.empty());  // the caller reports failures
}

}  // namespace settings_record_test
}  // namespace vmd
