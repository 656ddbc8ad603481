// The Invisible Memory status record and the free/total figures taken from it.
#include "controller/im_status.h"

#include <gtest/gtest.h>

#include "sim/sim_platform.h"
#include "support/fakes.h"

namespace vmd {
namespace im_status_test {

using sim::json;

struct Rig {
  explicit Rig(const json& im)
      : machine(json{{"controller", {{"im", im}}}}),
        sim(machine, streams, catalog),
        controller(sim.setup, sim.io) {
    controller.discover();
  }
  sim::Machine machine;
  test::CapturingStreams streams;
  test::MapCatalog catalog;
  sim::SimPlatform sim;
  CVmDevControl controller;
};

TEST(ParseImStatus, ReadsEveryFieldAtItsOffset) {
  std::uint8_t raw[72] = {};
  for (std::size_t at = 0; at < 72; at += 4) raw[at] = static_cast<std::uint8_t>(at + 1);
  const ImStatus s = parseImStatus(raw);
  EXPECT_EQ(s.recordSize, 1u);
  EXPECT_EQ(s.unitSize, 5u);
  EXPECT_EQ(s.firstUnit, 9u);
  EXPECT_EQ(s.endUnit, 13u);
  EXPECT_EQ(s.freeUnits, 17u);
  EXPECT_EQ(s.state, 21u);
  EXPECT_EQ(s.reserveInEffect, 25u);
  EXPECT_EQ(s.quotaInEffect, 29u);
  EXPECT_EQ(s.hiberDriveInEffect, 33u);
  EXPECT_EQ(s.reserveConfigured, 37u);
  EXPECT_EQ(s.quotaConfigured, 41u);
  EXPECT_EQ(s.hiberDriveConfigured, 45u);
  EXPECT_EQ(s.localState, 49u);
  EXPECT_EQ(s.hiberInEffect, 53u);
  EXPECT_EQ(s.hiberConfigured, 61u);
}

TEST(ImUnitsToMb, MultipliesInSixtyFourBitsAndTruncates) {
  EXPECT_EQ(imUnitsToMb(0x00400000, 4096), 16384u);
  EXPECT_EQ(imUnitsToMb(0xFFFFFFFF, 0xFFFFFFFF), (0xFFFFFFFFull * 0xFFFFFFFFull) >> 20);
  EXPECT_EQ(imUnitsToMb(255, 4096), 0u);
}

TEST(GetImFreeTotal, CountsWhenRunningAndEnabledForThisProduct) {
  Rig rig(json{{"state", 0}, {"localState", 1}, {"unitSize", 4096}, {"firstUnit", 16}, {"endUnit", 2097168},
           {"freeUnits", 1048576}});
  std::uint64_t freeBytes = 1, totalBytes = 1;
  EXPECT_TRUE(getImFreeTotal(rig.controller, &freeBytes, &totalBytes));
  EXPECT_EQ(freeBytes, 4294967296ull);
  EXPECT_EQ(totalBytes, 8589934592ull);
  EXPECT_TRUE(getImFreeTotal(rig.controller, nullptr, nullptr));
}

TEST(GetImFreeTotal, LocalStateOtherThanOneDoesNotCount) {
  for (int local : {0, 2}) {
    Rig rig(json{{"state", 0}, {"localState", local}, {"unitSize", 4096}, {"endUnit", 100}, {"freeUnits", 50}});
    std::uint64_t freeBytes = 1, totalBytes = 1;
    EXPECT_FALSE(getImFreeTotal(rig.controller, &freeBytes, &totalBytes));
    EXPECT_EQ(freeBytes, 0u);
    EXPECT_EQ(totalBytes, 0u);
  }
}

TEST(GetImFreeTotal, StoppedManagerOldRecordOrFailedQueryDoesNotCount) {
  Rig stopped(json{{"localState", 1}, {"unitSize", 4096}, {"endUnit", 100}});
  EXPECT_FALSE(getImFreeTotal(stopped.controller, nullptr, nullptr));
  Rig old(json{{"state", 0}, {"recordSize", 71}, {"localState", 1}, {"unitSize", 4096}, {"endUnit", 100}});
  EXPECT_FALSE(getImFreeTotal(old.controller, nullptr, nullptr));
  Rig failing(json{{"state", 0}, {"localState", 1}, {"supported", false}});
  EXPECT_FALSE(getImFreeTotal(failing.controller, nullptr, nullptr));
}

TEST(QueryImStatus, FailureGivesTheSystemError) {
  Rig rig(json{{"supported", false}});
  std::uint32_t error = 0;
  EXPECT_FALSE(queryImStatus(rig.controller, &error));
  EXPECT_EQ(error, 1u);
}

}  // namespace im_status_test
}  // namespace vmd
