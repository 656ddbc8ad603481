// The controller's live status of a disk: its settings record unless the
// state describes a status, raw or laid over the settings.
#include <gtest/gtest.h>

#include "controller/codes.h"
#include "sim/model_rig.h"
#include "sim/record_layout.h"

namespace vmd::sim {
namespace controller_status_test {

std::vector<std::uint8_t> head(std::uint8_t target) { return {12, 0, 0, 0, 12, 0, 0, 0, 0, 0, target, 0}; }

RecordBytes statusOf(const json& disk) {
  test::Model m(json{{"disks", json::array({disk})}});
  const auto r = m.send(ioctl::QueryDiskStatus, head(1), 4096);
  EXPECT_EQ(r.error, 0u);
  return RecordBytes(m.out.begin(), m.out.begin() + r.returned);
}

TEST(SimDiskStatus, WithoutAStatusItIsTheSettingsRecord) {
  const json disk = {{"index", 1}, {"settings", {{"sizeMb", 64}, {"volumeLabel", "A"}}}};
  EXPECT_EQ(statusOf(disk), diskRecord(disk));
}

TEST(SimDiskStatus, StatusFieldsAreLaidOverTheSettings) {
  const json disk = {{"index", 1},
                     {"settings", {{"sizeMb", 64}, {"volumeLabel", "A"}}},
                     {"status", {{"substanceFlags", "0x400"}}}};
  const json d = decodeRecord(statusOf(disk));
  EXPECT_EQ(parseNumber(d["substanceFlags"]), 0x400u);
  EXPECT_EQ(d["volumeLabel"], "A");
}

// A size in whole MB in the status replaces a settings size given in bytes.
TEST(SimDiskStatus, StatusSizeReplacesTheSettingsSizeWhicheverForm) {
  const json disk = {{"index", 1}, {"settings", {{"sizeBytes", 1572864}}}, {"status", {{"sizeMb", 32}}}};
  const RecordBytes r = statusOf(disk);
  ASSERT_GE(r.size(), 24u);
  std::uint64_t size = 0;
  for (int i = 7; i >= 0; --i) size = (size << 8) | r[16 + static_cast<std::size_t>(i)];
  EXPECT_EQ(size, 32ull << 20);
}

TEST(SimDiskStatus, RawStatusRecordIsTakenAsItStands) {
  EXPECT_EQ(statusOf({{"index", 1}, {"statusRecord", "0102"}}), (RecordBytes{1, 2}));
}

TEST(SimDiskStatus, RequestHeadIsCheckedLikeEveryDiskRequest) {
  test::Model m(json{{"disks", json::array({{{"index", 1}, {"settings", json::object()}}})}});
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, head(1), 4096).error, 0u);
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, head(200), 4096).error, 87u);  // no target of 128 or more exists
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, head(2), 4096).error, 2u);
  auto shortHead = head(1);
  shortHead.pop_back();
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, shortHead, 4096).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, head(1), 10).error, 122u);
}

// Settings or a status that outgrow the record's 64 KB load, and the
// controller cannot answer them.
TEST(SimDiskStatus, DescriptionsNoRecordCanHoldAreAnsweredWith31) {
  json tooLarge = {{"index", 1}, {"settings", {{"imageFile", std::string(33000, 'x')}}}};
  test::Model m(json{{"disks", json::array({tooLarge})}});
  EXPECT_EQ(m.send(ioctl::ReadDiskSettingsRecord, head(1), 4096).error, 31u);
  EXPECT_EQ(m.send(ioctl::QueryDiskStatus, head(1), 4096).error, 31u);

  json statusTooLarge = {{"index", 1}, {"status", {{"volumeLabel", std::string(33000, 'x')}}}};
  test::Model s(json{{"disks", json::array({statusTooLarge})}});
  EXPECT_EQ(s.send(ioctl::ReadDiskSettingsRecord, head(1), 4096).error, 0u);
  EXPECT_EQ(s.send(ioctl::QueryDiskStatus, head(1), 4096).error, 31u);
}

}  // namespace controller_status_test
}  // namespace vmd::sim
