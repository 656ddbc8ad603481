#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "support/fakes.h"

namespace vmd {
namespace {

// The option sets of the commands, written as the commands write them.
constexpr wchar_t kDiskOptions[] = L"n:t:d:v::m::i::p:f:c:l:X::N::Q:T::r:z:I:L::D::F:K:sge:";
const LongOption kDiskLong[] = {
    {L"size", 1, nullptr, L'n'},     {L"type", 1, nullptr, L't'},   {L"drive", 1, nullptr, L'd'},
    {L"volatile", 2, nullptr, L'v'}, {L"dmm", 2, nullptr, L'm'},    {L"im", 2, nullptr, L'i'},
    {L"pd", 1, nullptr, L'p'},       {L"fs", 1, nullptr, L'f'},     {L"clus", 1, nullptr, L'c'},
    {L"label", 1, nullptr, L'l'},    {L"nc", 2, nullptr, L'X'},     {L"nni", 2, nullptr, L'N'},
    {L"np", 1, nullptr, L'Q'},       {L"temp", 2, nullptr, L'T'},   {L"dir", 1, nullptr, L'r'},
    {L"vsn", 1, nullptr, L'z'},      {L"image", 1, nullptr, L'I'},  {L"nosave", 2, nullptr, L'L'},
    {L"delay", 2, nullptr, L'D'},    {L"format", 1, nullptr, L'F'}, {L"timing", 1, nullptr, L'K'},
    {L"silent", 0, nullptr, L's'},   {L"skipsave", 0, nullptr, L'g'}, {L"node", 1, nullptr, L'e'},
    {nullptr, 0, nullptr, 0},
};

// del and rebuild.
constexpr wchar_t kRemoveOptions[] = L"gs";
const LongOption kRemoveLong[] = {
    {L"skipsave", 0, nullptr, L'g'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// im enable.
constexpr wchar_t kImOptions[] = L"r:q:l:ns";
const LongOption kImLong[] = {
    {L"rsvd", 1, nullptr, L'r'},    {L"quota", 1, nullptr, L'q'},  {L"loc", 1, nullptr, L'l'},
    {L"nohiber", 0, nullptr, L'n'}, {L"silent", 0, nullptr, L's'}, {nullptr, 0, nullptr, 0},
};

// save.
constexpr wchar_t kSaveOptions[] = L"a:F:s";
const LongOption kSaveLong[] = {
    {L"saveas", 1, nullptr, L'a'},
    {L"format", 1, nullptr, L'F'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// export.
constexpr wchar_t kExportOptions[] = L"f:s";
const LongOption kExportLong[] = {
    {L"file", 1, nullptr, L'f'},
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// init.
constexpr wchar_t kInitOptions[] = L"s";
const LongOption kInitLong[] = {
    {L"silent", 0, nullptr, L's'},
    {nullptr, 0, nullptr, 0},
};

// A mutable argument vector the scanner may permute.
class Argv {
 public:
  Argv(std::initializer_list<std::wstring> words) : texts_(words) {
    for (std::wstring& t : texts_) ptrs_.push_back(t.data());
    ptrs_.push_back(nullptr);
  }
  explicit Argv(const std::vector<std::wstring>& words) : texts_(words) {
    for (std::wstring& t : texts_) ptrs_.push_back(t.data());
    ptrs_.push_back(nullptr);
  }
  Argv(const Argv&) = delete;
  Argv& operator=(const Argv&) = delete;

  int argc() const { return static_cast<int>(texts_.size()); }
  wchar_t** argv() { return ptrs_.data(); }
  std::vector<std::wstring> words() const {
    std::vector<std::wstring> r;
    for (int i = 0; i < argc(); ++i) r.emplace_back(ptrs_[i]);
    return r;
  }

 private:
  std::vector<std::wstring> texts_;
  std::vector<wchar_t*> ptrs_;
};

std::wstring ignored(const std::wstring& word) {
  return L"Warning: argument '" + word + L"' is unrecognized and ignored!\n";
}

// "n=256" for letter n with argument 256, "m" for m without one, "?" for an
// error, "0" for a stored flag, "1=a" for a word returned in order.
std::wstring describe(int result, const wchar_t* optarg) {
  std::wstring s = result >= 32 ? std::wstring(1, static_cast<wchar_t>(result)) : std::to_wstring(result);
  if (optarg) s += L"=" + std::wstring(optarg);
  return s;
}

// The console and one process-wide scanner, fresh for every scan.
struct World {
  test::CapturingStreams streams;
  test::MapCatalog catalog{{}, {{strid::ArgumentIgnored, L"Warning: argument '%s' is unrecognized and ignored!\n"}}};
  test::ScriptedKeys keys;
  Output out{streams, catalog, keys};
  OptionScanner scanner{out};

  // Every result until -1, as a command takes them, separated by blanks.
  std::wstring scanAll(Argv& args, const wchar_t* optstring, const LongOption* table) {
    std::wstring steps;
    for (int guard = 0; guard < 200; ++guard) {
      const int r = scanner.next(args.argc(), args.argv(), optstring, table);
      if (r == -1) return steps;
      if (!steps.empty()) steps += L' ';
      steps += describe(r, scanner.optarg);
    }
    ADD_FAILURE() << "the scan did not end";
    return steps;
  }
};

struct Outcome {
  std::wstring steps;
  int optind;
  int optopt;
  std::vector<std::wstring> words;  // the vector after the scan
  std::wstring err;                 // scanner warnings, then the leftovers
  std::wstring out;
};

// The whole calling convention of a command: scan to the end, then report
// what is left.
Outcome run(const std::vector<std::wstring>& words, const wchar_t* optstring, const LongOption* table) {
  World w;
  Argv args(words);
  Outcome o;
  o.steps = w.scanAll(args, optstring, table);
  o.optind = w.scanner.optind;
  o.optopt = w.scanner.optopt;
  o.words = args.words();
  w.scanner.reportLeftovers(args.argc(), args.argv());
  o.err = w.streams.err;
  o.out = w.streams.out;
  return o;
}

Outcome disk(const std::vector<std::wstring>& words) { return run(words, kDiskOptions, kDiskLong); }

using Words = std::vector<std::wstring>;

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
// Permutation and the end of the options

TEST(OptionScanner, WordBeforeAnOptionIsMovedBehindIt) {
  World w;
  Argv args{L"a", L"-s", L"b"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kRemoveOptions, kRemoveLong), L's');
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kRemoveOptions, kRemoveLong), -1);
  EXPECT_EQ(w.scanner.optind, 1);
  EXPECT_EQ(args.words(), (Words{L"-s", L"a", L"b"}));
  w.scanner.reportLeftovers(args.argc(), args.argv());
  EXPECT_EQ(w.streams.err, ignored(L"a") + ignored(L"b"));
  EXPECT_EQ(w.streams.out, L"");
}

TEST(OptionScanner, PermutationKeepsEachGroupInOrder) {
  Outcome o = disk({L"x", L"-n", L"5", L"y", L"z", L"-s", L"w", L"-size=7", L"v"});
  EXPECT_EQ(o.steps, L"n=5 s n=7");
  EXPECT_EQ(o.words, (Words{L"-n", L"5", L"-s", L"-size=7", L"x", L"y", L"z", L"w", L"v"}));
  EXPECT_EQ(o.optind, 4);
  EXPECT_EQ(o.err, ignored(L"x") + ignored(L"y") + ignored(L"z") + ignored(L"w") + ignored(L"v"));
}

TEST(OptionScanner, LongRunsOfWordsAndOptionsExchangeCompletely) {
  Outcome o = disk({L"a", L"b", L"c", L"d", L"-s", L"e", L"-g", L"-n", L"1", L"-i", L"f", L"g"});
  EXPECT_EQ(o.steps, L"s g n=1 i");
  EXPECT_EQ(o.words, (Words{L"-s", L"-g", L"-n", L"1", L"-i", L"a", L"b", L"c", L"d", L"e", L"f", L"g"}));
  EXPECT_EQ(o.optind, 5);
}

TEST(OptionScanner, OnlyWords) {
  Outcome o = disk({L"a", L"b"});
  EXPECT_EQ(o.steps, L"");
  EXPECT_EQ(o.optind, 0);
  EXPECT_EQ(o.words, (Words{L"a", L"b"}));
  EXPECT_EQ(o.err, ignored(L"a") + ignored(L"b"));
}

TEST(OptionScanner, EmptyVectorEndsAtOnce) {
  Outcome o = disk({});
  EXPECT_EQ(o.steps, L"");
  EXPECT_EQ(o.optind, 0);
  EXPECT_EQ(o.err, L"");
}

TEST(OptionScanner, LoneDashAndSlashWordsAreNotOptions) {
  Outcome o = disk({L"-", L"/s", L"-s"});
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.words, (Words{L"-s", L"-", L"/s"}));
  EXPECT_EQ(o.err, ignored(L"-") + ignored(L"/s"));
}

TEST(OptionScanner, DoubleDashEndsTheOptions) {
  Outcome o = disk({L"-s", L"--", L"-n", L"5"});
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.optind, 2);
  EXPECT_EQ(o.words, (Words{L"-s", L"--", L"-n", L"5"}));
  EXPECT_EQ(o.err, ignored(L"-n") + ignored(L"5"));
}

TEST(OptionScanner, DoubleDashAfterWordsKeepsTheWordsFirst) {
  Outcome o = disk({L"a", L"-s", L"--", L"b", L"-g"});
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.words, (Words{L"-s", L"--", L"a", L"b", L"-g"}));
  EXPECT_EQ(o.optind, 2);
  EXPECT_EQ(o.err, ignored(L"a") + ignored(L"b") + ignored(L"-g"));
}

TEST(OptionScanner, DoubleDashAlone) {
  Outcome o = disk({L"--"});
  EXPECT_EQ(o.steps, L"");
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.err, L"");
  o = disk({L"a", L"--", L"b"});
  EXPECT_EQ(o.words, (Words{L"--", L"a", L"b"}));
  EXPECT_EQ(o.err, ignored(L"a") + ignored(L"b"));
}

