#include "descriptor/descriptor_tool.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "platform/host.h"
#include "settings/descriptor_file.h"
#include "settings/settings_record.h"
#include "sim/record_layout.h"
#include "support/fakes.h"

namespace vmd {
namespace descriptor_reader_test {

using sim::json;

// Files by path; anything else cannot be opened.
class StoredFiles : public FileService {
 public:
  SysResult<std::uint32_t> attributes(const std::wstring& path) override {
    if (!files.count(path)) return SysResult<std::uint32_t>::failure(2, InvalidFileAttributes);
    return SysResult<std::uint32_t>::success(0x80);
  }
  SysResult<std::uint64_t> fileSize(const std::wstring& path) override {
    auto it = files.find(path);
    if (it == files.end()) return SysResult<std::uint64_t>::failure(2);
    return SysResult<std::uint64_t>::success(it->second.size());
  }
  SysResult<Bytes> readHead(const std::wstring& path, std::uint32_t count) override {
    auto it = files.find(path);
    if (it == files.end() || unreadable) return SysResult<Bytes>::failure(30);  // ERROR_READ_FAULT
    return SysResult<Bytes>::success(
        Bytes(it->second.begin(), it->second.begin() + std::min<std::size_t>(count, it->second.size())));
  }
  SysStatus writeWhole(const std::wstring&, const Bytes&) override { return SysStatus::failure(110); }
  SysResult<bool> pathIsDirectory(const std::wstring&) override { return SysResult<bool>::success(false); }

  std::map<std::wstring, Bytes> files;
  bool unreadable = false;
};

class Reader {
 public:
  Reader() : catalog(makeHostCatalog()), out(streams, *catalog, keys) {}

  int run(std::vector<std::wstring> args) {
    args.insert(args.begin(), L"vddinfo");
    std::vector<wchar_t*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    return runDescriptorReader(static_cast<int>(args.size()), argv.data(), files, out);
  }

