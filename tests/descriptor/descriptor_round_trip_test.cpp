// Over generated option sets: a disk that add made is exported, its
// descriptor is read back, the add command line the reader prints makes the
// disk again on a fresh machine, and that disk's export carries the same
// settings record, but for what creation itself decides.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/bytes.h"
#include "shell/dispatch.h"
#include "descriptor/descriptor_tool.h"
#include "settings/descriptor_file.h"
#include "settings/settings_record.h"
#include "support/option_generator.h"
#include "support/sim_app.h"

namespace vmd {
namespace descriptor_round_trip_test {

using sim::json;
using test::Args;
using test::describe;
using test::Generator;
using test::SimApp;

constexpr char kDescriptor[] = "C:\\round-trip.vdd";

// The Windows rules by which a program's command line is split into its
// arguments: blanks separate, quotes group, 2n backslashes before a quote
// give n and the quote groups, 2n+1 give n and a literal quote.
std::vector<std::wstring> splitCommandLine(const std::wstring& line) {
  std::vector<std::wstring> args;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == L' ' || line[i] == L'\t')) ++i;
    if (i >= line.size()) break;
    std::wstring arg;
    bool quoted = false;
    for (; i < line.size() && (quoted || (line[i] != L' ' && line[i] != L'\t')); ++i) {
      std::size_t slashes = 0;
      while (i < line.size() && line[i] == L'\\') ++slashes, ++i;
      if (i < line.size() && line[i] == L'"') {
        arg.append(slashes / 2, L'\\');
        if (slashes % 2) {
          arg += L'"';
        } else {
          quoted = !quoted;
        }
      } else {
        arg.append(slashes, L'\\');
        if (i >= line.size()) break;
        if (!quoted && (line[i] == L' ' || line[i] == L'\t')) break;
        arg += line[i];
      }
    }
    args.push_back(arg);
  }
  return args;
}

TEST(SplitCommandLine, FollowsTheWindowsRules) {
  EXPECT_EQ(splitCommandLine(L"a \"b c\" d"), (std::vector<std::wstring>{L"a", L"b c", L"d"}));
  EXPECT_EQ(splitCommandLine(L"\"C:\\My Files\\\\\" x"), (std::vector<std::wstring>{L"C:\\My Files\\", L"x"}));
  EXPECT_EQ(splitCommandLine(L"a\\\"b \"\""), (std::vector<std::wstring>{L"a\"b", L""}));
}

TEST(SplitCommandLine, UndoesQuoteArgument) {
  for (const std::wstring& text : {std::wstring(L"plain"), std::wstring(L"two words"), std::wstring(L""),
                                   std::wstring(L"C:\\dir with blank\\"), std::wstring(L"say \"hi\""),
                                   std::wstring(L"a\\\\\"b")})
    EXPECT_EQ(splitCommandLine(QuoteArgument(text)), std::vector<std::wstring>{text}) << toUtf8(text);
}

json machineWithImages() {
  json state = test::optionMachine();
  state["controller"]["timing"] = {{"volumeAfterMs", 500}};
  return state;
}

// Runs add with `options` (silently) and exports the new disk; the
// descriptor's bytes, or nothing when add refused the options.
std::optional<Bytes> addAndExport(std::vector<std::wstring> options, std::string* failure) {
  SimApp sim(machineWithImages());
  sim.machine.edit([](json& s) { test::addImages(s, 128); });
  options.push_back(L"-s");
  // Each command starts with an option scanner of its own, as each run of
  // the program does.
  Args add(options);
  if (runCommand(sim.app, L"vmdctl", L"add", add.argc(), add.argv()) != Success) return std::nullopt;
  OptionScanner scanner(sim.io);
  App app{sim.platform.platform, sim.io, scanner, sim.controller};
  Args exportArgs({L"0", L"-f", fromUtf8(kDescriptor), L"-s"});
  if (runCommand(app, L"vmdctl", L"export", exportArgs.argc(), exportArgs.argv()) != Success) {
    *failure = "export failed: " + toUtf8(sim.err());
    return std::nullopt;
  }
  for (const auto& f : sim.machine.world.files)
    if (f.path == kDescriptor && f.head) return Bytes(f.head->begin(), f.head->end());
  *failure = "no descriptor file";
  return std::nullopt;
}

// The record with what creation decides cleared: the checksum, the
// signature, and a serial chosen automatically.
Bytes withoutCreationChoices(Bytes record) {
  using H = DiskSettingsRecord::Header;
  using F = DiskSettingsRecord::Format;
  put32(record, H::Checksum, 0);
  put32(record, H::Signature, 0);
  const DiskSettingsRecord::Section format = DiskSettingsRecord::format(record);
  if (format.present() && (get8(record, format.offset + F::ExtraMask) & fsextra::AutoSerial))
    put32(record, format.offset + F::Serial, 0);
  return record;
}

TEST(DescriptorRoundTrip, TheReadersAddLineMakesTheSameDisk) {
  Generator gen(5150u);
  constexpr int kCases = 900;
  int compared = 0, unrepeatable = 0;
  for (int n = 0; n < kCases; ++n) {
    std::vector<std::wstring> options = gen.options();
    SCOPED_TRACE("case " + std::to_string(n) + ":" + describe(options));
    std::string failure;
    const std::optional<Bytes> first = addAndExport(options, &failure);
    ASSERT_EQ(failure, "");
    if (!first) continue;

    const DescriptorCheck read = CheckDescriptor(first->data(), first->size());
    ASSERT_TRUE(read.valid()) << toUtf8(read.problem);
    DiskSettings settings;
    DiskSettingsFromRecord(read.record, settings);
    // A folder name is trimmed of dots and blanks before it is cut to 40
    // characters, so a cut name may end in one; no command line can ask for
    // such a name again (it would be trimmed), and the case proves nothing.
    bool cutAtADot = false;
    for (std::uint32_t i = 0; i < settings.customFolderCount && i < kMaxCustomFolders; ++i) {
      const std::wstring& name = settings.customFolders[i];
      cutAtADot = cutAtADot || (!name.empty() && (name.back() == L'.' || name.back() == L' '));
    }
    if (cutAtADot) {
      ++unrepeatable;
      continue;
    }
    const std::wstring line = AddCommandLine(settings, static_cast<wchar_t>(read.driveLetter));
    std::vector<std::wstring> again = splitCommandLine(line);
    ASSERT_GE(again.size(), 2u);
    ASSERT_EQ(again[0], L"vmdctl");
    ASSERT_EQ(again[1], L"add");
    again.erase(again.begin(), again.begin() + 2);
    SCOPED_TRACE("add line: " + toUtf8(line));

    const std::optional<Bytes> second = addAndExport(again, &failure);
    ASSERT_EQ(failure, "");
    ASSERT_TRUE(second) << "the reader's add line was refused";
    const DescriptorCheck reread = CheckDescriptor(second->data(), second->size());
    ASSERT_TRUE(reread.valid()) << toUtf8(reread.problem);
    EXPECT_EQ(reread.driveLetter, read.driveLetter);
    EXPECT_EQ(withoutCreationChoices(reread.record), withoutCreationChoices(read.record));
    ++compared;
  }
  EXPECT_GE(compared, 500);
  EXPECT_LT(unrepeatable, kCases / 20);
}

}  // namespace descriptor_round_trip_test
}  // namespace vmd
