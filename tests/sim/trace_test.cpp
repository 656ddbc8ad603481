// The request trace: one line a call, numbered in order, timed, with its
// target, arguments and result; the machine's own lines after the call they
// happened in; a repeating poll folded; nothing at all without a trace.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "sim/fault_layer.h"
#include "sim/sim_process.h"
#include "sim/trace.h"
#include "sim_rig.h"

namespace vmd::sim {
namespace trace_test {

using test::Rig;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t from = 0;
  for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', from)) {
    lines.push_back(text.substr(from, nl - from));
    from = nl + 1;
  }
  EXPECT_EQ(from, text.size()) << "the last line ends with a line break";
  return lines;
}

// The trace of a rig's machine, kept in memory while this lives.
struct TraceOf {
  explicit TraceOf(Rig& r) : rig(r), sink(nullptr, [&r] { return r.machine.nowMs(); }) { rig.machine.setTrace(&sink); }
  ~TraceOf() { rig.machine.setTrace(nullptr); }
  const std::string& text() const { return sink.text(); }

  Rig& rig;
  TraceSink sink;
};

// A sink over a clock the test moves.
struct Traced {
  std::uint64_t ms = 0;
  TraceSink sink{nullptr, [this] { return ms; }};

  void call(const char* name, const std::string& target, const char* result = "ok") {
    TraceSink::Call c;
    sink.open(c);
    TraceLine line(name, target);
    line.word(std::string("-> ") + result);
    sink.finish(c, line);
  }
};

TEST(TraceLine, QuotesTargetsAndTextsAndWritesBytesInLowerCaseHex) {
  TraceLine line("CreateFileW", "C:\\50% \"off\"\tnow");
  const std::uint8_t data[] = {0x0c, 0xAB, 0x00};
  line.hex("access", 0xC0000000u).bytes("in", data, sizeof data).text("label", "").ok().number("returned", 3);
  EXPECT_EQ(line.body(),
            "CreateFileW \"C:\\50%25 %22off%22%09now\" access=0xc0000000 in=0cab00 label=\"\" -> ok returned=3");
  EXPECT_TRUE(line.hasResult());
}

TEST(TraceLine, ErrorsAreWrittenAsEightHexDigits) {
  TraceLine line("DeleteVolumeMountPointW", "R:\\");
  EXPECT_EQ(line.error(2).body(), "DeleteVolumeMountPointW \"R:\\\" -> error 0x00000002");
}

TEST(TraceSink, NumbersLinesInOrderWithTheTimeTheCallStarted) {
  Traced t;
  t.call("GetLogicalDrives", "");
  t.ms = 500;
  t.call("Sleep", "");
  EXPECT_EQ(t.sink.text(), "#1 t=0 GetLogicalDrives \"\" -> ok\n#2 t=500 Sleep \"\" -> ok\n");
}

TEST(TraceSink, MachineLinesDuringACallFollowItsLine) {
  Traced t;
  TraceSink::Call sleep;
  t.sink.open(sleep);
  t.ms = 1500;
  t.sink.event(TraceLine("DiskArrived", "\\\\.\\VelmoRdDevPort0Target0"));
  TraceLine line("Sleep", "");
  t.sink.finish(sleep, line.number("ms", 1500).ok());
  EXPECT_EQ(t.sink.text(),
            "#1 t=0 Sleep \"\" ms=1500 -> ok\n"
            "* t=1500 DiskArrived \"\\\\.\\VelmoRdDevPort0Target0\"\n");
}

TEST(TraceSink, ACallARuleFailedIsMarkedInjected) {
  Traced t;
  TraceSink::Call open;
  t.sink.open(open);
  t.sink.injected(5);
  t.sink.finish(open, TraceLine("CreateFileW", "\\\\.\\R:"));
  TraceSink::Call com;
  t.sink.open(com);
  t.sink.injected(0x80004005u);
  TraceLine hr("CoInitialize", "");
  t.sink.finish(com, hr.error(0x80004005u));
  EXPECT_EQ(t.sink.text(),
            "#1 t=0 CreateFileW \"\\\\.\\R:\" -> error 0x00000005 injected\n"
            "#2 t=0 CoInitialize \"\" -> error 0x80004005 injected\n");
}