  StoredFiles files;
  test::CapturingStreams streams;
  std::unique_ptr<MessageCatalog> catalog;
  test::ScriptedKeys keys;
  Output out;
};

Bytes descriptorFor(const json& settings, std::uint16_t letter = L'R', std::uint16_t variant = 1) {
  Bytes record = sim::buildRecord(settings);
  return BuildDescriptorBytes(record, descriptor::Magic, variant, letter);
}

TEST(DescriptorReader, ShowsHeaderSettingsAndTheAddLine) {
  Reader r;
  r.files.files[L"C:\\d.vdd"] = descriptorFor({{"sizeMb", 256}, {"driveLetter", "R"}, {"fileSystem", 2},
                                               {"volumeLabel", "My Disk"}, {"fsFlags", 2}},
                                              L'S', 0x0102);
  const std::size_t recordBytes = r.files.files[L"C:\\d.vdd"].size() - 32;
  EXPECT_EQ(r.run({L"C:\\d.vdd"}), 0);
  EXPECT_EQ(r.streams.err, L"");
  const std::wstring& out = r.streams.out;
  EXPECT_EQ(out.find(L"Disk descriptor file: C:\\d.vdd\n"), 0u);
  EXPECT_NE(out.find(L"Settings record: " + std::to_wstring(recordBytes) + L" bytes, checksum 0x"), std::wstring::npos);
  EXPECT_NE(out.find(L"Variant code: 0x0102\nDrive letter: S\n"), std::wstring::npos);
  EXPECT_NE(out.find(L"\nDisk Settings\n-------"), std::wstring::npos);
  EXPECT_NE(out.find(L"Disk size: 256 MB\n"), std::wstring::npos);
  EXPECT_NE(out.find(L"Drive letter: R\n"), std::wstring::npos);  // the settings' own letter
  EXPECT_NE(out.find(L"File system: NTFS\n"), std::wstring::npos);
  EXPECT_NE(out.find(L"Volume label: My Disk\n"), std::wstring::npos);
  EXPECT_NE(out.find(L"\nCommand line to create this disk:\nvmdctl add -n 256 -d S -f ntfs -l \"My Disk\" -T\n"),
            std::wstring::npos)
      << std::string(out.begin(), out.end());
}

TEST(DescriptorReader, LetterFromTheSettingsWhenTheHeaderHasNone) {
  Reader r;
  r.files.files[L"d.vdd"] = descriptorFor({{"sizeMb", 64}, {"driveLetter", "T"}}, 0);
  EXPECT_EQ(r.run({L"d.vdd"}), 0);
  EXPECT_NE(r.streams.out.find(L"Drive letter: -\n"), std::wstring::npos);
  EXPECT_NE(r.streams.out.find(L"vmdctl add -n 64 -d T "), std::wstring::npos);
}

TEST(DescriptorReader, HeaderLetterThatIsNoLetter) {
  Reader r;
  r.files.files[L"d.vdd"] = descriptorFor({{"sizeMb", 64}}, 0xFFC8);
  EXPECT_EQ(r.run({L"d.vdd"}), 0);
  EXPECT_NE(r.streams.out.find(L"Drive letter: - (the header holds 0xFFC8)\n"), std::wstring::npos);
}

TEST(DescriptorReader, DamagedFileNamesItsFault) {
  Reader r;
  Bytes file = descriptorFor({{"sizeMb", 64}});
  put32(file, 0, 0x12345678);
  r.files.files[L"bad.vdd"] = file;
  EXPECT_EQ(r.run({L"bad.vdd"}), 3);
  EXPECT_EQ(r.streams.out, L"");
  EXPECT_EQ(r.streams.err,
            L"Error: 'bad.vdd' is not a valid disk descriptor file: the file does not begin with the descriptor "
            L"magic number 0x86888444 (it has 0x12345678)!\n");
}

TEST(DescriptorReader, TruncatedFile) {
  Reader r;
  Bytes file = descriptorFor({{"sizeMb", 64}});
  file.resize(file.size() - 1);
  r.files.files[L"cut.vdd"] = file;
  EXPECT_EQ(r.run({L"cut.vdd"}), 3);
  EXPECT_NE(r.streams.err.find(L"but its header promises"), std::wstring::npos);
}

TEST(DescriptorReader, MissingFile) {
  Reader r;
  EXPECT_EQ(r.run({L"none.vdd"}), 3);
  EXPECT_EQ(r.streams.err, L"Error: cannot open file 'none.vdd' (0x00000002)!\n");
}

TEST(DescriptorReader, UnreadableFile) {
  Reader r;
  r.files.files[L"d.vdd"] = descriptorFor({{"sizeMb", 64}});
  r.files.unreadable = true;
  EXPECT_EQ(r.run({L"d.vdd"}), 3);
  EXPECT_EQ(r.streams.err, L"Error: cannot read file 'd.vdd'!\n");
}

TEST(DescriptorReader, NoArgumentIsInvalidUse) {
  Reader r;
  EXPECT_EQ(r.run({}), 2);
  EXPECT_EQ(r.streams.err,
            L"Error: please specify the descriptor file!\nUsage: vddinfo <file>\nFor more information, type: "
            L"vddinfo -?\n");
}

TEST(DescriptorReader, TwoFilesAreInvalidUse) {
  Reader r;
  EXPECT_EQ(r.run({L"a.vdd", L"b.vdd"}), 2);
  EXPECT_EQ(r.streams.err.find(L"Error: only one file can be read at a time!\n"), 0u);
}

TEST(DescriptorReader, UnknownOptionIsInvalidUse) {
  Reader r;
  EXPECT_EQ(r.run({L"-x"}), 2);
  EXPECT_EQ(r.streams.err.find(L"Error: unknown option '-x'!\n"), 0u);
}

TEST(DescriptorReader, HelpGoesToStandardOutput) {
  for (const wchar_t* h : {L"-?", L"/?", L"-h", L"-H", L"--help"}) {
    Reader r;
    EXPECT_EQ(r.run({h}), 0);
    EXPECT_EQ(r.streams.out.find(L"vddinfo: checks a Tarnby Ramdisk disk descriptor file"), 0u);
    EXPECT_EQ(r.streams.err, L"");
  }
}

// ---- Quoting -------------------------------------------------------------

TEST(QuoteArgument, PlainTextStaysAsItIs) {
  EXPECT_EQ(QuoteArgument(L"C:\\img\\disk.img"), L"C:\\img\\disk.img");
  EXPECT_EQ(QuoteArgument(L"compr?5"), L"compr?5");
}

TEST(QuoteArgument, BlanksAndEmptyTextAreQuoted) {
  EXPECT_EQ(QuoteArgument(L"C:\\My Images\\a.img"), L"\"C:\\My Images\\a.img\"");
  EXPECT_EQ(QuoteArgument(L""), L"\"\"");
  EXPECT_EQ(QuoteArgument(L"a\tb"), L"\"a\tb\"");
}

TEST(QuoteArgument, QuotesAndTheBackslashesBeforeThem) {
  EXPECT_EQ(QuoteArgument(L"say \"hi\""), L"\"say \\\"hi\\\"\"");
  EXPECT_EQ(QuoteArgument(L"a\\\"b"), L"\"a\\\\\\\"b\"");
  // Trailing backslashes are doubled before the closing quote.
  EXPECT_EQ(QuoteArgument(L"C:\\My Dir\\"), L"\"C:\\My Dir\\\\\"");
  // Backslashes elsewhere are left alone.
  EXPECT_EQ(QuoteArgument(L"a\\\\b c"), L"\"a\\\\b c\"");
}

// ---- The add command line -------------------------------------------------

TEST(AddCommandLine, DefaultsOfANewDisk) {
  EXPECT_EQ(AddCommandLine(DiskSettings{}, 0), L"vmdctl add -n 128 -f fat32 -l RAMDISK");
}

TEST(AddCommandLine, EveryOption) {
  DiskSettings s;
  s.sizeMb = 8192;
  s.diskFlags = diskflag::DirectIo | diskflag::OneTime;
  s.substanceFlags = substance::Dmm | substance::DmmCompact | substance::InvisibleMemory;
  s.imQuotaMb = 1024;
  s.physicalDriveSizeMb = 3072;
  s.physicalDriveFile = L"D:\\hybrid files\\h.hbd";
  s.fileSystem = filesystem::Ntfs;
  s.clusterSize = 4096;
  s.volumeLabel = L"SCRATCH";
  s.fsFlags = fsflag::Compress | fsflag::NoIndexing | fsflag::TempFolder;
  s.everyonePermissions = permission::Modify;
  s.customFolderCount = 2;
  s.customFolders[0] = L"a";
  s.customFolders[1] = L"b c";
  s.volumeSerial = 0x1A2B3C4D;
  s.imageFile = L"E:\\img.img";
  s.imageFlags = imageflag::TimingSave | imageflag::DelayLoad;
  s.imageFormat = imageformat::Compr;
  s.compressionLevel = 9;
  s.timingSaveMinutes = 10;
  s.numaNodeMasks = {0x25};
  EXPECT_EQ(AddCommandLine(s, L'R'),
            L"vmdctl add -n 8192 -t dio -d R -v -m=compact -i=1024 -p \"D:\\hybrid files\\h.hbd?3072\" -f ntfs "
            L"-c 4096 -l SCRATCH -X -N -T -Q m -r \"a?b c\" -z 1A2B3C4D -I E:\\img.img -D -F compr?9 -K 10 "
            L"-e 0,2,5");
}

TEST(AddCommandLine, LoadOnlyImageHasNoSaveOptions) {
  DiskSettings s;
  s.imageFile = L"E:\\img.img";
  s.loadOnly = 1;
  s.imageFormat = imageformat::Smart;
  EXPECT_EQ(AddCommandLine(s, 0), L"vmdctl add -n 128 -f fat32 -l RAMDISK -I E:\\img.img -L");
}

TEST(AddCommandLine, PermissionTokens) {
  DiskSettings s;
  s.everyonePermissions = permission::Full;
  EXPECT_NE(AddCommandLine(s, 0).find(L" -Q f"), std::wstring::npos);
  s.everyonePermissions = permission::Write | permission::ReadExec;
  EXPECT_NE(AddCommandLine(s, 0).find(L" -Q w?x"), std::wstring::npos);
  s.everyonePermissions = permission::ReadExec;
  EXPECT_NE(AddCommandLine(s, 0).find(L" -Q x"), std::wstring::npos);
}

TEST(AddCommandLine, EmptyLabelIsQuoted) {
  DiskSettings s;
  s.volumeLabel.clear();
  EXPECT_EQ(AddCommandLine(s, 0), L"vmdctl add -n 128 -f fat32 -l \"\"");
}

}  // namespace descriptor_reader_test
}  // namespace vmd
