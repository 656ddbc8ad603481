#include "settings/descriptor_file.h"

#include <gtest/gtest.h>

#include <string>

#include "base/bytes.h"
#include "settings/settings_record.h"
#include "sim/record_layout.h"

namespace vmd {
namespace descriptor_file_test {

using sim::json;

// What a descriptor must hold, computed the plain way: a byte-by-byte sum
// and complement, independent of the paired walk under test.
struct Expected {
  std::uint32_t sum = 0;
  Bytes inverted;
};
Expected expectedFor(const Bytes& record) {
  Expected e;
  for (const std::uint8_t b : record) {
    e.sum += b;
    e.inverted.push_back(static_cast<std::uint8_t>(0xFF - b));
  }
  return e;
}

Bytes sampleRecord() {
  return sim::buildRecord({{"sizeMb", 256},
                           {"driveLetter", "R"},
                           {"substanceFlags", "0x400"},
                           {"physicalDriveFile", ""},
                           {"numaNodeMasks", {"0x5"}},
                           {"volumeLabel", "DATA"},
                           {"fileSystem", 2},
                           {"customFolders", {"a", "bb"}},
                           {"imageFile", "C:\\img\\disk.img"},
                           {"imageFlags", "0x10011"}});
}

Bytes descriptorOf(Bytes record, std::uint16_t variant = 7, std::uint16_t letter = L'R') {
  return BuildDescriptorBytes(record, descriptor::Magic, variant, letter);
}

// ---- Writing ------------------------------------------------------------

TEST(InvertAndSum, OddLengthTakesTheLastByteToo) {
  Bytes data;
  for (int i = 0; i < 65; ++i) data.push_back(static_cast<std::uint8_t>(i * 37 + 11));
  const Expected e = expectedFor(data);
  EXPECT_EQ(InvertAndSum(data.data(), data.size()), e.sum);
  EXPECT_EQ(data, e.inverted);
}

TEST(InvertAndSum, SumWrapsAt32Bits) {
  Bytes data(17000000, 0xFF);
  const std::uint32_t expected = static_cast<std::uint32_t>(17000000ull * 0xFF);
  EXPECT_EQ(InvertAndSum(data.data(), data.size()), expected);
  EXPECT_EQ(data.back(), 0);
}

TEST(BuildDescriptorBytes, HeaderThenTheInvertedRecord) {
  Bytes record = sampleRecord();
  const Expected e = expectedFor(record);
  const Bytes file = BuildDescriptorBytes(record, descriptor::Magic, 0x1234, L'Q');
  ASSERT_EQ(file.size(), 32 + e.inverted.size());
  EXPECT_EQ(get32(file, 0), 0x86888444u);
  EXPECT_EQ(get32(file, 4), 32u);
  EXPECT_EQ(get32(file, 8), e.inverted.size());
  EXPECT_EQ(get16(file, 12), 0x1234);
  EXPECT_EQ(get16(file, 14), L'Q');
  EXPECT_EQ(get32(file, 16), e.sum);
  for (std::size_t i = 20; i < 32; ++i) EXPECT_EQ(file[i], 0) << i;
  EXPECT_EQ(Bytes(file.begin() + 32, file.end()), e.inverted);
  // The caller's record is left inverted.
  EXPECT_EQ(record, e.inverted);
}

TEST(BuildDescriptorBytes, AllZeroRecordHasChecksumZeroAndAnAllOnesPayload) {
  Bytes record(64, 0);
  const Bytes file = BuildDescriptorBytes(record, descriptor::Magic, 1, 0);
  EXPECT_EQ(get32(file, 16), 0u);
  EXPECT_EQ(Bytes(file.begin() + 32, file.end()), Bytes(64, 0xFF));
}

TEST(BuildDescriptorBytes, OddLengthRecordIsWrittenWhole) {
  Bytes record;
  for (int i = 0; i < 99; ++i) record.push_back(static_cast<std::uint8_t>(200 + i));
  const Expected e = expectedFor(record);
  const Bytes file = BuildDescriptorBytes(record, descriptor::Magic, 1, L'Z');
  EXPECT_EQ(get32(file, 8), 99u);
  EXPECT_EQ(get32(file, 16), e.sum);
  EXPECT_EQ(file.back(), static_cast<std::uint8_t>(~(200 + 98)));
}

TEST(BuildDescriptorBytes, NegativeLetterIsKeptAsItsSixteenBits) {
  Bytes record(64, 0);
  const Bytes file = BuildDescriptorBytes(record, descriptor::Magic, 1, 0xFFC8);
  EXPECT_EQ(file[14], 0xC8);
  EXPECT_EQ(file[15], 0xFF);
}

class RecordingFiles : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring&) override {
    return SysResult<std::uint32_t>::failure(2, InvalidFileAttributes);
  }
  SysResult<std::uint64_t> fileSize(const std::wstring&) override { return SysResult<std::uint64_t>::failure(2); }
  SysResult<Bytes> readHead(const std::wstring&, std::uint32_t) override { return SysResult<Bytes>::failure(2); }
  SysStatus writeWhole(const std::wstring& path, const Bytes& data) override {
    writtenPath = path;
    written = data;
    return result;
  }
  SysResult<bool> pathIsDirectory(const std::wstring&) override { return SysResult<bool>::success(false); }

