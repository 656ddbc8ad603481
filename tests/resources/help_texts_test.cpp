// The per-command help texts are what an administrator reads after "vmdctl ? <command>"; these tests hold
// them to their fixed heads and to one layout: option forms, the description column, shared wordings.
#include <gtest/gtest.h>

#include <cstdint>
#include <cwctype>
#include <regex>
#include <string>
#include <vector>

#include "resources/catalogue_data.h"

namespace vmd {
namespace help_texts_test {

constexpr std::size_t kDescriptionColumn = 30;  // zero-based: the 31st character of the line
constexpr std::size_t kMaxLineLength = 79;

const std::wstring kIndexLine = std::wstring(L"<index>") + std::wstring(kDescriptionColumn - 7, L' ') +
                                L"Specifies the index of virtual disk [0-127].";

const std::vector<std::wstring> kSettingsOptions = {
    L"-n, -size",  L"-t, -type",   L"-d, -drive",  L"-v, -volatile", L"-m, -dmm",   L"-i, -im",
    L"-p, -pd",    L"-f, -fs",     L"-c, -clus",   L"-l, -label",    L"-X, -nc",    L"-N, -nni",
    L"-Q, -np",    L"-T, -temp",   L"-r, -dir",    L"-z, -vsn",      L"-I, -image", L"-L, -nosave",
    L"-D, -delay", L"-F, -format", L"-K, -timing", L"-g, -skipsave", L"-s, -silent"};

struct HelpText {
  std::uint32_t id;
  std::wstring word;
  std::wstring description;
  std::wstring synopsis;  // the first synopsis line, exactly
  std::vector<std::wstring> options;
};

const std::vector<HelpText>& helpTexts() {
  static const std::vector<HelpText> texts = {
      {0x1100, L"ls", L"Lists all virtual disks.", L"%1 %2", {}},
      {0x1200, L"add", L"Creates a new virtual disk.",
       L"%1 %2 [-n <disksize>] [-t <disktype>] [-d <letter>] [-v]", kSettingsOptions},
      {0x1300,
       L"del",
       L"Removes a virtual disk.",
       L"%1 %2 <index> [-g] [-s]",
       {L"-g, -skipsave", L"-s, -silent"}},
      {0x1400, L"view", L"Displays the settings and status of a virtual disk.", L"%1 %2 <index>", {}},
      {0x1500, L"edit", L"Changes the settings of a virtual disk.",
       L"%1 %2 <index> [-n <disksize>] [-t <disktype>] [-d <letter>] [-v]", kSettingsOptions},
      {0x1600, L"rebuild", L"Removes the specified disk first, and then recreates it with new seetings. ",
       L"%1 %2 <index> [-g] [-s] ", kSettingsOptions},
      {0x1700, L"init", L"Reinitializes a virtual disk.", L"%1 %2 <index> [-s]", {L"-s, -silent"}},
      {0x1800,
       L"save",
       L"Saves the disk contents to an image file.",
       L"%1 %2 <index> [-a <file> [-F <format>]] [-s]",
       {L"-a, -saveas", L"-F, -format", L"-s, -silent"}},
      {0x1900,
       L"export",
       L"Exports the disk settings as a disk descriptor file.",
       L"%1 %2 <index> -f <file> [-s]",
       {L"-f, -file", L"-s, -silent"}},
      {0x1A00,
       L"im",
       L"Manages the Invisible Memory.",
       L"%1 %2 [<sub-command>] [<option>...]",
       {L"-r, -rsvd", L"-q, -quota", L"-l, -loc", L"-n, -nohiber", L"-s, -silent"}},
      {0x1B00, L"mem", L"Displays current system memory information.", L"%1 %2", {}},
      {0x1C00, L"ver", L"Displays version information.", L"%1 %2", {}},
  };
  return texts;
}

const wchar_t* message(std::uint32_t id) {
  for (const catalogue::Entry* e = catalogue::kMessages; e->text; ++e)
    if (e->id == id) return e->text;
  return nullptr;
}

// Lines of a message as the message compiler stores it: each ends in "\r\n".
std::vector<std::wstring> lines(std::uint32_t id) {
  std::vector<std::wstring> out;
  const wchar_t* text = message(id);
  if (!text) return out;
  const std::wstring t(text);
  std::size_t at = 0;
  while (at < t.size()) {
    const std::size_t end = t.find(L"\r\n", at);
    if (end == std::wstring::npos) {
      out.push_back(t.substr(at));
      break;
    }
    out.push_back(t.substr(at, end - at));
    at = end + 2;
  }
  return out;
}

bool startsWith(const std::wstring& s, const std::wstring& head) {
  return s.compare(0, head.size(), head) == 0;
}

// Synopsis: line 3 and its indented continuation lines, up to the first empty line.
std::size_t synopsisEnd(const std::vector<std::wstring>& text) {
  std::size_t i = 4;
  while (i < text.size() && !text[i].empty()) ++i;
  return i;
}

// The option block: the non-empty lines between the synopsis and the first section heading.
std::vector<std::wstring> optionBlock(const std::vector<std::wstring>& text) {
  std::vector<std::wstring> block;
  for (std::size_t i = synopsisEnd(text); i < text.size(); ++i) {
    if (text[i] == L"Remarks:" || text[i] == L"Examples:") break;
    if (!text[i].empty()) block.push_back(text[i]);
  }
  return block;
}

std::vector<std::wstring> section(const std::vector<std::wstring>& text, const std::wstring& heading) {
  std::vector<std::wstring> out;
  std::size_t i = 0;
  while (i < text.size() && text[i] != heading) ++i;
  for (++i; i < text.size() && !text[i].empty(); ++i) out.push_back(text[i]);
  return out;
}

std::wstring title(const std::wstring& word) {
  std::wstring cap = word;
  cap[0] = static_cast<wchar_t>(std::towupper(cap[0]));
  return L"Tarnby Ramdisk " + cap + L" Command";
}

TEST(HelpTexts, BeginWithTitleDescriptionBlankLineAndSynopsis) {
  for (const HelpText& h : helpTexts()) {
    SCOPED_TRACE(h.word);
    const auto text = lines(h.id);
    ASSERT_GE(text.size(), 4u);
    EXPECT_EQ(text[0], title(h.word));
    EXPECT_EQ(text[1], h.description);
    EXPECT_EQ(text[2], L"");
    EXPECT_EQ(text[3], h.synopsis);
  }
}

TEST(HelpTexts, RebuildKeepsItsDescriptionWordForWord) {
  const auto text = lines(0x1600);
  ASSERT_GE(text.size(), 4u);
  EXPECT_EQ(text[1], L"Removes the specified disk first, and then recreates it with new seetings. ");
  EXPECT_EQ(text[3], L"%1 %2 <index> [-g] [-s] ");
}

TEST(HelpTexts, AddSynopsisHasFourContinuationLines) {
  const auto text = lines(0x1200);
  EXPECT_EQ(synopsisEnd(text) - 4, 4u);
}

TEST(HelpTexts, SettingsSynopsisContinuationLinesLineUpUnderTheFirstOption) {
  for (std::uint32_t id : {0x1200u, 0x1500u, 0x1600u}) {
    SCOPED_TRACE(id);
    const auto text = lines(id);
    ASSERT_GE(text.size(), 5u);
    const std::size_t column = text[3].find(L'[');
    const std::size_t end = synopsisEnd(text);
    ASSERT_GT(end, 4u) << "no continuation lines";
    for (std::size_t i = 4; i < end; ++i) {
      EXPECT_EQ(text[i].find_first_not_of(L' '), column) << text[i];
      EXPECT_EQ(text[i][column], L'[') << text[i];
    }
  }
}

TEST(HelpTexts, EveryOptionIsListedWithItsDescriptionAtColumn31) {
  for (const HelpText& h : helpTexts()) {
    SCOPED_TRACE(h.word);
    const auto block = optionBlock(lines(h.id));
    for (const std::wstring& option : h.options) {
      std::size_t at = 0;
      while (at < block.size()) {
        const std::wstring& l = block[at];
        if (startsWith(l, option) &&
            (l.size() == option.size() || l[option.size()] == L' ' || l[option.size()] == L'['))
          break;
        ++at;
      }
      ASSERT_LT(at, block.size()) << "missing option " << std::string(option.begin(), option.end());
      const std::wstring& l = block[at];
      const std::size_t head = l.find(L"  ");  // the option text ends at the padding
      if (l.size() > kDescriptionColumn) {
        EXPECT_LT(head, kDescriptionColumn) << std::string(l.begin(), l.end());
        EXPECT_EQ(l.find_first_not_of(L' ', head), kDescriptionColumn) << std::string(l.begin(), l.end());
      } else {
        ASSERT_LT(at + 1, block.size());
        EXPECT_EQ(block[at + 1].find_first_not_of(L' '), kDescriptionColumn);
      }
    }
  }
}

TEST(HelpTexts, OptionBlockLinesKeepTheDescriptionColumn) {
  for (const HelpText& h : helpTexts()) {
    SCOPED_TRACE(h.word);
    for (const std::wstring& l : optionBlock(lines(h.id))) {
      const std::string narrow(l.begin(), l.end());
      if (l[0] == L' ') {
        EXPECT_EQ(l.find_first_not_of(L' '), kDescriptionColumn) << narrow;
      } else if (l.size() > kDescriptionColumn) {
        EXPECT_EQ(l[kDescriptionColumn - 1], L' ') << narrow;
        EXPECT_NE(l[kDescriptionColumn], L' ') << narrow;
      }
    }
  }
}

TEST(HelpTexts, SettingsCommandsLeaveTheNodeOptionUndocumented) {
  const std::wregex node(L"(^|[ \\[])-e([ ,\\]=<]|$)|-node");
  for (std::uint32_t id : {0x1200u, 0x1500u, 0x1600u}) {
    for (const std::wstring& l : lines(id))
      EXPECT_FALSE(std::regex_search(l, node)) << std::string(l.begin(), l.end());
  }
}

TEST(HelpTexts, SilentOptionReadsTheSameInEveryText) {
  std::vector<std::wstring> first;
  int texts = 0;
  for (const HelpText& h : helpTexts()) {
    const auto block = optionBlock(lines(h.id));
    for (std::size_t i = 0; i < block.size(); ++i) {
      if (!startsWith(block[i], L"-s, -silent")) continue;
      SCOPED_TRACE(h.word);
      ASSERT_LE(i + 3, block.size());
      const std::vector<std::wstring> silent(block.begin() + i, block.begin() + i + 3);
      EXPECT_EQ(silent[0].substr(kDescriptionColumn), L"Executes this command in silent mode. No ");
      if (first.empty()) first = silent;
      EXPECT_EQ(silent, first);
      if (i + 3 < block.size()) {
        EXPECT_NE(block[i + 3][0], L' ') << "silent has more than three lines";
      }
      ++texts;
    }
  }
  EXPECT_EQ(texts, 8);  // add, del, edit, rebuild, init, save, export, im
}

TEST(HelpTexts, DiskIndexIsDescribedInOneWording) {
  for (const HelpText& h : helpTexts()) {
    if (h.synopsis.find(L"<index>") == std::wstring::npos) continue;
    SCOPED_TRACE(h.word);
    const auto block = optionBlock(lines(h.id));
    ASSERT_FALSE(block.empty());
    EXPECT_EQ(block[0], kIndexLine);
  }
}

TEST(HelpTexts, ImHelpWritesQuarnelInCapitals) {
  // Each phrase stays whole on one line, so that it reads (and can be found) as written.
  bool nonQuarnel = false, quarnel = false;
  const std::wstring phrase = L"QUARNEL applications";
  const std::wregex anyCase(L"quarnel", std::regex_constants::icase);
  for (const std::wstring& l : lines(0x1A00)) {
    if (l.find(L"non-" + phrase) != std::wstring::npos) nonQuarnel = true;
    for (std::size_t at = l.find(phrase); at != std::wstring::npos; at = l.find(phrase, at + 1))
      if (at < 4 || l.compare(at - 4, 4, L"non-") != 0) quarnel = true;
    for (std::wsregex_iterator m(l.begin(), l.end(), anyCase), end; m != end; ++m)
      EXPECT_EQ(m->str(), L"QUARNEL");
  }
  EXPECT_TRUE(nonQuarnel);
  EXPECT_TRUE(quarnel);
}

TEST(HelpTexts, LinesAreShortPlainAsciiAndSafeForTheMessageFormatter) {
  for (const HelpText& h : helpTexts()) {
    SCOPED_TRACE(h.word);
    for (const std::wstring& l : lines(h.id)) {
      const std::string narrow(l.begin(), l.end());
      EXPECT_LE(l.size(), kMaxLineLength) << narrow;
      EXPECT_NE(l, L".");
      for (std::size_t i = 0; i < l.size(); ++i) {
        EXPECT_TRUE(l[i] >= 0x20 && l[i] < 0x7f) << narrow;
        if (l[i] == L'%') {
          EXPECT_TRUE(i + 1 < l.size() && (l[i + 1] == L'1' || l[i + 1] == L'2')) << narrow;
        }
      }
    }
  }
}

TEST(HelpTexts, ExamplesAreIndentedCommandLines) {
  for (const HelpText& h : helpTexts()) {
    SCOPED_TRACE(h.word);
    for (const std::wstring& l : section(lines(h.id), L"Examples:"))
      EXPECT_TRUE(startsWith(l, L"    %1 %2")) << std::string(l.begin(), l.end());
  }
}

}  // namespace help_texts_test
}  // namespace vmd
