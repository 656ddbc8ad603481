#include "shell/dispatch.h"

#include <gtest/gtest.h>

#include "support/sim_app.h"

namespace vmd {
namespace {

using test::SimApp;

int run(SimApp& sim, std::vector<std::wstring> args) {
  std::vector<wchar_t*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  return runProgram(sim.platform.platform, static_cast<int>(args.size()), argv.data());
}

TEST(RunProgram, NoArgumentVectorAtAllPrintsBannerAndUsage) {
  SimApp sim;
  wchar_t* none[] = {nullptr};
  EXPECT_EQ(runProgram(sim.platform.platform, 0, none), 2);
  EXPECT_EQ(sim.out(), L"");
  EXPECT_EQ(sim.err().rfind(L"Tarnby Ramdisk Commander  Version 5.7.0\n\nUsage: (null) <command>", 0), 0u)
      << sim.err().substr(0, 80);
  EXPECT_EQ(sim.apiCalls("CoUninitialize"), 1u);
}

TEST(RunProgram, ComIsReleasedOnceAfterACommand) {
  SimApp sim;
  EXPECT_EQ(run(sim, {L"vmdctl", L"ver"}), 0);
  EXPECT_EQ(sim.apiCalls("CoUninitialize"), 1u);
}

TEST(RunProgram, ComIsReleasedOnceAfterUsage) {
  SimApp sim;
  EXPECT_EQ(run(sim, {L"vmdctl", L"lx"}), 2);
  EXPECT_EQ(sim.apiCalls("CoUninitialize"), 1u);
}

TEST(RunProgram, ComIsReleasedOnceAfterAVerdict) {
  SimApp sim;
  EXPECT_EQ(run(sim, {L"vmdctl", L"view"}), 2);
  EXPECT_EQ(sim.err(), L"vmdctl: Invalid use of command 'view'.\r\nFor more information, type: vmdctl ? view\n");
  EXPECT_EQ(sim.apiCalls("CoUninitialize"), 1u);
}

TEST(RunProgram, VerdictUsesTheTableSpelling) {
  SimApp sim;
  EXPECT_EQ(run(sim, {L"vmdctl", L"/VIEW"}), 2);
  EXPECT_EQ(sim.err(), L"vmdctl: Invalid use of command 'view'.\r\nFor more information, type: vmdctl ? view\n");
}

}  // namespace
}  // namespace vmd
