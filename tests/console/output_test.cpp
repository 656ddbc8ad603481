#include "console/output.h"

#include <gtest/gtest.h>

#include <string>

#include "support/fakes.h"

namespace vmd {
namespace output_test {

struct OutputTest : ::testing::Test {
  test::CapturingStreams streams;
  test::MapCatalog catalog{{{0x10, L"two breaks\r\n\r\n"},
                            {0x11, L"none"},
                            {0x12, L"%1 and %2\r\n"},
                            {0x13, std::wstring()},  // an empty text
                            {0x14, L"\r\n"},
                            {0x15, L"inner\r\nline\n\r"}},
                           {{242, L"Error: file '%s' is invalid!\n"}}};
  test::ScriptedKeys keys;
  Output io{streams, catalog, keys};
};

TEST_F(OutputTest, CatalogueTextEndsWithExactlyOneLineFeed) {
  io.message(Stream::Out, 0x10, {});
  EXPECT_EQ(streams.out, L"two breaks\n");
}

TEST_F(OutputTest, CatalogueTextWithoutBreakGetsNone) {
  io.message(Stream::Out, 0x11, {});
  EXPECT_EQ(streams.out, L"none");
}

TEST_F(OutputTest, InnerLineBreaksAreKept) {
  io.message(Stream::Err, 0x15, {});
  EXPECT_EQ(streams.err, L"inner\r\nline\n");
  EXPECT_EQ(streams.out, L"");
}

TEST_F(OutputTest, InsertsAreFilled) {
  io.message(Stream::Out, 0x12, {L"vmdctl", L"ls"});
  EXPECT_EQ(streams.out, L"vmdctl and ls\n");
}

TEST_F(OutputTest, MissingOrEmptyMessagePrintsNothing) {
  io.message(Stream::Out, 0x99, {});
  io.message(Stream::Out, 0x13, {});
  EXPECT_TRUE(streams.writes.empty());
}

TEST_F(OutputTest, MessageOfOnlyLineBreaksBecomesOneLineFeed) {
  io.message(Stream::Out, 0x14, {});
  EXPECT_EQ(streams.out, L"\n");
}

TEST_F(OutputTest, StringTableTextAsFormat) {
  io.errStr(242, L"C:\\x");
  EXPECT_EQ(streams.err, L"Error: file 'C:\\x' is invalid!\n");
}

TEST_F(OutputTest, MissingStringPrintsNothing) {
  io.errStr(999, L"x");
  EXPECT_EQ(streams.err, L"");
  EXPECT_EQ(io.str(999), L"");
}

TEST_F(OutputTest, PromptProceedsOnlyOnYOrLowerY) {
  for (int key : {int{L'y'}, int{L'Y'}}) {
    streams.clear();
    keys.push(key);
    EXPECT_TRUE(io.confirm(L"Press 'Y' or 'y' to continue, any other key to cancel: "));
    EXPECT_EQ(streams.out, L"Press 'Y' or 'y' to continue, any other key to cancel: \n\n");
  }
  for (int key : {int{L'n'}, int{L'\r'}, int{L' '}, 27, -1}) {
    streams.clear();
    keys.push(key);
    EXPECT_FALSE(io.confirm(L"Q: ")) << key;
    EXPECT_EQ(streams.out, L"Q: \n\n");
  }
}

TEST_F(OutputTest, PromptReadsExactlyOneKey) {
  keys.push(L'n');
  keys.push(L'y');
  EXPECT_FALSE(io.confirm(L"Q: "));
  EXPECT_EQ(keys.reads, 1);
  EXPECT_EQ(keys.queue.size(), 1u);
}

TEST_F(OutputTest, MessagesGoThroughTheStreamsWhileTheConsoleSwitchesAreOff) {
  streams.console = true;
  io.message(Stream::Out, 0x12, {L"a", L"b"});
  EXPECT_TRUE(streams.consoleWrites.empty());
  EXPECT_EQ(streams.out, L"a and b\n");
}

TEST_F(OutputTest, SwitchedOnMessagesGoToTheConsoleInOneWrite) {
  streams.console = true;
  Output direct(streams, catalog, keys, DirectConsole{true, false});
  direct.message(Stream::Out, 0x10, {});
  direct.message(Stream::Err, 0x11, {});
  ASSERT_EQ(streams.consoleWrites.size(), 1u);
  EXPECT_EQ(streams.consoleWrites[0].second, L"two breaks\n");
  EXPECT_EQ(streams.out, L"");
  EXPECT_EQ(streams.err, L"none");
}

TEST_F(OutputTest, SwitchedOnWithoutAConsoleFallsBackToTheStream) {
  Output direct(streams, catalog, keys, DirectConsole{true, true});
  direct.message(Stream::Err, 0x11, {});
  EXPECT_TRUE(streams.consoleWrites.empty());
  EXPECT_EQ(streams.err, L"none");
}

}  // namespace output_test
}  // namespace vmd
