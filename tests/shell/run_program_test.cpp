#include "shell/dispatch.h"

#include <gtest/gtest.h>

#include "support/sim_app.h"

namespace vmd {
namespace run_program_test {

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

// The common start prints what the session check and the index found.
TEST(RunProgram, DiskCommandWithoutControllerStopsAtTheSession) {
  SimApp sim(sim::json::parse(R"({"controller": {"present": false}})"));
  EXPECT_EQ(run(sim, {L"vmdctl", L"view", L"0"}), 3);
  EXPECT_EQ(sim.err(), L"Error: Tarnby Ramdisk controller initialization failed!\n");
}

TEST(RunProgram, DiskCommandSaysWhatIsWrongWithItsIndex) {
  const struct {
    const wchar_t* index;
    const wchar_t* error;
  } cases[] = {
      {L"x7", L"Error: please specify the disk index!\n"},
      {L"128", L"Error: invalid disk index!\n"},
      {L"005", L"Error: cannot find the disk #5\n"},  // no exclamation mark
  };
  for (const auto& c : cases) {
    SimApp sim;
    EXPECT_EQ(run(sim, {L"vmdctl", L"del", c.index}), 3);
    EXPECT_EQ(sim.err(), c.error);
    EXPECT_EQ(sim.out(), L"");
  }
}

}  // namespace run_program_test
}  // namespace vmd
