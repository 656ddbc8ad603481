// Over generated option sets: the settings that add shows before it creates
// a disk are the settings that view then shows for the new disk, apart from
// the fields that creation itself decides, which are checked on their own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/dispatch.h"
#include "support/fakes.h"
#include "support/option_generator.h"
#include "support/sim_app.h"

namespace vmd {
namespace add_view_property_test {

using test::Args;
using test::describe;
using test::Generator;
using test::SimApp;
using sim::json;

// The lines between a heading and the rule that closes its block.
std::wstring blockAfter(const std::wstring& text, const std::wstring& heading) {
  const std::size_t at = text.find(heading);
  if (at == std::wstring::npos) return L"";
  const std::size_t from = at + heading.size();
  const std::wstring rule = L"-------------------------------------------------------\n";
  const std::size_t first = text.find(rule, from);
  if (first == std::wstring::npos) return L"";
  const std::size_t last = text.find(rule, first + rule.size());
  if (last == std::wstring::npos) return L"";
  return text.substr(from, last + rule.size() - from);
}

std::vector<std::wstring> lines(const std::wstring& text) {
  std::vector<std::wstring> out;
  std::size_t start = 0;
  for (std::size_t nl = text.find(L'\n'); nl != std::wstring::npos; nl = text.find(L'\n', start)) {
    out.push_back(text.substr(start, nl - start));
    start = nl + 1;
  }
  return out;
}

bool startsWith(const std::wstring& s, const wchar_t* prefix) { return s.rfind(prefix, 0) == 0; }

TEST(AddViewProperty, ViewShowsTheSettingsThatAddShowed) {
  Generator gen(20261123u);
  constexpr int kCases = 400;
  int created = 0, compactCleared = 0;
  for (int n = 0; n < kCases; ++n) {
    std::vector<std::wstring> options = gen.options();
    // Silent runs print no block to compare with.
    options.erase(std::remove(options.begin(), options.end(), L"-s"), options.end());
    SCOPED_TRACE("case " + std::to_string(n) + ":" + describe(options));

    json state = test::optionMachine();
    state["controller"]["timing"] = {{"volumeAfterMs", 500}};
    SimApp sim(state);
    sim.machine.edit([](json& s) { test::addImages(s, 128); });
    test::ScriptedKeys keys{L'y'};
    Output io(sim.streams, *sim.catalog, keys);
    OptionScanner scanner(io);
    App app{sim.platform.platform, io, scanner, sim.controller};
    Args add(options);
    if (runCommand(app, L"vmdctl", L"add", add.argc(), add.argv()) != Success) continue;
    ++created;
    const std::wstring shown = blockAfter(sim.out(), L"\nSettings for New Disk\n");
    ASSERT_NE(shown, L"");
    const std::wstring err = sim.err();
    const std::size_t hash = err.find(L"Success: new disk (#");
    ASSERT_NE(hash, std::wstring::npos) << toUtf8(err);
    const std::wstring index = err.substr(hash + 20, err.find(L')', hash) - hash - 20);

    sim.streams.clear();
    Args view({index});
    ASSERT_EQ(runCommand(sim.app, L"vmdctl", L"view", view.argc(), view.argv()), Success);
    const std::wstring viewed = blockAfter(sim.out(), L"\nDisk #" + index + L" Settings\n");
    ASSERT_NE(viewed, L"");

    // Of what the block shows, creation decides one thing: an image that is
    // not a SMART image clears DMM compact mode. (It also decides the index,
    // the signature and a serial nobody gave; the block shows none of them:
    // an automatic serial reads "-" before and after.)
    const std::vector<std::wstring> a = lines(shown), b = lines(viewed);
    const bool nonSmartImage = shown.find(L"Enable image file: Yes") != std::wstring::npos &&
                               shown.find(L"Smart image") == std::wstring::npos;
    ASSERT_EQ(a.size(), b.size()) << toUtf8(shown) << toUtf8(viewed);
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (startsWith(a[i], L"Memory features: ") && a[i] != b[i]) {
        const std::wstring compact = L"Compact";
        EXPECT_TRUE(nonSmartImage);
        ASSERT_GE(a[i].size(), compact.size());
        EXPECT_EQ(a[i].substr(a[i].size() - compact.size()), compact);
        EXPECT_EQ(a[i].substr(0, a[i].size() - compact.size()), b[i]);
        ++compactCleared;
        continue;
      }
      EXPECT_EQ(a[i], b[i]);
    }
  }
  // Enough cases reach each corner to mean something.
  EXPECT_GT(created, kCases / 4);
  EXPECT_GT(compactCleared, 3);
}

}  // namespace add_view_property_test
}  // namespace vmd