TEST(OptionScanner, ConsumedArgumentsStayWithTheirOptions) {
  Outcome o = disk({L"w", L"-label", L"my disk", L"-size", L"64"});
  EXPECT_EQ(o.steps, L"l=my disk n=64");
  EXPECT_EQ(o.words, (Words{L"-label", L"my disk", L"-size", L"64", L"w"}));
  EXPECT_EQ(o.err, ignored(L"w"));
}

TEST(OptionScanner, ErrorsDoNotStopTheScan) {
  Outcome o = disk({L"-x", L"-si", L"-n", L"1", L"-silent=0", L"-s"});
  EXPECT_EQ(o.steps, L"? ? n=1 ? s");
  EXPECT_EQ(o.err,
            L"Warning: unrecognized option '-x'.\n"
            L"Warning: option '-si' is ambiguous.\n"
            L"Warning: option '-silent' doesn't allow an argument.\n");
  EXPECT_EQ(o.optind, 6);
}

// ---------------------------------------------------------------------------
// Calling convention

TEST(OptionScanner, StartsWithTheProcessWideDefaults) {
  World w;
  EXPECT_EQ(w.scanner.optind, 0);
  EXPECT_EQ(w.scanner.optarg, nullptr);
  EXPECT_EQ(w.scanner.optopt, L'?');
  EXPECT_EQ(w.scanner.state.initialized, 0);
  EXPECT_EQ(w.scanner.state.ordering, Ordering::Permute);
}

