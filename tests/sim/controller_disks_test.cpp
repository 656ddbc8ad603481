// The simulated controller's disk queries check their input as the driver
// does and answer from the machine state.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/codes.h"
#include "sim/controller_model.h"
#include "sim/model_rig.h"

namespace vmd::sim {
namespace controller_disks_test {

using test::Model;

std::vector<std::uint8_t> head(std::uint8_t target, std::uint32_t headLength = 12, std::uint32_t total = 12) {
  std::vector<std::uint8_t> h(12, 0);
  for (int i = 0; i < 4; ++i) {
    h[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(headLength >> (8 * i));
    h[static_cast<std::size_t>(4 + i)] = static_cast<std::uint8_t>(total >> (8 * i));
  }
  h[10] = target;
  return h;
}

std::vector<std::uint8_t> dosName(const std::u16string& name) {
  std::vector<std::uint8_t> b;
  for (char16_t c : name) {
    b.push_back(static_cast<std::uint8_t>(c));
    b.push_back(static_cast<std::uint8_t>(c >> 8));
  }
  b.push_back(0);
  b.push_back(0);
  return b;
}

std::uint32_t u32(const std::vector<std::uint8_t>& b, std::size_t at) {
  return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

json disks() {
  return json::parse(R"({"disks": [
    {"index": 0, "size": 134217728, "image": true, "systemDiskNumber": 6},
    {"index": 9, "size": "0x100000000", "good": false, "directIo": true, "letter": "s"},
    {"index": 127, "size": 1}]})");
}

TEST(SimControllerDisks, BitmapHasTheBitOfEveryDisk) {
  Model m(disks());
  const auto r = m.send(ioctl::QueryDiskBitmap, {}, 16);
  ASSERT_EQ(r.error, 0u);
  EXPECT_EQ(r.returned, 16u);
  EXPECT_EQ(m.out[0], 0x01);
  EXPECT_EQ(m.out[1], 0x02);
  EXPECT_EQ(m.out[15], 0x80);
  EXPECT_EQ(m.out[7], 0x00);
}

TEST(SimControllerDisks, BitmapNeedsSixteenBytes) {
  Model m(disks());
  EXPECT_EQ(m.send(ioctl::QueryDiskBitmap, {}, 15).error, 122u);
}

TEST(SimControllerDisks, DiskInfoAnswersTheDisksFields) {
  Model m(disks());
  const auto r = m.send(ioctl::QueryDiskInfo, head(9), 32);
  ASSERT_EQ(r.error, 0u);
  EXPECT_EQ(r.returned, 32u);
  EXPECT_EQ(m.out[10], 9);
  EXPECT_EQ(m.out[14], 0);
  EXPECT_EQ(m.out[15], 0);
  EXPECT_EQ(u32(m.out, 16), 0u);
  EXPECT_EQ(u32(m.out, 20), 1u);
  EXPECT_EQ(m.out[24], 1);
  EXPECT_EQ(m.out[25], 'S');

  const auto scsi = m.send(ioctl::QueryDiskInfo, head(0), 32);
  ASSERT_EQ(scsi.error, 0u);
  EXPECT_EQ(m.out[14], 1);
  EXPECT_EQ(m.out[15], 1);  // good unless said otherwise
  EXPECT_EQ(u32(m.out, 16), 134217728u);
  EXPECT_EQ(m.out[24], 0);
  EXPECT_EQ(m.out[25], 0);
}

TEST(SimControllerDisks, DiskInfoRefusesAMalformedHead) {
  Model m(disks());
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, head(0, 16, 12), 32).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, head(0, 12, 16), 32).error, 87u);
  auto shortHead = head(0);
  shortHead.resize(8);
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, shortHead, 32).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, {}, 32).error, 87u);
  auto port = head(0);
  port[8] = 1;
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, port, 32).error, 87u);
  auto lun = head(0);
  lun[11] = 1;
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, lun, 32).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, head(128), 32).error, 87u);
}

TEST(SimControllerDisks, DiskInfoNeedsThirtyTwoBytesAndAnExistingDisk) {
  Model m(disks());
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, head(0), 31).error, 122u);
  EXPECT_EQ(m.send(ioctl::QueryDiskInfo, head(5), 32).error, 2u);
}

TEST(SimControllerDisks, DeviceNumberIsTheSystemDiskNumber) {
  Model m(disks());
  ASSERT_EQ(m.send(ioctl::QueryDeviceNumber, head(0), 12).error, 0u);
  EXPECT_EQ(u32(m.out, 0), 7u);
  EXPECT_EQ(u32(m.out, 4), 6u);
  EXPECT_EQ(u32(m.out, 8), 0u);
  ASSERT_EQ(m.send(ioctl::QueryDeviceNumber, head(127), 12).error, 0u);
  EXPECT_EQ(u32(m.out, 4), 128u);  // 1 + index when not given
}

TEST(SimControllerDisks, DeviceNumberFailsForDirectIoAndMissingDisks) {
  Model m(disks());
  EXPECT_EQ(m.send(ioctl::QueryDeviceNumber, head(9), 12).error, 50u);
  EXPECT_EQ(m.send(ioctl::QueryDeviceNumber, head(3), 12).error, 2u);
  EXPECT_EQ(m.send(ioctl::QueryDeviceNumber, head(0), 11).error, 122u);
  EXPECT_EQ(m.send(ioctl::QueryDeviceNumber, head(0, 12, 13), 12).error, 87u);
}

TEST(SimControllerDisks, DosNameBelongsToTheDirectIoDiskWithThatLetter) {
  Model m(disks());
  const auto r = m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\S:"), 12);
  ASSERT_EQ(r.error, 0u);
  EXPECT_EQ(r.returned, 12u);
  EXPECT_EQ(u32(m.out, 0), 12u);
  EXPECT_EQ(u32(m.out, 4), 12u);
  EXPECT_EQ(m.out[10], 9);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\s:"), 12).error, 0u);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\T:"), 12).error, 2u);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"S:"), 12).error, 2u);
}

TEST(SimControllerDisks, DosNameOwnersReplaceTheDisksOwnLetters) {
  json c = disks();
  c["dosNameOwners"] = {{"S", 44}, {"T", 0}, {"U", nullptr}};
  Model m(c);
  ASSERT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\S:"), 12).error, 0u);
  EXPECT_EQ(m.out[10], 44);
  ASSERT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\T:"), 12).error, 0u);
  EXPECT_EQ(m.out[10], 0);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\U:"), 12).error, 2u);
}

TEST(SimControllerDisks, DosNameRefusesAnUnterminatedOrOddInput) {
  Model m(disks());
  auto unterminated = dosName(u"\\??\\S:");
  unterminated.resize(12);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, unterminated, 12).error, 87u);
  auto odd = dosName(u"\\??\\S:");
  odd.push_back(0);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, odd, 12).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, {}, 12).error, 87u);
  EXPECT_EQ(m.send(ioctl::QueryDosNameTarget, dosName(u"\\??\\S:"), 8).error, 122u);
}

}  // namespace controller_disks_test
}  // namespace vmd::sim
