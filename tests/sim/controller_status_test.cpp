#include "sim/controller_status.h"

#include <gtest/gtest.h>

namespace vmd::sim {
namespace {

TEST(SimDiskStatus, WithoutAStatusItIsTheSettingsRecord) {
  const json disk = {{"index", 1}, {"settings", {{"sizeMb", 64}, {"volumeLabel", "A"}}}};
  EXPECT_EQ(diskStatusRecord(disk), diskRecord(disk));
}

TEST(SimDiskStatus, StatusFieldsAreLaidOverTheSettings) {
  const json disk = {{"index", 1},
                     {"settings", {{"sizeMb", 64}, {"volumeLabel", "A"}}},
                     {"status", {{"substanceFlags", "0x400"}}}};
  const json d = decodeRecord(diskStatusRecord(disk));
  EXPECT_EQ(parseNumber(d["substanceFlags"]), 0x400u);
  EXPECT_EQ(d["volumeLabel"], "A");
}

// A size in whole MB in the status replaces a settings size given in bytes.
TEST(SimDiskStatus, StatusSizeReplacesTheSettingsSizeWhicheverForm) {
  const json disk = {{"index", 1},
                     {"settings", {{"sizeBytes", 1572864}}},
                     {"status", {{"sizeMb", 32}}}};
  const RecordBytes r = diskStatusRecord(disk);
  ASSERT_GE(r.size(), 24u);
  std::uint64_t size = 0;
  for (int i = 7; i >= 0; --i) size = (size << 8) | r[16 + static_cast<std::size_t>(i)];
  EXPECT_EQ(size, 32ull << 20);
}

TEST(SimDiskStatus, RawStatusRecordIsTakenAsItStands) {
  const json disk = {{"index", 1}, {"statusRecord", "0102"}};
  EXPECT_EQ(diskStatusRecord(disk), (RecordBytes{1, 2}));
}

struct NoHost : HostHooks {};

TEST(SimDiskStatus, RequestHeadIsCheckedLikeEveryDiskRequest) {
  json controller = {{"disks", json::array({{{"index", 1}, {"settings", json::object()}}})}};
  NoHost host;
  ControllerModel model(controller, host);
  auto diskStatusReply = [&](json&, const std::uint8_t* in, std::uint32_t inSize, std::uint8_t* out,
                             std::uint32_t outSize) { return model.handle(0x4606C, in, inSize, out, outSize); };
  std::uint8_t out[4096];
  std::uint8_t head[12] = {12, 0, 0, 0, 12, 0, 0, 0, 0, 0, 1, 0};
  EXPECT_EQ(diskStatusReply(controller, head, 12, out, sizeof out).error, 0u);
  head[10] = 200;  // no target of 128 or more exists
  EXPECT_EQ(diskStatusReply(controller, head, 12, out, sizeof out).error, 87u);
  head[10] = 2;
  EXPECT_EQ(diskStatusReply(controller, head, 12, out, sizeof out).error, 2u);
  head[10] = 1;
  EXPECT_EQ(diskStatusReply(controller, head, 11, out, sizeof out).error, 87u);
  EXPECT_EQ(diskStatusReply(controller, head, 12, out, 10).error, 122u);
}

}  // namespace
}  // namespace vmd::sim