TEST(OptionScanner, ElementZeroIsScanned) {
  Outcome o = run({L"-s"}, kInitOptions, kInitLong);
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.optind, 1);
}

TEST(OptionScanner, OptindIsCopiedInBeforeEveryCall) {
  World w;
  Argv args{L"-n", L"5", L"-g", L"-s"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'n');
  EXPECT_EQ(w.scanner.optind, 2);
  w.scanner.optind = 3;  // the caller skips -g
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L's');
  EXPECT_EQ(w.scanner.state.optind, 4);
  EXPECT_EQ(w.scanner.optind, 4);
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), -1);
}

TEST(OptionScanner, CallerMovingPastAClusterLeavesItsRest) {
  World w;
  Argv args{L"-sg", L"w"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kRemoveOptions, kRemoveLong), L's');
  w.scanner.optind = 2;
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kRemoveOptions, kRemoveLong), -1);
  EXPECT_EQ(w.streams.err, L"");
}

TEST(OptionScanner, CallerOptindChoosesTheFirstElement) {
  World w;
  w.scanner.optind = 1;
  Argv args{L"-x", L"-s"};
  EXPECT_EQ(w.scanAll(args, kInitOptions, kInitLong), L"s");
  EXPECT_EQ(w.streams.err, L"");
}

TEST(OptionScanner, OptargAndOptoptAreCopiedOut) {
  World w;
  Argv args{L"-n", L"5", L"-s", L"-q", L"-t"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'n');
  ASSERT_NE(w.scanner.optarg, nullptr);
  EXPECT_EQ(std::wstring(w.scanner.optarg), L"5");
  EXPECT_EQ(w.scanner.optarg, args.argv()[1]);  // a pointer into the vector
  EXPECT_EQ(w.scanner.optopt, L'?');
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L's');
  EXPECT_EQ(w.scanner.optarg, nullptr);  // reset on every call
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'?');
  EXPECT_EQ(w.scanner.optopt, 0);
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'?');
  EXPECT_EQ(w.scanner.optopt, L't');
  EXPECT_EQ(w.scanner.state.optopt, L't');
}

