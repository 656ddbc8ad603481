// The scanner itself: permutation, the calling convention, and the option-string
// forms no command uses.
#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "console/option_scan_support.h"

namespace vmd::test {
namespace option_scanner_test {

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

}  // namespace option_scanner_test
}  // namespace vmd::test
