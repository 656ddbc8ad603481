// Each command's option set through the scanner: names, prefixes, letters,
// clusters and their mistakes.
#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "console/option_scan_support.h"

namespace vmd::test {
namespace option_scanner_sets_test {

// ---------------------------------------------------------------------------
// The disk-settings set

TEST(DiskOptions, LongNamePrefixAndLetterAllGiveSize) {
  for (const wchar_t* form : {L"-size", L"-siz", L"-n", L"--size", L"--siz"}) {
    SCOPED_TRACE(testing::Message() << form);
    Outcome o = disk({form, L"256"});
    EXPECT_EQ(o.steps, L"n=256");
    EXPECT_EQ(o.optind, 2);
    EXPECT_EQ(o.err, L"");
  }
}

TEST(DiskOptions, SharedPrefixIsAmbiguous) {
  Outcome o = disk({L"-si", L"256"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, 0);
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, L"Warning: option '-si' is ambiguous.\n" + ignored(L"256"));
}

TEST(DiskOptions, AmbiguityMessageShowsTheWholeElement) {
  Outcome o = disk({L"-si=5"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.err, L"Warning: option '-si=5' is ambiguous.\n");
  o = disk({L"--no"});
  EXPECT_EQ(o.err, L"Warning: option '--no' is ambiguous.\n");
  o = disk({L"-no"});
  EXPECT_EQ(o.err, L"Warning: option '-no' is ambiguous.\n");
}

TEST(DiskOptions, LoneLetterIsTheLetterEvenWhenLongNamesShareIt) {
  Outcome o = disk({L"-s", L"256"});
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.words, (Words{L"-s", L"256"}));
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, ignored(L"256"));
}

TEST(DiskOptions, ImForms) {
  EXPECT_EQ(disk({L"-i"}).steps, L"i");
  EXPECT_EQ(disk({L"-i=1024"}).steps, L"i=1024");
  EXPECT_EQ(disk({L"-i1024"}).steps, L"i=1024");
  EXPECT_EQ(disk({L"-im=1024"}).steps, L"i=1024");
  EXPECT_EQ(disk({L"-im"}).steps, L"i");
  EXPECT_EQ(disk({L"-i=0"}).steps, L"i=0");
}

TEST(DiskOptions, ImageByUniquePrefix) {
  Outcome o = disk({L"-ima", L"x"});
  EXPECT_EQ(o.steps, L"I=x");
  EXPECT_EQ(o.optind, 2);
  EXPECT_EQ(disk({L"-image=c:\\d.img"}).steps, L"I=c:\\d.img");
  EXPECT_EQ(disk({L"-I", L"x"}).steps, L"I=x");
}

TEST(DiskOptions, ExactNameBeatsLongerNameItPrefixes) {
  // "im" is also the start of "image".
  Outcome o = disk({L"-im", L"x"});
  EXPECT_EQ(o.steps, L"i");
  EXPECT_EQ(o.err, ignored(L"x"));
}

TEST(DiskOptions, MissingRequiredLetterArgument) {
  Outcome o = disk({L"-t"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L't');
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, L"Warning: option requires an argument -- 't'.\n");
}

TEST(DiskOptions, MissingRequiredLongArgumentAlwaysShowsTwoDashes) {
  for (const wchar_t* form : {L"-size", L"-siz", L"--size"}) {
    Outcome o = disk({L"-s", form});
    EXPECT_EQ(o.steps, L"s ?");
    EXPECT_EQ(o.optopt, L'n');
    EXPECT_EQ(o.err, L"Warning: option '--size' requires an argument.\n");
  }
}

TEST(DiskOptions, OptionalLongArgumentAfterEquals) {
  EXPECT_EQ(disk({L"-volatile=yes"}).steps, L"v=yes");
  EXPECT_EQ(disk({L"-volatile"}).steps, L"v");
  EXPECT_EQ(disk({L"-vo=0"}).steps, L"v=0");
  EXPECT_EQ(disk({L"--volatile=1"}).steps, L"v=1");
  EXPECT_EQ(disk({L"-dmm=compact"}).steps, L"m=compact");
}

TEST(DiskOptions, OptionalArgumentIsNeverTakenFromTheNextElement) {
  Outcome o = disk({L"-m", L"COMPACT"});
  EXPECT_EQ(o.steps, L"m");
  EXPECT_EQ(o.err, ignored(L"COMPACT"));
  o = disk({L"-volatile", L"0"});
  EXPECT_EQ(o.steps, L"v");
  EXPECT_EQ(o.err, ignored(L"0"));
  o = disk({L"-i", L"1024", L"-s"});
  EXPECT_EQ(o.steps, L"i s");
  EXPECT_EQ(o.words, (Words{L"-i", L"-s", L"1024"}));
  EXPECT_EQ(o.err, ignored(L"1024"));
}

TEST(DiskOptions, FlagWithValueIsRefused) {
  Outcome o = disk({L"-silent=1"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L's');
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, L"Warning: option '-silent' doesn't allow an argument.\n");
  // The message names the table's name, not the prefix typed.
  EXPECT_EQ(disk({L"-sk=1"}).err, L"Warning: option '-skipsave' doesn't allow an argument.\n");
  EXPECT_EQ(disk({L"--silent=1"}).err, L"Warning: option '--silent' doesn't allow an argument.\n");
}

TEST(DiskOptions, UnknownSingleDashName) {
  Outcome o = disk({L"-x"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, 0);
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, L"Warning: unrecognized option '-x'.\n");
  EXPECT_EQ(disk({L"-xyz=1"}).err, L"Warning: unrecognized option '-xyz'.\n");
  // Names are compared case-sensitively.
  EXPECT_EQ(disk({L"-SIZE", L"5"}).err, L"Warning: unrecognized option '-SIZE'.\n" + ignored(L"5"));
}

TEST(DiskOptions, UnknownDoubleDashNameNeverFallsBackToLetters) {
  Outcome o = disk({L"--g"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.err, L"Warning: unrecognized option '--g'.\n");
  EXPECT_EQ(disk({L"--x=1"}).err, L"Warning: unrecognized option '--x'.\n");
}

TEST(DiskOptions, ColonIsNeverAnOption) {
  Outcome o = disk({L"-:"});
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L':');
  EXPECT_EQ(o.err, L"Warning: invalid option -- ':'.\n");
}

TEST(DiskOptions, LetterValuesAfterEquals) {
  EXPECT_EQ(disk({L"-n=128"}).steps, L"n=128");
  EXPECT_EQ(disk({L"-m=0"}).steps, L"m=0");
  EXPECT_EQ(disk({L"-m=compact"}).steps, L"m=compact");
  EXPECT_EQ(disk({L"-K=5"}).steps, L"K=5");
  EXPECT_EQ(disk({L"-F=compr?2"}).steps, L"F=compr?2");
  EXPECT_EQ(disk({L"-n128"}).steps, L"n=128");
}

TEST(DiskOptions, EqualsWithNothingAfterIt) {
  // A required letter then takes the next element; an optional one has none;
  // a long name's value is the empty text.
  EXPECT_EQ(disk({L"-n=", L"64"}).steps, L"n=64");
  EXPECT_EQ(disk({L"-m="}).steps, L"m");
  EXPECT_EQ(disk({L"-size="}).steps, L"n=");
  EXPECT_EQ(disk({L"-s="}).steps, L"s");
}

TEST(DiskOptions, RequiredArgumentIsTakenEvenWhenItLooksLikeAnOption) {
  EXPECT_EQ(disk({L"-n", L"-s"}).steps, L"n=-s");
  EXPECT_EQ(disk({L"-label", L"-s"}).steps, L"l=-s");
}

TEST(DiskOptions, ClusteredFlagsReturnOneLetterPerCall) {
  World w;
  Argv args{L"-sg"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L's');
  EXPECT_EQ(w.scanner.optind, 0);
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'g');
  EXPECT_EQ(w.scanner.optind, 1);
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), -1);
  EXPECT_EQ(w.streams.err, L"");
}

