// Many generated option sets, each parsed and validated on a simulated
// machine and then turned into a creation record: reading that record back
// must give the validated settings again, apart from the few fields the
// creation rules rewrite, which are checked on their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "settings/creation_record.h"
#include "settings/disk_options.h"
#include "settings/settings_record.h"
#include "settings/settings_validation.h"
#include "support/option_generator.h"
#include "support/sim_app.h"
#include "sim/record_layout.h"

namespace vmd {
namespace settings_property_test {

using sim::json;
using test::addImages;
using test::Args;
using test::describe;
using test::Generator;
using test::optionMachine;
using test::SimApp;

// The options as `add` parses them, on the machine of `sim`.
DiskSettings parsed(SimApp& sim, const std::vector<std::wstring>& options) {
  Args args(options);
  DiskSettings s;
  std::uint32_t silent = 0;
  ParseDiskOptions(sim.app, args.argc(), args.argv(), s, silent);
  return s;
}

TEST(SettingsProperty, CreationRecordGivesBackTheValidatedSettings) {
  Generator gen(20240611u);
  constexpr int kCases = 3000;
  int accepted = 0, withImage = 0, loadOnly = 0, hybrid = 0, autoSerial = 0;
  for (int n = 0; n < kCases; ++n) {
    const std::vector<std::wstring> options = gen.options();
    SCOPED_TRACE("case " + std::to_string(n) + ":" + describe(options));

    SimApp sim(optionMachine());
    DiskSettings s = parsed(sim, options);
    const std::int32_t asked = static_cast<std::int32_t>(s.sizeMb);
    sim.machine.edit([&](json& state) { addImages(state, asked < 1 ? 128 : asked > 1048576 ? 1048576 : s.sizeMb); });
    if (!ValidateDiskSettings(sim.app, s, 1, 0)) continue;
    ++accepted;

    // What validation promises.
    ASSERT_GE(static_cast<std::int32_t>(s.sizeMb), 1);
    ASSERT_LE(s.sizeMb, 1048576u);
    ASSERT_TRUE(s.driveLetter >= L'A' && s.driveLetter <= L'Z');
    ASSERT_LE(s.customFolderCount, kMaxCustomFolders);
    ASSERT_LE(s.volumeLabel.size(), 32u);
    ASSERT_TRUE(s.fileSystem == filesystem::Ntfs || s.fileSystem == filesystem::Fat ||
                s.fileSystem == filesystem::Fat32);
    ASSERT_LE(s.physicalDriveSizeMb, s.sizeMb);
    ASSERT_LE(s.imQuotaMb, s.sizeMb);

    const std::optional<Bytes> record = BuildCreationRecord(s, nullptr, sim.platform.clock, sim.platform.system);
    ASSERT_TRUE(record);
    ASSERT_EQ(sim::checkRecord(*record), "");
    ASSERT_EQ(get32(*record, 4), record->size());
    ASSERT_EQ(get32(*record, 8), byteSum(*record, 12));
    ASSERT_EQ(get8(*record, 24), 255);
    ASSERT_EQ(get8(*record, 25), 0x80);
    ASSERT_NE(get32(*record, 28), 0u);

    DiskSettings back;
    DiskSettingsFromRecord(*record, back);

    // The fields the creation rules rewrite, each checked on its own.
    DiskSettings expected = s;
    if (s.volumeSerial == 0) {
      // The serial is chosen automatically and marked as such.
      expected.fsExtraMask |= fsextra::AutoSerial;
      ++autoSerial;
    }
    if (!s.imageFile.empty()) {
      ++withImage;
      if (s.loadOnly) {
        // A Load Only image carries no format fields.
        ++loadOnly;
        expected.imageFormat = imageformat::Plain;
        expected.compressionLevel = 1;
        expected.timingSaveMinutes = 0;
      } else if (s.imageFormat == imageformat::Smart) {
        expected.substanceFlags |= substance::Hybrid;
      } else {
        expected.substanceFlags &= ~(substance::Hybrid | substance::DmmCompact);
      }
    } else {
      // Without an image there is no image section: its fields read as a disk without an image.
      ASSERT_EQ(s.imageFlags, 0u);
      expected.loadOnly = 0;
      expected.imageFormat = imageformat::Plain;
      expected.compressionLevel = 1;
      expected.timingSaveMinutes = 0;
    }
    if (s.physicalDriveSizeMb != 0) ++hybrid;
    ASSERT_EQ(back, expected);
    ASSERT_EQ(back.fsExtraMask & fsextra::AutoSerial, s.volumeSerial == 0 ? fsextra::AutoSerial : 0);
  }
  // The generator must reach the interesting corners often enough to mean something.
  EXPECT_GT(accepted, kCases / 3);
  EXPECT_GT(withImage, 200);
  EXPECT_GT(loadOnly, 50);
  EXPECT_GT(hybrid, 50);
  EXPECT_GT(autoSerial, 200);
}

TEST(SettingsProperty, EveryStoppedCaseSaysWhyOnce) {
  Generator gen(7u);
  for (int n = 0; n < 1500; ++n) {
    const std::vector<std::wstring> options = gen.options();
    SCOPED_TRACE("case " + std::to_string(n) + ":" + describe(options));
    SimApp sim(optionMachine());
    DiskSettings s = parsed(sim, options);
    sim.streams.clear();
    const int ok = ValidateDiskSettings(sim.app, s, 1, 0);
    // Every error line is the last line printed, and there is exactly one.
    const std::wstring& err = sim.err();
    std::size_t errors = 0;
    for (std::size_t at = err.find(L"Error: "); at != std::wstring::npos; at = err.find(L"Error: ", at + 1)) ++errors;
    EXPECT_EQ(errors, ok ? 0u : 1u);
    if (!ok) {
      const std::size_t last = err.rfind(L"Error: ");
      EXPECT_EQ(err.find(L"Warning: ", last), std::wstring::npos);
    }
  }
}

}  // namespace settings_property_test
}  // namespace vmd
