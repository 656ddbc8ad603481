#include "settings/record_changes.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "base/bytes.h"
#include "base/text_codec.h"
#include "settings/image_file.h"
#include "settings/settings_record.h"

namespace vmd {
namespace record_changes_test {

using H = DiskSettingsRecord::Header;

// A record with a substance (runtime) section at 64 and, when `path` is
// given, an image section at 128 whose path carries the "\DosDevices\" prefix.
struct RecordSpec {
  std::uint32_t substanceFlags = 0;
  std::uint64_t activity = 0;  // the runtime sub-record's u64 at +32
  bool withSubstance = true;
  std::optional<std::wstring> path;
  std::uint32_t imageFlags = 0x10011;
  std::uint8_t mode = 0;
};

Bytes makeRecord(const RecordSpec& spec) {
  Bytes r(128, 0);
  put32(r, H::HeaderSize, 64);
  if (spec.withSubstance) {
    put16(r, H::SubstanceOffset, 64);
    put16(r, H::SubstanceLength, 56);
    put32(r, 64 + 8, spec.substanceFlags);
    put64(r, 64 + 32, spec.activity);
  }
  if (spec.path) {
    const std::wstring full = std::wstring(DiskSettingsRecord::PathPrefix) + *spec.path;
    const std::size_t length = 40 + 2 * full.size() + 2;
    r.resize(128 + length, 0);
    put16(r, H::ImageOffset, 128);
    put16(r, H::ImageLength, static_cast<std::uint16_t>(length));
    put32(r, 128, 40);
    put32(r, 128 + 4, static_cast<std::uint32_t>(length));
    put32(r, 128 + 8, spec.imageFlags);
    put8(r, 128 + 12, spec.mode);
    put16(r, 128 + 36, static_cast<std::uint16_t>(2 * full.size() + 2));
    putUtf16z(r.data() + 128 + 38, r.size() - 128 - 38, full);
  }
  put32(r, H::TotalLength, static_cast<std::uint32_t>(r.size()));
  DiskSettingsRecord::storeChecksum(r);
  return r;
}

constexpr std::uint32_t kModeIndicator = 1u << 21;
constexpr std::uint32_t kBusy = 1u << 5;

TEST(StatusForApplying, WithoutASubstanceSubRecordTheDiskHasNoFilePartAndIsNotSmartCapable) {
  RecordSpec s;
  s.withSubstance = false;
  s.path = L"D:\\disk.img";
  const ImageFileStatus r = ParseImageFileStatus(makeRecord(s));
  EXPECT_TRUE(r.noFilePart);
  EXPECT_FALSE(r.smartCapable);
  EXPECT_EQ(r.imagePath, L"D:\\disk.img");
}

TEST(StatusForApplying, ReadsTheShareTheSmartBitRealTimeSaveAndThePathAfterItsPrefix) {
  RecordSpec s;
  s.substanceFlags = kModeIndicator;
  s.activity = 1;
  s.path = L"E:\\x.img";
  s.imageFlags |= kBusy;
  const ImageFileStatus r = ParseImageFileStatus(makeRecord(s));
  EXPECT_FALSE(r.noFilePart);
  EXPECT_TRUE(r.smartCapable);
  EXPECT_TRUE(r.realTimeSave);
  EXPECT_EQ(r.imagePath, L"E:\\x.img");
}

TEST(StatusForApplying, NoImageSubRecordMeansAnEmptyPath) {
  const ImageFileStatus r = ParseImageFileStatus(makeRecord({}));
  EXPECT_EQ(r.imagePath, L"");
  EXPECT_FALSE(r.realTimeSave);
}

TEST(StatusForApplying, AnOffsetBeyondTheRecordReadsNothing) {
  Bytes r = makeRecord({});
  put16(r, H::ImageOffset, 0xFFF0);
  put16(r, H::ImageLength, 100);
  put16(r, H::SubstanceOffset, 0xFFF0);
  const ImageFileStatus runtime = ParseImageFileStatus(r);
  EXPECT_TRUE(runtime.noFilePart);
  EXPECT_EQ(runtime.imagePath, L"");
}

// Every combination the decision reads: runtime sub-record present or not,
// idle or not, the busy bit, the mode indicator, the current path (empty,
// the same in another letter case, different), the new image sub-record
// (absent, or with mode 0, 1, 2).
TEST(CanApplyImageNow, DecisionTable) {
  const std::wstring current = L"D:\\Images\\Disk.img";
  for (int substance = 0; substance < 2; ++substance)
    for (int active = 0; active < 2; ++active)
      for (int busy = 0; busy < 2; ++busy)
        for (int indicator = 0; indicator < 2; ++indicator)
          for (int pathKind = 0; pathKind < 3; ++pathKind)
            for (int newKind = 0; newKind < 5; ++newKind) {
              RecordSpec status;
              status.withSubstance = substance != 0;
              status.activity = active ? 4096 : 0;
              status.substanceFlags = indicator ? kModeIndicator : 0;
              if (pathKind > 0) status.path = current;
              if (busy) status.imageFlags |= kBusy;
              RecordSpec next;
              next.withSubstance = true;
              // newKind 0: detached; 1..3: same path in other case, mode 0..2; 4: another path
              if (newKind >= 1 && newKind <= 3) {
                next.path = pathKind == 2 ? std::wstring(L"d:\\IMAGES\\disk.IMG") : current;
                next.mode = static_cast<std::uint8_t>(newKind - 1);
              } else if (newKind == 4) {
                next.path = L"D:\\other.img";
              }
              const ImageFileStatus runtime = ParseImageFileStatus(makeRecord(status));
              const bool idle = substance == 0 || active == 0;
              const bool modeIndicator = substance != 0 && indicator != 0;
              const bool busyBit = pathKind > 0 && busy != 0;
              bool expected = idle && !busyBit && pathKind > 0;
              if (expected && newKind >= 1 && newKind <= 3) {
                const int mode = newKind - 1;
                expected = modeIndicator ? mode != 2 : mode != 1;
              }
              if (newKind == 4) expected = false;
              EXPECT_EQ(canApplyImageNow(runtime, makeRecord(next)), expected)
                  << "substance=" << substance << " active=" << active << " busy=" << busy
                  << " indicator=" << indicator << " path=" << pathKind << " new=" << newKind;
            }
}

TEST(ImageSettingsDiffer, AbsentAbsentIsTheSameAndOneAbsentDiffers) {
  const Bytes none = makeRecord({});
  RecordSpec s;
  s.path = L"D:\\a.img";
  const Bytes with = makeRecord(s);
  EXPECT_FALSE(imageSettingsDiffer(none, none));
  EXPECT_TRUE(imageSettingsDiffer(none, with));
  EXPECT_TRUE(imageSettingsDiffer(with, none));
  EXPECT_FALSE(imageSettingsDiffer(with, makeRecord(s)));
  s.mode = 2;
  EXPECT_TRUE(imageSettingsDiffer(with, makeRecord(s)));
  s.mode = 0;
  s.path = L"D:\\b.img";
  EXPECT_TRUE(imageSettingsDiffer(with, makeRecord(s)));
}

// A record with a volume sub-record at 64 holding `label`, or none.
Bytes withLabel(const std::optional<std::wstring>& label) {
  Bytes r(128, 0);
  put32(r, H::HeaderSize, 64);
  if (label) {
    put16(r, H::FormatOffset, 64);
    put16(r, H::FormatLength, 64);
    if (!label->empty()) {
      put16(r, 64 + 40, static_cast<std::uint16_t>(2 * label->size() + 2));
      putUtf16z(r.data() + 64 + 42, r.size() - 64 - 42, *label);
    }
  }
  put32(r, H::TotalLength, 128);
  return r;
}

TEST(LabelDiffers, ComparesPresenceLengthAndBytes) {
  EXPECT_FALSE(labelDiffers(withLabel(L"RAMDISK"), withLabel(L"RAMDISK")));
  EXPECT_TRUE(labelDiffers(withLabel(L"RAMDISK"), withLabel(L"ramdisk")));
  EXPECT_TRUE(labelDiffers(withLabel(L"RAMDISK"), withLabel(L"DATA")));
  EXPECT_TRUE(labelDiffers(withLabel(L"RAMDISK"), withLabel(std::nullopt)));
  EXPECT_TRUE(labelDiffers(withLabel(std::wstring()), withLabel(L"A")));
  EXPECT_FALSE(labelDiffers(withLabel(std::nullopt), withLabel(std::nullopt)));
}

TEST(RecordLabel, TheLabelOrNothing) {
  EXPECT_EQ(recordLabel(withLabel(L"DATA")), std::optional<std::wstring>(L"DATA"));
  EXPECT_EQ(recordLabel(withLabel(std::wstring())), std::nullopt);
  EXPECT_EQ(recordLabel(withLabel(std::nullopt)), std::nullopt);
}

TEST(RecordDriveLetter, SettingTheLetterStoresTheChecksumAgain) {
  Bytes r = makeRecord({});
  put16(r, H::DriveLetter, L'R');
  DiskSettingsRecord::storeChecksum(r);
  setRecordDriveLetter(r, L'S');
  EXPECT_EQ(recordDriveLetter(r), L'S');
  EXPECT_EQ(get32(r, H::Checksum), DiskSettingsRecord::checksum(r));
}

TEST(ApplyImageRequest, HeadThenTheNewImageSubRecord) {
  RecordSpec s;
  s.path = L"D:\\a.img";
  const Bytes record = makeRecord(s);
  const Bytes request = applyImageRequest(5, record);
  const std::size_t sub = get16(record, H::ImageLength);
  ASSERT_EQ(request.size(), 16 + sub);
  EXPECT_EQ(get32(request, 0), 16u);
  EXPECT_EQ(get32(request, 4), 16u + sub);
  EXPECT_EQ(request[8], 0);
  EXPECT_EQ(request[10], 5);
  EXPECT_EQ(get32(request, 12), sub);
  EXPECT_TRUE(std::equal(request.begin() + 16, request.end(), record.begin() + 128));
}

TEST(ApplyImageRequest, DetachingSendsFortyZeroBytesThatStartWithFortyAndForty) {
  const Bytes request = applyImageRequest(3, makeRecord({}));
  ASSERT_EQ(request.size(), 56u);
  EXPECT_EQ(get32(request, 4), 56u);
  EXPECT_EQ(get32(request, 12), 40u);
  EXPECT_EQ(get32(request, 16), 40u);
  EXPECT_EQ(get32(request, 20), 40u);
  for (std::size_t i = 24; i < 56; ++i) EXPECT_EQ(request[i], 0) << i;
}

}  // namespace record_changes_test
}  // namespace vmd