TEST(DiskOptions, ClusterTailIsTriedAsALongNameFirst) {
  // After g, the rest "s" is looked up in the table, where it starts three names.
  Outcome o = disk({L"-gs"});
  EXPECT_EQ(o.steps, L"g ?");
  EXPECT_EQ(o.err, L"Warning: option '-gs' is ambiguous.\n");
  o = disk({L"-sgn", L"128"});
  EXPECT_EQ(o.steps, L"s g ?");
  EXPECT_EQ(o.err, L"Warning: option '-sgn' is ambiguous.\n" + ignored(L"128"));
  // A tail that is a known name is taken as that long option.
  EXPECT_EQ(disk({L"-gim=5"}).steps, L"g i=5");
}

TEST(DiskOptions, ClusterEndsWithALetterThatTakesTheRest) {
  EXPECT_EQ(disk({L"-sn128"}).steps, L"s n=128");
  EXPECT_EQ(disk({L"-sgc", L"4"}).steps, L"s g c=4");
}

TEST(DiskOptions, UnknownLetterInsideACluster) {
  Outcome o = disk({L"-sx"});
  EXPECT_EQ(o.steps, L"s ?");
  EXPECT_EQ(o.err, L"Warning: unrecognized option '-x'.\n");
}

TEST(DiskOptions, TypicalAddCommandLine) {
  Outcome o = disk({L"-size", L"512", L"-t", L"dio", L"-d", L"r", L"-m=compact", L"-p",
                    L"c:\\hybrid.hbd?3072", L"-r", L"aaa?bbb", L"-Q", L"x?w", L"-e", L"0,2,5", L"-s"});
  EXPECT_EQ(o.steps, L"n=512 t=dio d=r m=compact p=c:\\hybrid.hbd?3072 r=aaa?bbb Q=x?w e=0,2,5 s");
  EXPECT_EQ(o.optind, 16);
  EXPECT_EQ(o.err, L"");
  EXPECT_EQ(o.out, L"");
}

