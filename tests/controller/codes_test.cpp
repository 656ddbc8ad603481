// The disk address and the request that wraps a sub-record.
#include "controller/codes.h"

#include <gtest/gtest.h>

namespace vmd {
namespace codes_test {

TEST(DiskAddress, LengthsTwelveAndTheDiskNumberAsTarget) {
  const DiskAddressBytes a = diskAddress(0x7F);
  EXPECT_EQ(getLE(a.data(), a.size(), 0, 4), 12u);
  EXPECT_EQ(getLE(a.data(), a.size(), 4, 4), 12u);
  EXPECT_EQ(a[8], 0);   // port
  EXPECT_EQ(a[9], 0);   // path
  EXPECT_EQ(a[10], 0x7F);
  EXPECT_EQ(a[11], 0);  // lun
  EXPECT_EQ(addressTarget(a), 0x7F);
}

TEST(WrapSubRecord, SixteenByteHeadThenTheSubRecord) {
  const Bytes sub(58, 0xAB);
  const Bytes request = wrapSubRecord(5, sub);
  ASSERT_EQ(request.size(), 74u);
  EXPECT_EQ(get32(request, 0), 16u);
  EXPECT_EQ(get32(request, 4), 74u);
  EXPECT_EQ(request[8], 0);
  EXPECT_EQ(request[9], 0);
  EXPECT_EQ(request[10], 5);
  EXPECT_EQ(request[11], 0);
  EXPECT_EQ(get32(request, 12), 58u);
  EXPECT_EQ(Bytes(request.begin() + 16, request.end()), sub);
}

TEST(WrapSubRecord, EmptySubRecordIsTheHeadAlone) {
  const Bytes request = wrapSubRecord(0, {});
  ASSERT_EQ(request.size(), 16u);
  EXPECT_EQ(get32(request, 4), 16u);
  EXPECT_EQ(get32(request, 12), 0u);
}

}  // namespace codes_test
}  // namespace vmd