TEST(OptionScanner, OptoptKeepsTheLastErrorAcrossSuccesses) {
  World w;
  Argv args{L"-silent=1", L"-g"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'?');
  EXPECT_EQ(w.scanner.optopt, L's');
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'g');
  EXPECT_EQ(w.scanner.optopt, L's');
}

TEST(OptionScanner, WarningsAreOnEvenWhenTheStateSaysOtherwise) {
  World w;
  w.scanner.state.opterr = 0;
  Argv args{L"-x"};
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), kDiskOptions, kDiskLong), L'?');
  EXPECT_EQ(w.scanner.state.opterr, 1);
  EXPECT_EQ(w.streams.err, L"Warning: unrecognized option '-x'.\n");
}

TEST(OptionScanner, LeftoversAreReportedFromOptindInOrder) {
  World w;
  Argv args{L"one", L"two", L"three"};
  w.scanner.optind = 1;
  w.scanner.reportLeftovers(args.argc(), args.argv());
  EXPECT_EQ(w.streams.err,
            L"Warning: argument 'two' is unrecognized and ignored!\n"
            L"Warning: argument 'three' is unrecognized and ignored!\n");
  EXPECT_EQ(w.streams.out, L"");
}

TEST(OptionScanner, NothingLeftReportsNothing) {
  World w;
  Argv args{L"-s"};
  EXPECT_EQ(w.scanAll(args, kInitOptions, kInitLong), L"s");
  w.scanner.reportLeftovers(args.argc(), args.argv());
  EXPECT_EQ(w.streams.err, L"");
}

TEST(OptionScanner, DelScansTheElementsAfterTheIndex) {
  World w;
  Argv args{L"3", L"-s", L"extra", L"-skipsave"};
  const int argc = args.argc() - 1;
  wchar_t** argv = args.argv() + 1;
  std::wstring steps;
  for (int r; (r = w.scanner.next(argc, argv, kRemoveOptions, kRemoveLong)) != -1;) steps += describe(r, nullptr);
  EXPECT_EQ(steps, L"sg");
  w.scanner.reportLeftovers(argc, argv);
  EXPECT_EQ(args.words(), (Words{L"3", L"-s", L"-skipsave", L"extra"}));
  EXPECT_EQ(w.streams.err, ignored(L"extra"));
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

// ---------------------------------------------------------------------------
// Option-string forms no command uses

TEST(OptionScanner, LeadingColonSilencesAndReportsMissingArguments) {
  const std::wstring quiet = std::wstring(L":") + kDiskOptions;
  Outcome o = run({L"-t"}, quiet.c_str(), kDiskLong);
  EXPECT_EQ(o.steps, L":");
  EXPECT_EQ(o.optopt, L't');
  EXPECT_EQ(o.err, L"");
  o = run({L"-size"}, quiet.c_str(), kDiskLong);
  EXPECT_EQ(o.steps, L":");
  EXPECT_EQ(o.optopt, L'n');
  EXPECT_EQ(o.err, L"");
  o = run({L"-x", L"-si", L"-silent=1", L"-:"}, quiet.c_str(), kDiskLong);
  EXPECT_EQ(o.steps, L"? ? ? ?");
  EXPECT_EQ(o.err, L"");
  // Leftovers are the caller's warnings and are printed all the same.
  EXPECT_EQ(run({L"w"}, quiet.c_str(), kDiskLong).err, ignored(L"w"));
}

TEST(OptionScanner, ColonAfterTheOrderingCharacterAlsoSilences) {
  Outcome o = run({L"-t"}, L"+:t:", nullptr);
  EXPECT_EQ(o.steps, L":");
  EXPECT_EQ(o.err, L"");
  o = run({L"-t"}, L"-:t:", nullptr);
  EXPECT_EQ(o.steps, L":");
  EXPECT_EQ(o.err, L"");
}

TEST(OptionScanner, PlusStopsAtTheFirstWord) {
  Outcome o = run({L"-s", L"a", L"-s"}, L"+s", kInitLong);
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.optind, 1);
  EXPECT_EQ(o.words, (Words{L"-s", L"a", L"-s"}));
  EXPECT_EQ(o.err, ignored(L"a") + ignored(L"-s"));
}