TEST(DiskOptions, ExtraWordAfterTheOptionsIsReported) {
  Outcome o = disk({L"-n", L"64", L"7"});
  EXPECT_EQ(o.steps, L"n=64");
  EXPECT_EQ(o.optind, 2);
  EXPECT_EQ(o.err, ignored(L"7"));
  EXPECT_EQ(o.out, L"");
}

TEST(DiskOptions, TableAgreesWithTheOptionString) {
  int rows = 0;
  for (const LongOption* p = kDiskLong; p->name; ++p, ++rows) {
    SCOPED_TRACE(testing::Message() << "row " << rows);
    const wchar_t* at = std::wcschr(kDiskOptions, p->val);
    ASSERT_NE(at, nullptr);
    const int colons = at[1] != L':' ? 0 : (at[2] == L':' ? 2 : 1);
    const int expected = colons == 0 ? 0 : (colons == 1 ? 1 : 2);
    EXPECT_EQ(p->hasArg, expected);
    EXPECT_EQ(p->flag, nullptr);
  }
  EXPECT_EQ(rows, 24);
}

struct DiskRow {
  const wchar_t* name;
  wchar_t letter;
  int hasArg;
  const wchar_t* shortestPrefix;  // of two or more characters
};

const DiskRow kDiskRows[] = {
    {L"size", L'n', 1, L"siz"},   {L"type", L't', 1, L"ty"},     {L"drive", L'd', 1, L"dr"},
    {L"volatile", L'v', 2, L"vo"}, {L"dmm", L'm', 2, L"dm"},     {L"im", L'i', 2, L"im"},
    {L"pd", L'p', 1, L"pd"},      {L"fs", L'f', 1, L"fs"},       {L"clus", L'c', 1, L"cl"},
    {L"label", L'l', 1, L"la"},   {L"nc", L'X', 2, L"nc"},       {L"nni", L'N', 2, L"nn"},
    {L"np", L'Q', 1, L"np"},      {L"temp", L'T', 2, L"te"},     {L"dir", L'r', 1, L"di"},
    {L"vsn", L'z', 1, L"vs"},     {L"image", L'I', 1, L"ima"},   {L"nosave", L'L', 2, L"nos"},
    {L"delay", L'D', 2, L"de"},   {L"format", L'F', 1, L"fo"},   {L"timing", L'K', 1, L"ti"},
    {L"silent", L's', 0, L"sil"}, {L"skipsave", L'g', 0, L"sk"}, {L"node", L'e', 1, L"nod"},
};

TEST(DiskOptions, TableRowsInOrder) {
  const LongOption* p = kDiskLong;
  for (const DiskRow& row : kDiskRows) {
    ASSERT_NE(p->name, nullptr);
    EXPECT_EQ(std::wstring(p->name), row.name);
    EXPECT_EQ(p->val, row.letter);
    EXPECT_EQ(p->hasArg, row.hasArg);
    ++p;
  }
  EXPECT_EQ(p->name, nullptr);
}

