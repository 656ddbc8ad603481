#include <gtest/gtest.h>

#include <string>

#include "base/bytes.h"
#include "shell/dispatch.h"
#include "settings/descriptor_file.h"
#include "sim/record_layout.h"
#include "support/sim_app.h"

namespace vmd {
namespace export_command_test {

using sim::json;
using test::Args;
using test::SimApp;

json machineWith(json settings, bool mounted) {
  json disk = {{"index", 2}, {"size", 67108864}, {"signature", "0x1234abcd"}, {"settings", settings}};
  json m = {{"schema", 2}, {"controller", {{"variantCode", "0x00050009"}, {"disks", json::array({disk})}}}};
  if (!mounted) m["controller"]["disks"][0]["volume"] = false;
  if (mounted) m["volumes"] = json::array({{{"disk", 2}, {"mountPoints", json::array({"S:\\"})}}});
  return m;
}

// The descriptor the run wrote, checked by the reader's own rules.
DescriptorCheck written(SimApp& sim, const std::wstring& path) {
  const SysResult<std::uint64_t> size = sim.platform.platform.files.fileSize(path);
  EXPECT_TRUE(size.ok);
  const SysResult<Bytes> bytes = sim.platform.platform.files.readHead(path, static_cast<std::uint32_t>(size.value));
  EXPECT_TRUE(bytes.ok);
  return bytes.ok ? CheckDescriptor(bytes.value.data(), bytes.value.size()) : DescriptorCheck{};
}

TEST(ExportCommand, LetterOfTheMountedVolumeWinsOverTheSettings) {
  SimApp sim(machineWith({{"sizeMb", 64}, {"driveLetter", "R"}}, true));
  Args args{L"2", L"-s", L"-f", L"C:\\d"};
  EXPECT_EQ(runCommand(sim.app, L"vmdctl", L"export", args.argc(), args.argv()), Success);
  const DescriptorCheck c = written(sim, L"C:\\d.vdd");
  ASSERT_TRUE(c.valid()) << std::string(c.problem.begin(), c.problem.end());
  EXPECT_EQ(c.driveLetter, L'S');
  EXPECT_EQ(c.variantCode, 9);
  EXPECT_EQ(c.record, sim::buildRecord({{"sizeMb", 64}, {"driveLetter", "R"}, {"index", 2}, {"signature", "0x1234abcd"}}));
}

TEST(ExportCommand, WithoutAMountedVolumeTheSettingsLetter) {
  SimApp sim(machineWith({{"sizeMb", 64}, {"driveLetter", "R"}}, false));
  Args args{L"2", L"-s", L"-f", L"C:\\d"};
  EXPECT_EQ(runCommand(sim.app, L"vmdctl", L"export", args.argc(), args.argv()), Success);
  EXPECT_EQ(written(sim, L"C:\\d.vdd").driveLetter, L'R');
  EXPECT_EQ(sim.err(), L"");
  EXPECT_EQ(sim.out(), L"");
}

TEST(ExportCommand, WithoutAnyLetterZero) {
  SimApp sim(machineWith({{"sizeMb", 64}}, false));
  Args args{L"2", L"-s", L"-f", L"C:\\d"};
  EXPECT_EQ(runCommand(sim.app, L"vmdctl", L"export", args.argc(), args.argv()), Success);
  EXPECT_EQ(written(sim, L"C:\\d.vdd").driveLetter, 0);
}

}  // namespace export_command_test
}  // namespace vmd