TEST(OptionScanner, MinusReturnsWordsInOrder) {
  Outcome o = run({L"a", L"-s", L"b"}, L"-s", kInitLong);
  EXPECT_EQ(o.steps, L"1=a s 1=b");
  EXPECT_EQ(o.optind, 3);
  EXPECT_EQ(o.words, (Words{L"a", L"-s", L"b"}));
  EXPECT_EQ(o.err, L"");
}

TEST(OptionScanner, OrderingIsFixedByTheFirstCall) {
  World w;
  Argv args{L"a", L"-s"};
  // Later calls only skip a leading '+'.
  EXPECT_EQ(w.scanner.next(args.argc(), args.argv(), L"s", kInitLong), L's');
  EXPECT_EQ(w.scanner.state.ordering, Ordering::Permute);
  Argv again{L"b", L"-s"};
  w.scanner.optind = 0;
  EXPECT_EQ(w.scanner.next(again.argc(), again.argv(), L"+s", kInitLong), L's');
  EXPECT_EQ(w.scanner.state.ordering, Ordering::Permute);
}

TEST(OptionScanner, LettersOnlyWithoutATable) {
  Outcome o = run({L"-sx", L"-s=", L"--s"}, L"s", nullptr);
  EXPECT_EQ(o.steps, L"s ? s s");
  EXPECT_EQ(o.optopt, L'x');
  EXPECT_EQ(o.err, L"Warning: invalid option -- 'x'.\n");
}

TEST(OptionScanner, FlagPointerReceivesTheValue) {
  int flag = 0;
  const LongOption table[] = {{L"verbose", 0, &flag, L'v'}, {L"level", 1, &flag, L'l'}, {nullptr, 0, nullptr, 0}};
  Outcome o = run({L"-verbose"}, L"s", table);
  EXPECT_EQ(o.steps, L"0");
  EXPECT_EQ(flag, L'v');
  o = run({L"-lev", L"3"}, L"s", table);
  EXPECT_EQ(o.steps, L"0=3");
  EXPECT_EQ(flag, L'l');
}

TEST(OptionScanner, TwoInexactMatchesAreAmbiguousEvenWhenAlike) {
  const LongOption table[] = {{L"verbose", 0, nullptr, L'v'}, {L"verbatim", 0, nullptr, L'v'}, {nullptr, 0, nullptr, 0}};
  Outcome o = run({L"--verb"}, L"s", table);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.err, L"Warning: option '--verb' is ambiguous.\n");
  EXPECT_EQ(run({L"-verbo"}, L"s", table).steps, L"v");
}

TEST(OptionScanner, ExactMatchWinsOverAnEarlierLongerName) {
  const LongOption table[] = {{L"silently", 0, nullptr, L'x'}, {L"silent", 0, nullptr, L's'}, {nullptr, 0, nullptr, 0}};
  EXPECT_EQ(run({L"-silent"}, L"q", table).steps, L"s");
  EXPECT_EQ(run({L"-silently"}, L"q", table).steps, L"x");
  EXPECT_EQ(run({L"-silen"}, L"q", table).err, L"Warning: option '-silen' is ambiguous.\n");
}

TEST(OptionScanner, LongIndexAndStrictOrderThroughTheScanItself) {
  World w;
  Argv args{L"-skip", L"w", L"-s"};
  OptionScanState state;
  int index = -1;
  EXPECT_EQ(scanOptions(args.argc(), args.argv(), kRemoveOptions, kRemoveLong, &index, 1, state, 0, w.out), L'g');
  EXPECT_EQ(index, 0);
  EXPECT_EQ(state.initialized, 1);
  EXPECT_EQ(state.posixlyCorrect, 0);

  OptionScanState strict;
  Argv words{L"w", L"-s"};
  EXPECT_EQ(scanOptions(words.argc(), words.argv(), kRemoveOptions, kRemoveLong, nullptr, 1, strict, 1, w.out), -1);
  EXPECT_EQ(strict.optind, 0);
  EXPECT_EQ(strict.ordering, Ordering::RequireOrder);
}

