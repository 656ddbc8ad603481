#include "resources/catalogue_data.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vmd {
namespace catalogue_test {

const wchar_t* message(std::uint32_t id) {
  for (const catalogue::Entry* e = catalogue::kMessages; e->text; ++e)
    if (e->id == id) return e->text;
  return nullptr;
}

const wchar_t* string(std::uint32_t id) {
  for (const catalogue::Entry* e = catalogue::kStrings; e->text; ++e)
    if (e->id == id) return e->text;
  return nullptr;
}

std::vector<std::wstring> lines(const std::wstring& text) {
  std::vector<std::wstring> out;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = text.find(L"\r\n", at);
    if (end == std::wstring::npos) {
      out.push_back(text.substr(at));
      break;
    }
    out.push_back(text.substr(at, end - at));
    at = end + 2;
  }
  return out;
}

TEST(Catalogue, VerdictMessagesAreExact) {
  EXPECT_STREQ(message(0x1000), L"Tarnby Ramdisk Commander  Version %1\r\n");
  EXPECT_STREQ(message(0x1002), L"%1: Invalid use of command '%2'.\r\nFor more information, type: %1 ? %2\r\n");
  EXPECT_STREQ(message(0x1003), L"%1: Command '%2' failed.\r\n");
  EXPECT_STREQ(message(0x1004), L"%1: Command '%2' cancelled by user.\r\n");
  EXPECT_STREQ(message(0x1005), L"%1: Unknown command '%2'.\r\n");
}

TEST(Catalogue, UsageHasItsTwentyTwoLines) {
  ASSERT_NE(message(0x1001), nullptr);
  const auto u = lines(message(0x1001));
  ASSERT_EQ(u.size(), 22u);
  EXPECT_EQ(u[0], L"Usage: %1 <command> [<option>...]");
  EXPECT_EQ(u[1], L"");      // truly empty
  EXPECT_EQ(u[4], L"    ");  // four blanks
  EXPECT_EQ(u[5], L"Command List");
  EXPECT_EQ(u[6], L"------------");
  EXPECT_EQ(u[7], L"ls           Lists all virtual disks.");
  EXPECT_EQ(u[12], L"rebuild      Recreates the disk with new settings.");
  EXPECT_EQ(u[19], L"?            Displays help messages.");
  EXPECT_EQ(u[20], L"    ");
  EXPECT_EQ(u[21], L"For detailed command and option information, type: %1 ? <command>");
}

TEST(Catalogue, StringTableTexts) {
  EXPECT_STREQ(string(103), L"Tarnby Ramdisk");
  EXPECT_STREQ(string(116), L"KB");
  EXPECT_STREQ(string(120), L"Yes");
  EXPECT_STREQ(string(210), L"Compressed image");
  EXPECT_STREQ(string(215), L"Real-time save");
  EXPECT_STREQ(string(234), L"Error: not enough memory is available to process this command!\n");
  EXPECT_STREQ(string(245), L"Error: file '%s' is invalid - \nno volume is mounted, or the volume is not suitable!\n");
  EXPECT_STREQ(string(256), L"The disk is in the paging path. Please remove the paging file on it first.");
  EXPECT_STREQ(string(260), L"Warning: argument '%s' is unrecognized and ignored!\n");
  EXPECT_EQ(string(104), nullptr);
}

TEST(Catalogue, EveryCommandHasItsHelpText) {
  for (std::uint32_t id = 0x1100; id <= 0x1C00; id += 0x100) EXPECT_NE(message(id), nullptr) << std::hex << id;
}

}  // namespace catalogue_test
}  // namespace vmd