  SysStatus result = SysStatus::success();
  std::wstring writtenPath;
  Bytes written;
};

TEST(WriteDescriptorFile, WritesTheDescriptorToThePath) {
  RecordingFiles files;
  Bytes record = sampleRecord();
  const Bytes expected = descriptorOf(record, 3, L'S');
  EXPECT_TRUE(WriteDescriptorFile(files, L"C:\\d.vdd", record, descriptor::Magic, 3, L'S').ok);
  EXPECT_EQ(files.writtenPath, L"C:\\d.vdd");
  EXPECT_EQ(files.written, expected);
}

TEST(WriteDescriptorFile, PassesOnOpenAndWriteFailures) {
  RecordingFiles files;
  Bytes record = sampleRecord();
  files.result = SysStatus::failure(110);
  const SysStatus notCreated = WriteDescriptorFile(files, L"C:\\d.vdd", record, descriptor::Magic, 3, L'S');
  EXPECT_FALSE(notCreated.ok);
  EXPECT_EQ(notCreated.error, 110u);
  Bytes again = sampleRecord();
  files.result = SysStatus::failure(29);
  EXPECT_EQ(WriteDescriptorFile(files, L"C:\\d.vdd", again, descriptor::Magic, 3, L'S').error, 29u);
}

// ---- Reading ------------------------------------------------------------

DescriptorCheck check(const Bytes& file) { return CheckDescriptor(file.data(), file.size()); }

// A descriptor of `record` as it stands, its checksum right for its bytes.
Bytes descriptorOfRaw(const Bytes& record) { return descriptorOf(record); }

// A record changed after it was built, its own checksum made right again.
Bytes resealed(Bytes record) {
  DiskSettingsRecord::storeChecksum(record);
  return record;
}

bool mentions(const DescriptorCheck& c, const std::wstring& words) {
  return c.problem.find(words) != std::wstring::npos;
}

TEST(CheckDescriptor, AcceptsWhatExportWrites) {
  const Bytes record = sampleRecord();
  const DescriptorCheck c = check(descriptorOf(record, 0x0102, L'R'));
  EXPECT_TRUE(c.valid()) << std::string(c.problem.begin(), c.problem.end());
  EXPECT_EQ(c.problem, L"");
  EXPECT_EQ(c.record, record);
  EXPECT_EQ(c.variantCode, 0x0102);
  EXPECT_EQ(c.driveLetter, L'R');
  EXPECT_EQ(c.payloadSize, record.size());
}

TEST(CheckDescriptor, ShortHeader) {
  Bytes file = descriptorOf(sampleRecord());
  file.resize(31);
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::ShortHeader);
  EXPECT_EQ(c.problem, L"the file is 31 bytes long, shorter than the 32-byte header");
}

TEST(CheckDescriptor, EmptyFile) {
  EXPECT_EQ(CheckDescriptor(nullptr, 0).fault, DescriptorFault::ShortHeader);
}

TEST(CheckDescriptor, WrongMagic) {
  Bytes file = descriptorOf(sampleRecord());
  put32(file, 0, 0x86888445);
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::BadMagic);
  EXPECT_EQ(c.problem,
            L"the file does not begin with the descriptor magic number 0x86888444 (it has 0x86888445)");
}

TEST(CheckDescriptor, WrongHeaderSize) {
  Bytes file = descriptorOf(sampleRecord());
  put32(file, 4, 64);
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::BadHeaderSize);
  EXPECT_EQ(c.problem, L"the header gives its size as 64 bytes, not 32");
}

TEST(CheckDescriptor, Truncated) {
  Bytes file = descriptorOf(Bytes(100, 1));
  file.pop_back();
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::Truncated);
  EXPECT_EQ(c.problem, L"the file is 131 bytes long, but its header promises 132 (32 + a 100-byte settings record)");
}

TEST(CheckDescriptor, HugePayloadSizeIsTruncatedNotAnOverflow) {
  Bytes file = descriptorOf(Bytes(100, 1));
  put32(file, 8, 0xFFFFFFF0u);
  EXPECT_EQ(check(file).fault, DescriptorFault::Truncated);
}

TEST(CheckDescriptor, ExtraBytes) {
  Bytes file = descriptorOf(Bytes(100, 1));
  file.push_back(0);
  file.push_back(0);
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::ExtraBytes);
  EXPECT_EQ(c.problem, L"the file is 134 bytes long: 2 bytes follow the 100-byte settings record its header announces");
}

TEST(CheckDescriptor, WrongChecksum) {
  Bytes file = descriptorOf(sampleRecord());
  file[40] ^= 0x01;  // one payload byte changed
  const DescriptorCheck c = check(file);
  EXPECT_EQ(c.fault, DescriptorFault::BadChecksum);
  EXPECT_TRUE(mentions(c, L"the header's checksum is 0x")) << std::string(c.problem.begin(), c.problem.end());
}