TEST(DiskOptions, EveryRowByNamePrefixAndLetter) {
  for (const DiskRow& row : kDiskRows) {
    const std::wstring name = row.name;
    const std::wstring letter(1, row.letter);
    const std::wstring withValue = letter + L"=42";
    SCOPED_TRACE(testing::Message() << row.name);
    if (row.hasArg == 1) {
      EXPECT_EQ(disk({L"-" + name, L"42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + name + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"--" + name, L"42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + std::wstring(row.shortestPrefix), L"42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + letter, L"42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + letter + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + letter + L"42"}).steps, withValue);
      Outcome missing = disk({L"-" + letter});
      EXPECT_EQ(missing.err, L"Warning: option requires an argument -- '" + letter + L"'.\n");
      missing = disk({L"-" + name});
      EXPECT_EQ(missing.err, L"Warning: option '--" + name + L"' requires an argument.\n");
    } else if (row.hasArg == 2) {
      EXPECT_EQ(disk({L"-" + name}).steps, letter);
      EXPECT_EQ(disk({L"-" + name + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"--" + name + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + std::wstring(row.shortestPrefix)}).steps, letter);
      EXPECT_EQ(disk({L"-" + std::wstring(row.shortestPrefix) + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + letter}).steps, letter);
      EXPECT_EQ(disk({L"-" + letter + L"=42"}).steps, withValue);
      EXPECT_EQ(disk({L"-" + letter + L"42"}).steps, withValue);
      Outcome apart = disk({L"-" + letter, L"42"});
      EXPECT_EQ(apart.steps, letter);
      EXPECT_EQ(apart.err, ignored(L"42"));
    } else {
      EXPECT_EQ(disk({L"-" + name}).steps, letter);
      EXPECT_EQ(disk({L"--" + name}).steps, letter);
      EXPECT_EQ(disk({L"-" + std::wstring(row.shortestPrefix)}).steps, letter);
      EXPECT_EQ(disk({L"-" + letter}).steps, letter);
      EXPECT_EQ(disk({L"-" + name + L"=42"}).err, L"Warning: option '-" + name + L"' doesn't allow an argument.\n");
    }
  }
}

TEST(DiskOptions, ShortenedPrefixesAreAmbiguousOnlyWhereNamesShareThem) {
  EXPECT_EQ(disk({L"-si"}).steps, L"?");
  EXPECT_EQ(disk({L"-no"}).steps, L"?");
  EXPECT_EQ(disk({L"-nos"}).steps, L"L");
  EXPECT_EQ(disk({L"-nod", L"1"}).steps, L"e=1");
  EXPECT_EQ(disk({L"-sil"}).steps, L"s");
  EXPECT_EQ(disk({L"-siz", L"1"}).steps, L"n=1");
}

// ---------------------------------------------------------------------------
// The other commands' sets

TEST(RemoveOptions, Forms) {
  EXPECT_EQ(run({L"-s"}, kRemoveOptions, kRemoveLong).steps, L"s");
  EXPECT_EQ(run({L"-g"}, kRemoveOptions, kRemoveLong).steps, L"g");
  EXPECT_EQ(run({L"-silent"}, kRemoveOptions, kRemoveLong).steps, L"s");
  EXPECT_EQ(run({L"-skipsave"}, kRemoveOptions, kRemoveLong).steps, L"g");
  EXPECT_EQ(run({L"-si"}, kRemoveOptions, kRemoveLong).steps, L"s");  // no "size" here
  EXPECT_EQ(run({L"-sk"}, kRemoveOptions, kRemoveLong).steps, L"g");
  EXPECT_EQ(run({L"--silent", L"--skip"}, kRemoveOptions, kRemoveLong).steps, L"s g");
}

TEST(RemoveOptions, Clusters) {
  EXPECT_EQ(run({L"-sg"}, kRemoveOptions, kRemoveLong).steps, L"s g");
  Outcome o = run({L"-gs"}, kRemoveOptions, kRemoveLong);
  EXPECT_EQ(o.steps, L"g ?");
  EXPECT_EQ(o.err, L"Warning: option '-gs' is ambiguous.\n");
}

TEST(RemoveOptions, Mistakes) {
  Outcome o = run({L"-S", L"-silent=1", L"-x", L"-s", L"yes"}, kRemoveOptions, kRemoveLong);
  EXPECT_EQ(o.steps, L"? ? ? s");
  EXPECT_EQ(o.err,
            L"Warning: unrecognized option '-S'.\n"
            L"Warning: option '-silent' doesn't allow an argument.\n"
            L"Warning: unrecognized option '-x'.\n" +
                ignored(L"yes"));
  EXPECT_EQ(run({L"-s"}, kRemoveOptions, kRemoveLong).err, L"");
  EXPECT_EQ(run({L"-s"}, kRemoveOptions, kRemoveLong).out, L"");
}

TEST(ImEnableOptions, Forms) {
  Outcome o = run({L"-rsvd", L"512", L"-quota=1024", L"-loc", L"4096", L"-nohiber", L"-silent"}, kImOptions, kImLong);
  EXPECT_EQ(o.steps, L"r=512 q=1024 l=4096 n s");
  EXPECT_EQ(o.err, L"");
  o = run({L"-r", L"512", L"-q=1024", L"-l4096", L"-n", L"-s"}, kImOptions, kImLong);
  EXPECT_EQ(o.steps, L"r=512 q=1024 l=4096 n s");
  EXPECT_EQ(run({L"-rs", L"5", L"-qu", L"6", L"-lo", L"7", L"-no", L"-si"}, kImOptions, kImLong).steps,
            L"r=5 q=6 l=7 n s");
}