TEST(OptionScanner, StateWithoutOpterrPrintsNothing) {
  World w;
  OptionScanState state;
  state.opterr = 0;
  Argv args{L"-x", L"-t"};
  EXPECT_EQ(scanOptions(args.argc(), args.argv(), kDiskOptions, kDiskLong, nullptr, 1, state, 0, w.out), L'?');
  EXPECT_EQ(scanOptions(args.argc(), args.argv(), kDiskOptions, kDiskLong, nullptr, 1, state, 0, w.out), L'?');
  EXPECT_EQ(state.optopt, L't');
  EXPECT_EQ(w.streams.err, L"");
}

TEST(OptionScanner, WithoutLongOnlySingleDashMeansLetters) {
  World w;
  OptionScanState state;
  Argv args{L"-sg", L"--skipsave"};
  std::wstring steps;
  for (int r; (r = scanOptions(args.argc(), args.argv(), kRemoveOptions, kRemoveLong, nullptr, 0, state, 0,
                               w.out)) != -1;)
    steps += describe(r, state.optarg);
  EXPECT_EQ(steps, L"sgg");
}

// "W;" makes "-W name" a long option.
constexpr wchar_t kWithW[] = L"sW;";
const LongOption kWLong[] = {
    {L"silent", 0, nullptr, L's'},
    {L"size", 1, nullptr, L'n'},
    {L"skipsave", 0, nullptr, L'g'},
    {L"volatile", 2, nullptr, L'v'},
    {nullptr, 0, nullptr, 0},
};

TEST(OptionScannerW, NameInTheNextElementOrAttached) {
  Outcome o = run({L"-W", L"silent"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"s");
  EXPECT_EQ(o.optind, 2);
  EXPECT_EQ(run({L"-Wsilent"}, kWithW, kWLong).steps, L"s");
  EXPECT_EQ(run({L"-W=silent"}, kWithW, kWLong).steps, L"s");
  EXPECT_EQ(run({L"-W", L"sil"}, kWithW, kWLong).steps, L"s");
  EXPECT_EQ(run({L"-W", L"silent"}, kWithW, kWLong).err, L"");
}

TEST(OptionScannerW, Arguments) {
  Outcome o = run({L"-W", L"size", L"5", L"w"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"n=5");
  EXPECT_EQ(o.optind, 3);
  EXPECT_EQ(o.err, ignored(L"w"));
  EXPECT_EQ(run({L"-W", L"size=5"}, kWithW, kWLong).steps, L"n=5");
  EXPECT_EQ(run({L"-W", L"volatile"}, kWithW, kWLong).steps, L"v");
  EXPECT_EQ(run({L"-W", L"volatile=1"}, kWithW, kWLong).steps, L"v=1");
  o = run({L"-W", L"volatile", L"1"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"v");
  EXPECT_EQ(o.err, ignored(L"1"));
}

TEST(OptionScannerW, Diagnostics) {
  Outcome o = run({L"-W", L"si", L"-s"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"? s");
  EXPECT_EQ(o.err, L"Warning: option '-W si' is ambiguous.\n");
  o = run({L"-W", L"silent=1"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L's');
  EXPECT_EQ(o.err, L"Warning: option '-W silent' doesn't allow an argument.\n");
  o = run({L"-W", L"size"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L'n');
  EXPECT_EQ(o.err, L"Warning: option '-W size' requires an argument.\n");
  o = run({L"-W"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.optopt, L'W');
  EXPECT_EQ(o.err, L"Warning: option requires an argument -- 'W'.\n");
  o = run({L"-;"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"?");
  EXPECT_EQ(o.err, L"Warning: invalid option -- ';'.\n");
}

TEST(OptionScannerW, QuietForms) {
  EXPECT_EQ(run({L"-W", L"size"}, L":sW;", kWLong).steps, L":");
  EXPECT_EQ(run({L"-W", L"size"}, L":sW;", kWLong).err, L"");
  EXPECT_EQ(run({L"-W"}, L":sW;", kWLong).steps, L":");
  EXPECT_EQ(run({L"-W", L"si"}, L":sW;", kWLong).err, L"");
}

TEST(OptionScannerW, UnknownNameIsHandedBackAsW) {
  Outcome o = run({L"-W", L"bogus", L"-s"}, kWithW, kWLong);
  EXPECT_EQ(o.steps, L"W=bogus s");
  EXPECT_EQ(o.err, L"");
}

}  // namespace
}  // namespace vmd
