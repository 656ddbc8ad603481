// The simulated Invisible Memory manager: its status record, the options it
// stores and the enabled state it keeps.
#include <gtest/gtest.h>

#include <vector>

#include "controller/codes.h"
#include "sim/controller_model.h"
#include "sim/model_rig.h"

namespace vmd::sim {
namespace controller_im_test {

// A controller whose Invisible Memory manager is `im`.
struct Model : test::Model {
  explicit Model(json im) : test::Model(json{{"im", std::move(im)}}) {}
};

std::vector<std::uint8_t> options(std::uint32_t size, std::uint32_t reserveMb, std::uint32_t quotaMb,
                                  std::uint32_t letter, std::uint32_t hiber) {
  std::vector<std::uint8_t> b(24, 0);
  const std::uint32_t v[] = {size, reserveMb, quotaMb, letter, hiber, 0};
  for (std::size_t i = 0; i < 6; ++i)
    for (std::size_t k = 0; k < 4; ++k) b[4 * i + k] = static_cast<std::uint8_t>(v[i] >> (8 * k));
  return b;
}

TEST(SimControllerIm, DefaultManagerIsInstalledButNotActive) {
  Model m(json::object());
  const auto r = m.send(ioctl::QueryImStatus, {}, 72);
  ASSERT_EQ(r.error, 0u);
  EXPECT_EQ(r.returned, 72u);
  EXPECT_EQ(m.field(0), 72u);
  EXPECT_EQ(m.field(4), 4096u);
  EXPECT_EQ(m.field(20), 0xFFFFFFFFu);
  EXPECT_EQ(m.field(48), 0u);
}

TEST(SimControllerIm, StatusCarriesEveryFieldAtItsOffset) {
  Model m(json{{"state", 0},         {"unitSize", 8192},          {"firstUnit", 3},       {"endUnit", 1003},
           {"freeUnits", 500},   {"reserveInEffect", 11},     {"quotaInEffect", 12},  {"hiberDriveInEffect", "D"},
           {"reserveConfigured", 21}, {"quotaConfigured", 22}, {"hiberDriveConfigured", "e"},
           {"localState", 1},    {"hiberInEffect", 1},        {"hiberConfigured", 0}});
  ASSERT_EQ(m.send(ioctl::QueryImStatus, {}, 72).error, 0u);
  EXPECT_EQ(m.field(4), 8192u);
  EXPECT_EQ(m.field(8), 3u);
  EXPECT_EQ(m.field(12), 1003u);
  EXPECT_EQ(m.field(16), 500u);
  EXPECT_EQ(m.field(20), 0u);
  EXPECT_EQ(m.field(24), 11u);
  EXPECT_EQ(m.field(28), 12u);
  EXPECT_EQ(m.field(32), static_cast<std::uint32_t>('D'));
  EXPECT_EQ(m.field(36), 21u);
  EXPECT_EQ(m.field(40), 22u);
  EXPECT_EQ(m.field(44), static_cast<std::uint32_t>('e'));
  EXPECT_EQ(m.field(48), 1u);
  EXPECT_EQ(m.field(52), 1u);
  EXPECT_EQ(m.field(56), 0u);
  EXPECT_EQ(m.field(60), 0u);
  EXPECT_EQ(m.field(64), 0u);
  EXPECT_EQ(m.field(68), 0u);
}

TEST(SimControllerIm, OlderManagerAnswersItsShorterRecord) {
  Model m(json{{"recordSize", 48}, {"state", 0}, {"localState", 1}});
  const auto r = m.send(ioctl::QueryImStatus, {}, 72);
  ASSERT_EQ(r.error, 0u);
  EXPECT_EQ(r.returned, 48u);
  EXPECT_EQ(m.field(0), 48u);
  EXPECT_EQ(m.out[48], 0xEE);  // nothing written past its record
}

TEST(SimControllerIm, StatusNeedsRoomForTheRecord) {
  Model m(json::object());
  EXPECT_EQ(m.send(ioctl::QueryImStatus, {}, 71).error, 122u);
}

TEST(SimControllerIm, SetOptionsChecksItsSize) {
  Model m(json::object());
  EXPECT_EQ(m.send(ioctl::SetImOptions, options(24, 1, 1, 'C', 1), 0).error, 0u);
  EXPECT_EQ(m.send(ioctl::SetImOptions, options(20, 1, 1, 'C', 1), 0).error, 87u);
  auto longer = options(24, 1, 1, 'C', 1);
  longer.push_back(0);
  EXPECT_EQ(m.send(ioctl::SetImOptions, longer, 0).error, 87u);
  EXPECT_EQ(m.send(ioctl::SetImOptions, {}, 0).error, 87u);
}

TEST(SimControllerIm, SetOptionsStoresUnitsAndTakesEffectWhenNotInUse) {
  Model m(json{{"state", 0}, {"unitSize", 2097152}, {"localState", 0}});
  ASSERT_EQ(m.send(ioctl::SetImOptions, options(24, 513, 1024, 'd', 0), 0).error, 0u);
  const json im = m.state()["im"];
  EXPECT_EQ(im["reserveConfigured"], 256);  // 513 MB in 2 MB units, truncated
  EXPECT_EQ(im["quotaConfigured"], 512);
  EXPECT_EQ(im["hiberDriveConfigured"], "d");
  EXPECT_EQ(im["hiberConfigured"], 0);
  EXPECT_EQ(im["reserveInEffect"], 256);
  EXPECT_EQ(im["quotaInEffect"], 512);
  EXPECT_EQ(im["hiberDriveInEffect"], "d");
  EXPECT_EQ(im["hiberInEffect"], 0);
}

TEST(SimControllerIm, SetOptionsWaitsForARestartWhileInUse) {
  Model m(json{{"state", 0}, {"unitSize", 4096}, {"localState", 1}, {"reserveInEffect", 7}, {"hiberInEffect", 1}});
  ASSERT_EQ(m.send(ioctl::SetImOptions, options(24, 64, 0, 0, 0), 0).error, 0u);
  const json im = m.state()["im"];
  EXPECT_EQ(im["reserveConfigured"], 16384);
  EXPECT_EQ(im["hiberDriveConfigured"], "");
  EXPECT_EQ(im["reserveInEffect"], 7);
  EXPECT_EQ(im["hiberInEffect"], 1);
}

TEST(SimControllerIm, EnableAndDisableSetTheLocalState) {
  Model m(json{{"state", 0}});
  ASSERT_EQ(m.send(ioctl::EnableIm, {}, 0).error, 0u);
  EXPECT_EQ(m.state()["im"]["localState"], 1);
  ASSERT_EQ(m.send(ioctl::DisableIm, {}, 0).error, 0u);
  EXPECT_EQ(m.state()["im"]["localState"], 0);
}

TEST(SimControllerIm, UnsupportedManagerFailsEveryCode) {
  Model m(json{{"supported", false}});
  for (std::uint32_t code : {ioctl::QueryImStatus, ioctl::EnableIm, ioctl::DisableIm})
    EXPECT_EQ(m.send(code, {}, code == ioctl::QueryImStatus ? 72 : 0).error, 1u);
  EXPECT_EQ(m.send(ioctl::SetImOptions, options(24, 0, 0, 0, 0), 0).error, 1u);
}

}  // namespace controller_im_test
}  // namespace vmd::sim
