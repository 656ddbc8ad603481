#include "settings/disk_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/sim_app.h"

namespace vmd {
namespace disk_options_test {

using test::Args;
using test::SimApp;

struct Parsed {
  DiskSettings settings;
  std::uint32_t silent = 99;
  std::uint32_t saveBeforeRemoval = 99;
  std::wstring err;
};

Parsed parse(std::vector<std::wstring> args, DiskSettings start = {}, bool withSaveFlag = true) {
  SimApp sim;
  Args a(std::move(args));
  Parsed p;
  p.settings = start;
  ParseDiskOptions(sim.app, a.argc(), a.argv(), p.settings, p.silent, withSaveFlag ? &p.saveBeforeRemoval : nullptr);
  p.err = sim.err();
  return p;
}

DiskSettings settingsOf(std::vector<std::wstring> args, DiskSettings start = {}) {
  return parse(std::move(args), start).settings;
}

TEST(DiskOptionTable, OptionStringAndLongNamesInOrder) {
  EXPECT_STREQ(kDiskOptionString, L"n:t:d:v::m::i::p:f:c:l:X::N::Q:T::r:z:I:L::D::F:K:sge:");
  const struct {
    const wchar_t* name;
    int hasArg;
    wchar_t letter;
  } expected[] = {
      {L"size", 1, L'n'},   {L"type", 1, L't'},   {L"drive", 1, L'd'},  {L"volatile", 2, L'v'}, {L"dmm", 2, L'm'},
      {L"im", 2, L'i'},     {L"pd", 1, L'p'},     {L"fs", 1, L'f'},     {L"clus", 1, L'c'},     {L"label", 1, L'l'},
      {L"nc", 2, L'X'},     {L"nni", 2, L'N'},    {L"np", 1, L'Q'},     {L"temp", 2, L'T'},     {L"dir", 1, L'r'},
      {L"vsn", 1, L'z'},    {L"image", 1, L'I'},  {L"nosave", 2, L'L'}, {L"delay", 2, L'D'},    {L"format", 1, L'F'},
      {L"timing", 1, L'K'}, {L"silent", 0, L's'}, {L"skipsave", 0, L'g'}, {L"node", 1, L'e'},
  };
  int n = 0;
  for (const LongOption* o = kDiskLongOptions; o->name; ++o, ++n) {
    ASSERT_LT(n, 24);
    EXPECT_STREQ(o->name, expected[n].name);
    EXPECT_EQ(o->hasArg, expected[n].hasArg) << n;
    EXPECT_EQ(o->flag, nullptr);
    EXPECT_EQ(o->val, expected[n].letter) << n;
  }
  EXPECT_EQ(n, 24);
}

TEST(ParseDiskOptions, NoOptionsLeaveTheSettingsAndSetTheFlags) {
  const Parsed p = parse({});
  EXPECT_EQ(p.settings, DiskSettings{});
  EXPECT_EQ(p.silent, 0u);
  EXPECT_EQ(p.saveBeforeRemoval, 1u);
  EXPECT_EQ(p.err, L"");
}

TEST(ParseDiskOptions, SilentAndSkipSave) {
  const Parsed p = parse({L"-s", L"-g"});
  EXPECT_EQ(p.silent, 1u);
  EXPECT_EQ(p.saveBeforeRemoval, 0u);
  const Parsed q = parse({L"-silent", L"-skipsave"}, {}, false);
  EXPECT_EQ(q.silent, 1u);
  EXPECT_EQ(q.err, L"");  // -g is accepted without a place for its flag
}

TEST(ParseDiskOptions, SizeIsALenientInteger) {
  EXPECT_EQ(settingsOf({L"-n", L"256"}).sizeMb, 256u);
  EXPECT_EQ(settingsOf({L"-size", L"512"}).sizeMb, 512u);
  EXPECT_EQ(settingsOf({L"-n=64"}).sizeMb, 64u);
  EXPECT_EQ(settingsOf({L"-n", L"4KB"}).sizeMb, 4u);
  EXPECT_EQ(settingsOf({L"-n", L"abc"}).sizeMb, 0u);
  EXPECT_EQ(settingsOf({L"-n", L"-5"}).sizeMb, static_cast<std::uint32_t>(-5));
}

TEST(ParseDiskOptions, TypeWordsGiveScsiOrDirectIo) {
  DiskSettings dio;
  dio.diskFlags = diskflag::DirectIo | 0x10;
  for (const wchar_t* word : {L"scsi", L"SCSI", L"xyz", L""})
    EXPECT_EQ(settingsOf({L"-t", word}, dio).diskFlags, 0x10u) << word;
  for (const wchar_t* word : {L"D", L"d", L"DIO", L"dio"})
    EXPECT_EQ(settingsOf({L"-t", word}).diskFlags, diskflag::DirectIo) << word;
}

TEST(ParseDiskOptions, DriveLetterIsTheFirstCharacterInUpperCase) {
  EXPECT_EQ(settingsOf({L"-d", L"e"}).driveLetter, L'E');
  EXPECT_EQ(settingsOf({L"-d", L"R:"}).driveLetter, L'R');
  EXPECT_EQ(settingsOf({L"-d", L"5"}).driveLetter, L'5');
  DiskSettings lettered;
  lettered.driveLetter = L'Q';
  EXPECT_EQ(settingsOf({L"-d", L""}, lettered).driveLetter, 0);
}

TEST(ParseDiskOptions, OptionalSwitchesTurnOnWithoutValueAndOffWithZero) {
  EXPECT_EQ(settingsOf({L"-v"}).diskFlags, diskflag::OneTime);
  EXPECT_EQ(settingsOf({L"-v=1"}).diskFlags, diskflag::OneTime);
  EXPECT_EQ(settingsOf({L"-volatile=7"}).diskFlags, diskflag::OneTime);
  DiskSettings on;
  on.diskFlags = diskflag::OneTime;
  EXPECT_EQ(settingsOf({L"-v=0"}, on).diskFlags, 0u);
  EXPECT_EQ(settingsOf({L"-volatile=yes"}, on).diskFlags, 0u);  // "yes" reads as the number 0

  const DiskSettings fs = settingsOf({L"-X", L"-N", L"-T"});
  EXPECT_EQ(fs.fsFlags, fsflag::Compress | fsflag::NoIndexing | fsflag::TempFolder);
  EXPECT_EQ(settingsOf({L"-X=0", L"-N=0", L"-T=0"}, fs).fsFlags, 0);
  EXPECT_EQ(settingsOf({L"-nc", L"-nni=1"}).fsFlags, fsflag::Compress | fsflag::NoIndexing);

  EXPECT_EQ(settingsOf({L"-L"}).loadOnly, 1u);
  DiskSettings loadOnly;
  loadOnly.loadOnly = 1;
  EXPECT_EQ(settingsOf({L"-nosave=0"}, loadOnly).loadOnly, 0u);

  EXPECT_EQ(settingsOf({L"-D"}).imageFlags, imageflag::DelayLoad);
  DiskSettings delayed;
  delayed.imageFlags = imageflag::DelayLoad | imageflag::SaveAtShutdown;
  EXPECT_EQ(settingsOf({L"-delay=0"}, delayed).imageFlags, imageflag::SaveAtShutdown);
}

TEST(ParseDiskOptions, OptionalValueIsNeverTakenFromTheNextArgument) {
  const Parsed p = parse({L"-m", L"compact"});
  EXPECT_EQ(p.settings.substanceFlags, substance::Dmm);
  EXPECT_EQ(p.err, L"Warning: argument 'compact' is unrecognized and ignored!\n");
}

TEST(ParseDiskOptions, DmmWords) {
  for (const wchar_t* a : {L"-m=normal", L"-m", L"-m=5", L"-dmm=NORMAL"}) {
    DiskSettings compact;
    compact.substanceFlags = substance::Dmm | substance::DmmCompact;
    EXPECT_EQ(settingsOf({a}, compact).substanceFlags, substance::Dmm) << a;
  }
  EXPECT_EQ(settingsOf({L"-m=compact"}).substanceFlags, substance::Dmm | substance::DmmCompact);
  EXPECT_EQ(settingsOf({L"-m=Compact"}).substanceFlags, substance::Dmm | substance::DmmCompact);
  DiskSettings on;
  on.substanceFlags = substance::Dmm | substance::DmmCompact | substance::InvisibleMemory;
  EXPECT_EQ(settingsOf({L"-m=0"}, on).substanceFlags, substance::InvisibleMemory);
  EXPECT_EQ(settingsOf({L"-m=off"}, on).substanceFlags, substance::InvisibleMemory);
}

TEST(ParseDiskOptions, InvisibleMemoryAndQuota) {
  const DiskSettings all = settingsOf({L"-i"});
  EXPECT_EQ(all.substanceFlags, substance::InvisibleMemory);
  EXPECT_EQ(all.imQuotaMb, 0u);
  const DiskSettings quota = settingsOf({L"-i=1024"});
  EXPECT_EQ(quota.substanceFlags, substance::InvisibleMemory);
  EXPECT_EQ(quota.imQuotaMb, 1024u);
  const DiskSettings viaLong = settingsOf({L"-im=512"});
  EXPECT_EQ(viaLong.imQuotaMb, 512u);
  const DiskSettings off = settingsOf({L"-i=0"}, quota);
  EXPECT_EQ(off.substanceFlags, 0u);
  EXPECT_EQ(off.imQuotaMb, 0u);
  DiskSettings withQuota = quota;
  EXPECT_EQ(settingsOf({L"-i"}, withQuota).imQuotaMb, 0u);
}

TEST(ParseDiskOptions, PhysicalDriveFileAndShare) {
  const DiskSettings sized = settingsOf({L"-p", L"c:\\hybrid.hbd?3072"});
  EXPECT_EQ(sized.physicalDriveFile, L"c:\\hybrid.hbd");
  EXPECT_EQ(sized.physicalDriveSizeMb, 3072u);
  const DiskSettings whole = settingsOf({L"-p", L"c:\\hybrid.hbd"});
  EXPECT_EQ(whole.physicalDriveFile, L"c:\\hybrid.hbd");
  EXPECT_EQ(whole.physicalDriveSizeMb, kDriveShareWholeDisk);
  const DiskSettings lastMark = settingsOf({L"-pd", L"c:\\a?b?12"});
  EXPECT_EQ(lastMark.physicalDriveFile, L"c:\\a?b");
  EXPECT_EQ(lastMark.physicalDriveSizeMb, 12u);
  const DiskSettings noSize = settingsOf({L"-p", L"c:\\x?"});
  EXPECT_EQ(noSize.physicalDriveFile, L"c:\\x");
  EXPECT_EQ(noSize.physicalDriveSizeMb, 0u);
}

TEST(ParseDiskOptions, FileSystemWords) {
  EXPECT_EQ(settingsOf({L"-f", L"FAT"}).fileSystem, filesystem::Fat);
  EXPECT_EQ(settingsOf({L"-f", L"fat"}).fileSystem, filesystem::Fat);
  DiskSettings ntfs;
  ntfs.fileSystem = filesystem::Ntfs;
  for (const wchar_t* word : {L"fat32", L"FAT16", L"exfat", L""})
    EXPECT_EQ(settingsOf({L"-f", word}, ntfs).fileSystem, filesystem::Fat32) << word;
  EXPECT_EQ(settingsOf({L"-f", L"NTFS"}).fileSystem, filesystem::Ntfs);
  EXPECT_EQ(settingsOf({L"-fs", L"ntfs"}).fileSystem, filesystem::Ntfs);
}

TEST(ParseDiskOptions, ClusterSizeSmallNumbersAreKilobytes) {
  EXPECT_EQ(settingsOf({L"-c", L"4KB"}).clusterSize, 4096u);
  EXPECT_EQ(settingsOf({L"-c", L"4"}).clusterSize, 4096u);
  EXPECT_EQ(settingsOf({L"-c", L"512"}).clusterSize, 512u);
  DiskSettings set;
  set.clusterSize = 4096;
  EXPECT_EQ(settingsOf({L"-c", L"0"}, set).clusterSize, 0u);
  EXPECT_EQ(settingsOf({L"-c", L"511"}).clusterSize, 523264u);
  EXPECT_EQ(settingsOf({L"-c", L"1024"}).clusterSize, 1024u);
  EXPECT_EQ(settingsOf({L"-c", L"1"}).clusterSize, 1024u);
  EXPECT_EQ(settingsOf({L"-clus", L"64"}).clusterSize, 65536u);
}

TEST(ParseDiskOptions, LabelAsGiven) {
  EXPECT_EQ(settingsOf({L"-l", L"My Disk"}).volumeLabel, L"My Disk");
  EXPECT_EQ(settingsOf({L"-label", L""}).volumeLabel, L"");
}

TEST(ParseDiskOptions, PermissionTokens) {
  EXPECT_EQ(settingsOf({L"-Q", L"x?w"}).everyonePermissions, 0x24);
  EXPECT_EQ(settingsOf({L"-Q", L"m?f?x"}).everyonePermissions, 0x27);
  EXPECT_EQ(settingsOf({L"-Q", L"f?x"}).everyonePermissions, 0x27);
  EXPECT_EQ(settingsOf({L"-Q", L"x??W"}).everyonePermissions, 0x24);
  EXPECT_EQ(settingsOf({L"-Q", L"?M?"}).everyonePermissions, 0x26);
  DiskSettings set;
  set.everyonePermissions = 0x27;
  EXPECT_EQ(settingsOf({L"-Q", L"0"}, set).everyonePermissions, 0);
  EXPECT_EQ(settingsOf({L"-Q", L"full"}, set).everyonePermissions, 0);
  EXPECT_EQ(settingsOf({L"-np", L"xw?r"}).everyonePermissions, 0);
}

TEST(ParseDiskOptions, FoldersSplitAtQuestionMarks) {
  const Parsed p = parse({L"-r", L"aaa?bbb?ccc"});
  EXPECT_EQ(p.settings.customFolderCount, 3u);
  EXPECT_EQ(p.settings.customFolders[0], L"aaa");
  EXPECT_EQ(p.settings.customFolders[1], L"bbb");
  EXPECT_EQ(p.settings.customFolders[2], L"ccc");
  EXPECT_EQ(p.err, L"");
}

TEST(ParseDiskOptions, RejectedFolderIsReportedAndSkipped) {
  const Parsed p = parse({L"-r", L"temp?bbb"});
  EXPECT_EQ(p.settings.customFolderCount, 1u);
  EXPECT_EQ(p.settings.customFolders[0], L"bbb");
  EXPECT_EQ(p.err, L"Warning: custom folder 'temp' is invalid or duplicate!\n");
}

TEST(ParseDiskOptions, LastFolderIsNeverChecked) {
  const Parsed p = parse({L"-r", L"bbb?temp"});
  EXPECT_EQ(p.settings.customFolderCount, 2u);
  EXPECT_EQ(p.settings.customFolders[1], L"temp");
  EXPECT_EQ(p.err, L"");
  const Parsed q = parse({L"-r", L" .x. "});
  EXPECT_EQ(q.settings.customFolders[0], L" .x. ");  // not trimmed either
}

TEST(ParseDiskOptions, DuplicateFolderWarnsOnce) {
  const Parsed p = parse({L"-r", L"a?A?b"});
  EXPECT_EQ(p.settings.customFolderCount, 2u);
  EXPECT_EQ(p.settings.customFolders[0], L"a");
  EXPECT_EQ(p.settings.customFolders[1], L"b");
  EXPECT_EQ(p.err, L"Warning: custom folder 'A' is invalid or duplicate!\n");
}

TEST(ParseDiskOptions, RunsOfQuestionMarksAreOneSeparator) {
  const Parsed p = parse({L"-r", L"??x??"});
  EXPECT_EQ(p.settings.customFolderCount, 1u);
  EXPECT_EQ(p.settings.customFolders[0], L"x");
  EXPECT_EQ(p.err, L"");
}

TEST(ParseDiskOptions, CheckedFolderIsTrimmedAndTheWarningShowsItTrimmed) {
  const Parsed p = parse({L"-r", L" . kept . ?$bad. ?..?z"});
  EXPECT_EQ(p.settings.customFolderCount, 2u);
  EXPECT_EQ(p.settings.customFolders[0], L"kept");
  EXPECT_EQ(p.settings.customFolders[1], L"z");
  EXPECT_EQ(p.err,
            L"Warning: custom folder '$bad' is invalid or duplicate!\n"
            L"Warning: custom folder '' is invalid or duplicate!\n");
}

TEST(ParseDiskOptions, EmptyFolderListClearsTheFolders) {
  DiskSettings set;
  set.customFolderCount = 2;
  set.customFolders[0] = L"a";
  set.customFolders[1] = L"b";
  const DiskSettings s = settingsOf({L"-r", L""}, set);
  EXPECT_EQ(s.customFolderCount, 0u);
  EXPECT_EQ(s.customFolders[0], L"");
  EXPECT_EQ(s.customFolders[1], L"");
}

TEST(ParseDiskOptions, FoldersBeyondTheTenthAreDroppedSilently) {
  const Parsed p = parse({L"-dir", L"a?b?c?d?e?f?g?h?i?j?k?l"});
  EXPECT_EQ(p.settings.customFolderCount, 10u);
  EXPECT_EQ(p.settings.customFolders[9], L"j");
  EXPECT_EQ(p.err, L"");
}

TEST(ParseDiskOptions, SerialIsHexadecimalUpToTheFirstOtherCharacter) {
  EXPECT_EQ(settingsOf({L"-z", L"1A2B-3C4D"}).volumeSerial, 0x1A2Bu);
  EXPECT_EQ(settingsOf({L"-z", L"1a2b3c4d"}).volumeSerial, 0x1A2B3C4Du);
  EXPECT_EQ(settingsOf({L"-vsn", L"0x10"}).volumeSerial, 0x10u);
  EXPECT_EQ(settingsOf({L"-z", L"zz"}).volumeSerial, 0u);
  EXPECT_EQ(settingsOf({L"-z", L"123456789"}).volumeSerial, 0xFFFFFFFFu);
}

TEST(ParseDiskOptions, ImageFileAsGivenAndEmptyRemovesIt) {
  EXPECT_EQ(settingsOf({L"-I", L"d:\\disk.img"}).imageFile, L"d:\\disk.img");
  DiskSettings set;
  set.imageFile = L"d:\\disk.img";
  EXPECT_EQ(settingsOf({L"-image", L""}, set).imageFile, L"");
}

TEST(ParseDiskOptions, ImageFormatWords) {
  const DiskSettings compr = settingsOf({L"-F", L"compr"});
  EXPECT_EQ(compr.imageFormat, imageformat::Compr);
  EXPECT_EQ(compr.compressionLevel, 0u);
  const DiskSettings two = settingsOf({L"-F", L"compr?2"});
  EXPECT_EQ(two.imageFormat, imageformat::Compr);
  EXPECT_EQ(two.compressionLevel, 2u);
  const DiskSettings upper = settingsOf({L"-format", L"Compr?5"});
  EXPECT_EQ(upper.imageFormat, imageformat::Compr);
  EXPECT_EQ(upper.compressionLevel, 5u);
  EXPECT_EQ(settingsOf({L"-F", L"compr?x"}).compressionLevel, 0u);
  EXPECT_EQ(settingsOf({L"-F", L"compressed"}, compr).imageFormat, imageformat::Plain);
  EXPECT_EQ(settingsOf({L"-F", L"smart"}).imageFormat, imageformat::Smart);
  EXPECT_EQ(settingsOf({L"-F", L"SMART"}).imageFormat, imageformat::Smart);
  EXPECT_EQ(settingsOf({L"-F", L"plain"}, compr).imageFormat, imageformat::Plain);
  EXPECT_EQ(settingsOf({L"-F", L"smarter"}, compr).imageFormat, imageformat::Plain);
  // A format without a level leaves the level as it was.
  EXPECT_EQ(settingsOf({L"-F", L"smart"}, two).compressionLevel, 2u);
}

TEST(ParseDiskOptions, TimingSaveMinutesAndBit) {
  const DiskSettings timed = settingsOf({L"-K", L"30"});
  EXPECT_EQ(timed.timingSaveMinutes, 30u);
  EXPECT_EQ(timed.imageFlags, imageflag::TimingSave);
  const DiskSettings off = settingsOf({L"-timing", L"0"}, timed);
  EXPECT_EQ(off.timingSaveMinutes, 0u);
  EXPECT_EQ(off.imageFlags, 0u);
  EXPECT_EQ(settingsOf({L"-K=5"}).timingSaveMinutes, 5u);
}

TEST(ParseDiskOptions, NodeMasks) {
  EXPECT_EQ(settingsOf({L"-e", L"0,2,5"}).numaNodeMasks, std::vector<std::uint64_t>{0x25});
  EXPECT_EQ(settingsOf({L"-e", L"64"}).numaNodeMasks, std::vector<std::uint64_t>{0});
  EXPECT_EQ(settingsOf({L"-e", L"1,,3,"}).numaNodeMasks, std::vector<std::uint64_t>{0xA});
  EXPECT_EQ(settingsOf({L"-e", L"abc"}).numaNodeMasks, std::vector<std::uint64_t>{1});
  EXPECT_EQ(settingsOf({L"-e", L"-1,63"}).numaNodeMasks, std::vector<std::uint64_t>{0x8000000000000000ull});
  EXPECT_EQ(settingsOf({L"-e", L""}).numaNodeMasks, std::vector<std::uint64_t>{0});
  DiskSettings two;
  two.numaNodeMasks = {1, 2};
  EXPECT_EQ(settingsOf({L"-node", L"4"}, two).numaNodeMasks, std::vector<std::uint64_t>{0x10});
}

TEST(ParseDiskOptions, LeftoverArgumentsAreReportedInOrder) {
  const Parsed p = parse({L"7", L"-n", L"256", L"extra"});
  EXPECT_EQ(p.settings.sizeMb, 256u);
  EXPECT_EQ(p.err,
            L"Warning: argument '7' is unrecognized and ignored!\n"
            L"Warning: argument 'extra' is unrecognized and ignored!\n");
}

TEST(ParseDiskOptions, UnknownOptionIsTheScannersWarningAndIgnored) {
  const Parsed p = parse({L"-x", L"-n", L"64"});
  EXPECT_EQ(p.settings.sizeMb, 64u);
  EXPECT_EQ(p.err, L"Warning: unrecognized option '-x'.\n");
}

TEST(ParseDiskOptions, MissingArgumentIsTheScannersWarning) {
  DiskSettings start;
  start.diskFlags = diskflag::DirectIo;
  const Parsed p = parse({L"-t"}, start);
  EXPECT_EQ(p.settings.diskFlags, diskflag::DirectIo);
  EXPECT_EQ(p.err, L"Warning: option requires an argument -- 't'.\n");
}

TEST(ParseDiskOptions, LaterOptionWins) {
  EXPECT_EQ(settingsOf({L"-n", L"64", L"-n", L"96"}).sizeMb, 96u);
}

TEST(CheckCustomFolder, TrimsDotsAndBlanksAtBothEnds) {
  std::array<std::wstring, kMaxCustomFolders> none;
  std::wstring name = L" ..a b.. ";
  EXPECT_TRUE(CheckCustomFolder(name, none, 0));
  EXPECT_EQ(name, L"a b");
}

TEST(CheckCustomFolder, EmptyAfterTrimmingIsRejected) {
  std::array<std::wstring, kMaxCustomFolders> none;
  std::wstring name = L" . . ";
  EXPECT_FALSE(CheckCustomFolder(name, none, 0));
  EXPECT_EQ(name, L"");
}

TEST(CheckCustomFolder, LongNameIsCutTo40) {
  std::array<std::wstring, kMaxCustomFolders> none;
  std::wstring name(45, L'n');
  EXPECT_TRUE(CheckCustomFolder(name, none, 0));
  EXPECT_EQ(name, std::wstring(40, L'n'));
  // The cut comes before the character checks: a bad character past 40 is gone.
  std::wstring cut = std::wstring(40, L'k') + L"*";
  EXPECT_TRUE(CheckCustomFolder(cut, none, 0));
}

TEST(CheckCustomFolder, DollarStartAndForbiddenCharactersAreRejected) {
  std::array<std::wstring, kMaxCustomFolders> none;
  std::wstring dollar = L"$x";
  EXPECT_FALSE(CheckCustomFolder(dollar, none, 0));
  std::wstring inner = L"a$";
  EXPECT_TRUE(CheckCustomFolder(inner, none, 0));
  for (wchar_t c : std::wstring(L"/\\:*?\"<>|")) {
    std::wstring name = std::wstring(L"a") + c + L"b";
    EXPECT_FALSE(CheckCustomFolder(name, none, 0)) << static_cast<int>(c);
  }
}

TEST(CheckCustomFolder, NamesTheSystemKeepsAreRejectedInAnyCase) {
  std::array<std::wstring, kMaxCustomFolders> none;
  for (const wchar_t* reserved :
       {L"TEMP", L"temp", L"RECYCLER", L"recycled", L"Recycled", L"msocache", L"System Volume Information",
        L"SYSTEM VOLUME INFORMATION"}) {
    std::wstring name = reserved;
    EXPECT_FALSE(CheckCustomFolder(name, none, 0)) << reserved;
  }
  std::wstring near = L"TEMP2";
  EXPECT_TRUE(CheckCustomFolder(near, none, 0));
}

TEST(CheckCustomFolder, DuplicatesAmongTheAcceptedOnlyAreRejected) {
  std::array<std::wstring, kMaxCustomFolders> accepted{L"Alpha", L"beta"};
  std::wstring dup = L"ALPHA";
  EXPECT_FALSE(CheckCustomFolder(dup, accepted, 2));
  std::wstring beyondCount = L"beta";
  EXPECT_TRUE(CheckCustomFolder(beyondCount, accepted, 1));
}

TEST(LeadingHex, RuntimeConversion) {
  EXPECT_EQ(LeadingHex(L"  ff"), 0xFFu);
  EXPECT_EQ(LeadingHex(L"0X1g"), 1u);
  EXPECT_EQ(LeadingHex(L"0x"), 0u);
  EXPECT_EQ(LeadingHex(L"-1"), 0xFFFFFFFFu);
  EXPECT_EQ(LeadingHex(L"FFFFFFFF"), 0xFFFFFFFFu);
  EXPECT_EQ(LeadingHex(L"100000000"), 0xFFFFFFFFu);
  EXPECT_EQ(LeadingHex(nullptr), 0u);
}

}  // namespace disk_options_test
}  // namespace vmd