TEST(CheckDescriptor, PayloadLeftUninvertedFailsTheChecksum) {
  Bytes record = sampleRecord();
  Bytes file = descriptorOf(record);
  std::copy(record.begin(), record.end(), file.begin() + 32);
  EXPECT_EQ(check(file).fault, DescriptorFault::BadChecksum);
}

TEST(CheckDescriptor, RecordShorterThanItsHeader) {
  const DescriptorCheck c = check(descriptorOf(Bytes(63, 0)));
  EXPECT_EQ(c.fault, DescriptorFault::RecordTooShort);
  EXPECT_EQ(c.problem, L"the settings record is 63 bytes long, shorter than its 64-byte header");
}

TEST(CheckDescriptor, RecordHeaderSize) {
  Bytes record = sampleRecord();
  put32(record, 0, 60);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::RecordHeaderSize);
  EXPECT_EQ(c.problem, L"the settings record gives its header size as 60 bytes, not 64");
}

TEST(CheckDescriptor, RecordLengthDisagreesWithThePayload) {
  Bytes record = sampleRecord();
  put32(record, 4, record.size() + 8);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::RecordLength);
  EXPECT_TRUE(mentions(c, L"the settings record gives its length as"));
}

TEST(CheckDescriptor, RecordChecksum) {
  Bytes record = sampleRecord();
  put32(record, 8, get32(record, 8) + 1);
  const DescriptorCheck c = check(descriptorOfRaw(record));
  EXPECT_EQ(c.fault, DescriptorFault::RecordChecksum);
  EXPECT_TRUE(mentions(c, L"the settings record's own checksum is 0x"));
}

TEST(CheckDescriptor, SectionOffsetPastTheEnd) {
  Bytes record = sampleRecord();
  put16(record, 48, record.size());  // the image section starts at the end
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::SectionOutside);
  EXPECT_TRUE(mentions(c, L"the image section (offset ")) << std::string(c.problem.begin(), c.problem.end());
}

TEST(CheckDescriptor, SectionInsideTheHeader) {
  Bytes record = sampleRecord();
  put16(record, 40, 8);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::SectionOutside);
  EXPECT_TRUE(mentions(c, L"the substance section (offset 8, "));
}

TEST(CheckDescriptor, SectionShorterThanItsFixedPart) {
  Bytes record = sampleRecord();
  put16(record, 46, 40);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::SectionTooShort);
  EXPECT_EQ(c.problem, L"the format section is 40 bytes long, shorter than its 44-byte fixed part");
}

TEST(CheckDescriptor, SectionFixedSizeField) {
  Bytes record = sampleRecord();
  put32(record, get16(record, 48), 44);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::SectionSize);
  EXPECT_EQ(c.problem, L"the image section gives its fixed part as 44 bytes, not 40");
}

TEST(CheckDescriptor, SectionLengthDisagreesWithTheHeader) {
  Bytes record = sampleRecord();
  const std::size_t at = get16(record, 44);
  put32(record, at + 4, get32(record, at + 4) + 2);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::SectionLength);
  EXPECT_TRUE(mentions(c, L"the format section gives its length as "));
}

TEST(CheckDescriptor, LabelRunsPastItsSection) {
  Bytes record = sampleRecord();
  const std::size_t at = get16(record, 44);
  put16(record, at + 40, 400);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::StringOutside);
  EXPECT_TRUE(mentions(c, L"the volume label of the format section (400 bytes at offset 42)"));
}

TEST(CheckDescriptor, ImagePathWithoutItsTerminator) {
  Bytes record = sampleRecord();
  const std::size_t at = get16(record, 48);
  put16(record, at + 36, get16(record, at + 36) - 2);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::StringUnterminated);
  EXPECT_TRUE(mentions(c, L"the image path of the image section"));
}

TEST(CheckDescriptor, FolderListOutsideItsSection) {
  Bytes record = sampleRecord();
  const std::size_t at = get16(record, 44);
  put16(record, at + 22, 0xFFF0);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::StringOutside);
  EXPECT_TRUE(mentions(c, L"the custom-folder list of the format section"));
}

TEST(CheckDescriptor, NodeMasksOutsideTheirSection) {
  Bytes record = sampleRecord();
  const std::size_t at = get16(record, 40);
  put16(record, at + 14, 200);
  const DescriptorCheck c = check(descriptorOfRaw(resealed(record)));
  EXPECT_EQ(c.fault, DescriptorFault::MasksOutside);
  EXPECT_TRUE(mentions(c, L"the 200 node masks of the substance section"));
}

TEST(CheckDescriptor, AbsentSectionsAreFine) {
  const Bytes record = sim::buildRecord({{"sizeMb", 64}});
  EXPECT_TRUE(check(descriptorOf(record)).valid());
}

}  // namespace descriptor_file_test
}  // namespace vmd
