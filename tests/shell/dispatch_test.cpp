#include "shell/dispatch.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text_codec.h"

namespace vmd {
namespace dispatch_test {

TEST(Dispatch, ProgramNameIsTheTextAfterTheLastBackslash) {
  EXPECT_STREQ(programNameOf(L"C:\\tools\\vmdctl.exe"), L"vmdctl.exe");
  EXPECT_STREQ(programNameOf(L"vmdctl"), L"vmdctl");
  EXPECT_STREQ(programNameOf(L"C:/tools/vmdctl"), L"C:/tools/vmdctl");
  EXPECT_STREQ(programNameOf(L"dir\\"), L"");
}

TEST(Dispatch, CommandTableOrderAndHelpIds) {
  const wchar_t* names[] = {L"ls",     L"add", L"del", L"view", L"edit", L"rebuild", L"init",
                            L"save",   L"export", L"im", L"mem", L"ver", L"?", L"help"};
  const std::uint32_t ids[] = {0x1100, 0x1200, 0x1300, 0x1400, 0x1500, 0x1600, 0x1700,
                               0x1800, 0x1900, 0x1A00, 0x1B00, 0x1C00, 0x1001, 0x1001};
  int n = 0;
  for (const CommandEntry* e = kCommandTable; e->name; ++e, ++n) {
    ASSERT_LT(n, 14);
    EXPECT_STREQ(e->name, names[n]);
    EXPECT_EQ(e->helpId, ids[n]) << n;
    EXPECT_NE(e->handler, nullptr);
  }
  EXPECT_EQ(n, 14);
  EXPECT_EQ(kCommandTable[12].handler, kCommandTable[13].handler);  // ? and help share one handler
}

TEST(Dispatch, SevenCommandsNameADiskAndAllButHelpNeedTheController) {
  int disk = 0;
  for (const CommandEntry* e = kCommandTable; e->name; ++e) {
    if (e->needs == setup::Disk) ++disk;
    const bool help = e->handler == &helpCommand;
    EXPECT_EQ(e->needs == setup::None, help) << toUtf8(e->name);
  }
  EXPECT_EQ(disk, 7);
  EXPECT_EQ(findCommand(L"DEL")->needs, setup::Disk);
  EXPECT_EQ(findCommand(L"ls")->needs, setup::Session);
  EXPECT_EQ(findCommand(L"-del"), nullptr);
}

}  // namespace dispatch_test
}  // namespace vmd