TEST(TraceSink, ACallNotMadeLeavesNoLineAndNoGapInTheNumbers) {
  Traced t;
  TraceSink::Call dropped;
  t.sink.open(dropped);
  t.sink.cancel(dropped);
  t.call("CloseHandle", "x");
  EXPECT_EQ(t.sink.text(), "#1 t=0 CloseHandle \"x\" -> ok\n");
}

// A poll of three calls a round, `rounds` times, then one other call.
std::vector<std::string> poll(int rounds) {
  Traced t;
  for (int i = 0; i < rounds; ++i) {
    t.call("DeviceIoControl", "ctl", "ok data=01000000");
    t.call("CloseHandle", "ctl");
    t.call("Sleep", "");
    t.ms += 500;
  }
  t.call("CoUninitialize", "");
  EXPECT_TRUE(t.sink.close());
  return linesOf(t.sink.text());
}

TEST(TraceSink, APollThatRepeatsUnchangedIsFoldedAfterTwoRounds) {
  const std::vector<std::string> lines = poll(120);
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0], "#1 t=0 DeviceIoControl \"ctl\" -> ok data=01000000");
  EXPECT_EQ(lines[5], "#6 t=500 Sleep \"\" -> ok");
  EXPECT_EQ(lines[6], "#7..#360 t=1000..59500 Repeat \"\" lines=3 rounds=118");
  EXPECT_EQ(lines[7], "#361 t=60000 CoUninitialize \"\" -> ok");
}

TEST(TraceSink, AShortPollIsWrittenOut) {
  // Two rounds, and one more: nothing worth folding.
  const std::vector<std::string> lines = poll(3);
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_EQ(lines[8], "#9 t=1000 Sleep \"\" -> ok");
}

TEST(TraceSink, ARoundThatChangesEndsTheFoldAndIsWrittenOut) {
  Traced t;
  for (int i = 0; i < 5; ++i) {
    t.call("GetLogicalDrives", "", "ok mask=0x00000004");
    t.call("Sleep", "");
  }
  t.call("GetLogicalDrives", "", "ok mask=0x0000000c");
  t.call("Sleep", "");
  t.sink.close();
  const std::vector<std::string> lines = linesOf(t.sink.text());
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(lines[4], "#5..#10 t=0..0 Repeat \"\" lines=2 rounds=3");
  EXPECT_EQ(lines[5], "#11 t=0 GetLogicalDrives \"\" -> ok mask=0x0000000c");
  EXPECT_EQ(lines[6], "#12 t=0 Sleep \"\" -> ok");
}

TEST(TraceSink, LinesAlikeInLengthAndEndButNotAtTheirStartAreNotFolded) {
  // Twelve lines of one length and one end, each with its own name: none
  // repeats another.
  Traced t;
  for (int i = 0; i < 12; ++i) {
    const std::string name = "Call" + std::string(1, static_cast<char>('A' + i));
    t.call(name.c_str(), "same target", "ok data=0102030405060708");
  }
  t.sink.close();
  const std::vector<std::string> lines = linesOf(t.sink.text());
  ASSERT_EQ(lines.size(), 12u);
  EXPECT_EQ(lines[11], "#12 t=0 CallL \"same target\" -> ok data=0102030405060708");
  // Two such lines, the same every round, fold.
  Traced u;
  for (int i = 0; i < 4; ++i) {
    u.call("OpenA", "same target", "ok data=0102030405060708");
    u.call("OpenA", "same targeT", "ok data=0102030405060708");
  }
  u.sink.close();
  const std::vector<std::string> folded = linesOf(u.sink.text());
  ASSERT_EQ(folded.size(), 5u);
  EXPECT_EQ(folded[4], "#5..#8 t=0..0 Repeat \"\" lines=2 rounds=2");
}

TEST(TraceSink, WritesThroughToItsFileWhenClosed) {
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  {
    TraceSink sink(f, [] { return std::uint64_t{7}; });
    TraceSink::Call c;
    sink.open(c);
    sink.finish(c, TraceLine("ReadKey", "").ok().text("key", "y"));
    EXPECT_TRUE(sink.close());
  }
  std::rewind(f);
  char buffer[64] = {};
  const std::size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
  std::fclose(f);
  EXPECT_EQ(std::string(buffer, n), "#1 t=7 ReadKey \"\" -> ok key=\"y\"\n");
}