TEST(ImEnableOptions, ClustersAndMissingValues) {
  EXPECT_EQ(run({L"-ns"}, kImOptions, kImLong).steps, L"n s");
  EXPECT_EQ(run({L"-sn"}, kImOptions, kImLong).steps, L"s n");
  EXPECT_EQ(run({L"-nr", L"5"}, kImOptions, kImLong).steps, L"n r=5");
  Outcome o = run({L"-q"}, kImOptions, kImLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.err, L"Warning: option requires an argument -- 'q'.\n");
  o = run({L"-quota"}, kImOptions, kImLong);
  EXPECT_EQ(o.err, L"Warning: option '--quota' requires an argument.\n");
  o = run({L"-nohiber=1"}, kImOptions, kImLong);
  EXPECT_EQ(o.err, L"Warning: option '-nohiber' doesn't allow an argument.\n");
}

TEST(SaveOptions, Forms) {
  Outcome o = run({L"-a", L"c:\\d.img", L"-F", L"compr?3", L"-s"}, kSaveOptions, kSaveLong);
  EXPECT_EQ(o.steps, L"a=c:\\d.img F=compr?3 s");
  EXPECT_EQ(run({L"-saveas", L"x", L"-format=smart", L"-silent"}, kSaveOptions, kSaveLong).steps,
            L"a=x F=smart s");
  EXPECT_EQ(run({L"-sa", L"x", L"-fo", L"plain", L"-sil"}, kSaveOptions, kSaveLong).steps, L"a=x F=plain s");
  EXPECT_EQ(run({L"-a=x", L"-F=smart"}, kSaveOptions, kSaveLong).steps, L"a=x F=smart");
}

TEST(SaveOptions, LowerCaseFIsThePrefixOfFormat) {
  // 'f' is not a letter of this set, so "-f" is read as a long name.
  EXPECT_EQ(run({L"-f", L"smart"}, kSaveOptions, kSaveLong).steps, L"F=smart");
}

TEST(SaveOptions, LetterWithItsValueAttached) {
  EXPECT_EQ(run({L"-as"}, kSaveOptions, kSaveLong).steps, L"a=s");
  EXPECT_EQ(run({L"-sa", L"x"}, kSaveOptions, kSaveLong).steps, L"a=x");  // the prefix of saveas
  Outcome o = run({L"-a"}, kSaveOptions, kSaveLong);
  EXPECT_EQ(o.err, L"Warning: option requires an argument -- 'a'.\n");
}

TEST(ExportOptions, Forms) {
  EXPECT_EQ(run({L"-f", L"out.vdd", L"-s"}, kExportOptions, kExportLong).steps, L"f=out.vdd s");
  EXPECT_EQ(run({L"-file", L"out.vdd"}, kExportOptions, kExportLong).steps, L"f=out.vdd");
  EXPECT_EQ(run({L"-fi", L"a", L"-f=b"}, kExportOptions, kExportLong).steps, L"f=a f=b");
  EXPECT_EQ(run({L"-sf", L"x"}, kExportOptions, kExportLong).steps, L"s f=x");
  EXPECT_EQ(run({L"-fs"}, kExportOptions, kExportLong).steps, L"f=s");
  Outcome o = run({L"-file"}, kExportOptions, kExportLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L'f');
  EXPECT_EQ(o.err, L"Warning: option '--file' requires an argument.\n");
}

TEST(InitOptions, Forms) {
  EXPECT_EQ(run({L"-s"}, kInitOptions, kInitLong).steps, L"s");
  EXPECT_EQ(run({L"-silent"}, kInitOptions, kInitLong).steps, L"s");
  EXPECT_EQ(run({L"-sil"}, kInitOptions, kInitLong).steps, L"s");
  EXPECT_EQ(run({L"-ss"}, kInitOptions, kInitLong).steps, L"s s");
  Outcome o = run({L"-x", L"-n", L"5"}, kInitOptions, kInitLong);
  EXPECT_EQ(o.steps, L"? ?");
  EXPECT_EQ(o.err,
            L"Warning: unrecognized option '-x'.\n"
            L"Warning: unrecognized option '-n'.\n" +
                ignored(L"5"));
}

}  // namespace option_scanner_sets_test
}  // namespace vmd::test
