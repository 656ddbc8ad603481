#include "platform/message_text.h"

#include <gtest/gtest.h>

namespace vmd {
namespace message_text_test {

TEST(MessageText, NumberedInserts) {
  EXPECT_EQ(expandMessageInserts(L"%1: Invalid use of command '%2'.\r\nFor more information, type: %1 ? %2\r\n",
                                 {L"vmdctl", L"view"}),
            L"vmdctl: Invalid use of command 'view'.\r\nFor more information, type: vmdctl ? view\r\n");
}

TEST(MessageText, InsertWithPrintfFormatIsTakenAsString) {
  EXPECT_EQ(expandMessageInserts(L"[%1!s!]", {L"x"}), L"[x]");
}

TEST(MessageText, Escapes) {
  EXPECT_EQ(expandMessageInserts(L"100%% %. %! a%nb%tc%rd", {}), L"100% . ! a\r\nb\tc\rd");
  EXPECT_EQ(expandMessageInserts(L"stop%0here", {}), L"stop");
}

TEST(MessageText, MissingInsertPrintsNothingAndNullPrintsMarker) {
  EXPECT_EQ(expandMessageInserts(L"<%2>", {L"a"}), L"<>");
  EXPECT_EQ(expandMessageInserts(L"<%1>", {nullptr}), L"<(null)>");
}

TEST(MessageText, TwoDigitInsert) {
  std::vector<const wchar_t*> ins(12, L"-");
  ins[11] = L"twelve";
  EXPECT_EQ(expandMessageInserts(L"%12", ins), L"twelve");
}

}  // namespace message_text_test
}  // namespace vmd