TEST(TracedDecorators, TheTraceChangesNoCounterOfTheMachine) {
  Rig plain, traced;
  TraceOf trace(traced);
  for (Rig* rig : {&plain, &traced}) {
    rig->request(L"\\\\.\\MountPointManager", 0x6D003C, {}, 4);
    EXPECT_TRUE(rig->sim.volumes.volumeInformation(L"C:\\").ok);
    rig->sim.clock.sleep(100);
  }
  EXPECT_NE(trace.text(), "");
  EXPECT_EQ(plain.machine.toJson().dump(), traced.machine.toJson().dump());
}

TEST(TracedDecorators, ARequestShowsItsTargetCodeBytesAndResult) {
  Rig rig;
  TraceOf trace(rig);
  const Rig::Result r = rig.request(L"\\\\.\\MountPointManager", 0x6D003C, {}, 4);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(trace.text(),
            "#1 t=0 CreateFileW \"\\\\.\\MountPointManager\" access=0xc0000000 share=3 disposition=3 "
            "flags=0x00000000 -> ok\n"
            "#2 t=0 DeviceIoControl \"\\\\.\\MountPointManager\" code=IOCTL_MOUNTMGR_QUERY_AUTO_MOUNT in= out=4 "
            "-> ok returned=4 data=01000000\n"
            "#3 t=0 CloseHandle \"\\\\.\\MountPointManager\" -> ok\n");
}

TEST(TracedDecorators, ARuleThatFailsACallIsShownOnItsLine) {
  Rig rig({{"faults", {{{"api", "GetVolumeInformationW"}, {"path", "C:\\"}, {"error", 21}}}}});
  TraceOf trace(rig);
  EXPECT_FALSE(rig.sim.volumes.volumeInformation(L"C:\\").ok);
  rig.sim.clock.sleep(250);
  EXPECT_FALSE(rig.sim.volumes.volumeInformation(L"C:\\").ok);
  EXPECT_EQ(trace.text(),
            "#1 t=0 GetVolumeInformationW \"C:\\\" -> error 0x00000015 injected\n"
            "#2 t=0 Sleep \"\" ms=250 -> ok\n"
            "#3 t=250 GetVolumeInformationW \"C:\\\" -> error 0x00000015 injected\n");
}

TEST(TracedDecorators, AWholeFileIsCreatedWrittenOnceAndClosed) {
  Rig rig;
  TraceOf trace(rig);
  EXPECT_TRUE(rig.sim.files.writeWhole(L"C:\\d.vdd", Bytes{1, 2, 0xFE}).ok);
  EXPECT_EQ(trace.text(),
            "#1 t=0 CreateFileW \"C:\\d.vdd\" access=0x40000000 share=0 disposition=2 flags=0x00000080 -> ok\n"
            "#2 t=0 WriteFile \"C:\\d.vdd\" bytes=3 data=0102fe -> ok\n"
            "#3 t=0 CloseHandle \"C:\\d.vdd\" -> ok\n");
}

TEST(TracedDecorators, AFileThatCannotBeCreatedShowsTheCreateAlone) {
  Rig rig({{"files", {{{"path", "C:\\out"}, {"directory", true}}}}});
  TraceOf trace(rig);
  EXPECT_EQ(rig.sim.files.writeWhole(L"C:\\out", Bytes{1}).error, 110u);
  EXPECT_EQ(trace.text(),
            "#1 t=0 CreateFileW \"C:\\out\" access=0x40000000 share=0 disposition=2 flags=0x00000080 "
            "-> error 0x0000006e\n");
}

TEST(TracedKeys, AKeyAndTheEndOfInputAreShownWhereTheyAreRead) {
  Rig rig;
  std::FILE* in = std::tmpfile();
  ASSERT_NE(in, nullptr);
  std::fputs("n", in);
  std::rewind(in);
  StdinKeys keys(rig.machine, in);
  TraceOf trace(rig);
  EXPECT_EQ(keys.readKey(), 'n');
  EXPECT_EQ(keys.readKey(), -1);
  std::fclose(in);
  EXPECT_EQ(trace.text(),
            "#1 t=0 ReadKey \"\" -> ok key=\"n\"\n"
            "#2 t=0 ReadKey \"\" -> failed end-of-input\n");
}

}  // namespace trace_test
}  // namespace vmd::sim
