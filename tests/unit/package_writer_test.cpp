// Packages as the library writes them, checked against bytes written out by
// hand.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "VelmarMdStruct.h"
#include "package/VelmarPackage.h"
#include "package/WireFormat.h"
#include "support/WireBytes.h"

using velmar::mdapi::wire::kRequestCapacity;
using velmar::test::Bytes;
using velmar::test::concat;

namespace {

Bytes bytesOf(const CVelmarPackage& p) {
  const uint8_t* d = reinterpret_cast<const uint8_t*>(p.data());
  return Bytes(d, d + p.length());
}

// The request path: clear, prepare, header (type 1, chain 'S', mark 'H'),
// one field whose id is the tid, finish.
bool buildRequest(CVelmarPackage* p, uint32_t tid, uint32_t requestId, const void* data,
                  uint16_t length) {
  p->clear();
  if (!p->prepare()) return false;
  if (!p->setHeader(1, 0, 0, tid, 0x53, 0x48, requestId)) return false;
  bool added = p->addField(tid, data, length);
  return p->finish() && added;
}

const CVelmarSubAllRecord kSubAll = {1, 2};

}  // namespace

TEST(PackageWriter, ExactBytes) {
  CVelmarPackage keepAlive(6);
  ASSERT_TRUE(keepAlive.prepare());
  keepAlive.setKeepAlive();
  ASSERT_TRUE(keepAlive.finish());
  EXPECT_EQ(bytesOf(keepAlive), (Bytes{0x00, 0x02, 0x00, 0x00, 0x04, 0x00}));

  CVelmarPackage p(kRequestCapacity);
  ASSERT_TRUE(buildRequest(&p, 3, 7, &kSubAll, sizeof kSubAll));    // SubAllMarketData(1, 2, 7)
  EXPECT_EQ(bytesOf(p), (Bytes{0x01, 0x02, 0x24, 0x00, 0x00, 0x00,  // FTD, ext
                               0x48, 0x53, 0x01, 0x00, 0x10, 0x00, 0x00, 0x00, 0x03, 0x00,
                               0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,
                               0x08, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,  // field
                               0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00}));
}

// The package zeroes only what it wrote last time; nothing of a longer
// package, finished or not, may stay behind a shorter one.
TEST(PackageWriter, ReuseLeavesNothingOfTheLastPackage) {
  CVelmarPackage p(kRequestCapacity);
  std::string big(2000, 'x');
  ASSERT_TRUE(buildRequest(&p, 5, 1, big.data(), 1000));
  ASSERT_TRUE(buildRequest(&p, 3, 7, &kSubAll, sizeof kSubAll));
  EXPECT_EQ(p.length(), 42);
  EXPECT_EQ(std::string(p.data() + 42, 1100), std::string(1100, '\0'));

  p.clear();
  ASSERT_TRUE(p.prepare());
  ASSERT_TRUE(p.setHeader(1, 0, 0, 5, 0x53, 0x48, 1));
  ASSERT_TRUE(p.addField(5, big.data(), 2000));  // never finished
  ASSERT_TRUE(buildRequest(&p, 3, 7, &kSubAll, sizeof kSubAll));
  EXPECT_EQ(std::string(p.data() + 42, 2100), std::string(2100, '\0'));
}

TEST(PackageWriter, FieldAreaLimit) {
  struct Case {
    std::vector<int> lengths;
    size_t accepted;  // fields that go in, in order
  } cases[] = {
      {{4068}, 1},      // exactly 4076 with its header
      {{4069}, 0},      // one byte over
      {{4000, 61}, 1},  // 4008 + 69 = 4077
      {{0, 0, 0}, 3},   // empty values are fields too
  };
  const std::string value(5000, 'i');
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lengths[0]);
    CVelmarPackage p(kRequestCapacity);
    p.clear();
    ASSERT_TRUE(p.prepare());
    ASSERT_TRUE(p.setHeader(1, 0, 0, 5, 0x53, 0x48, 0));
    size_t accepted = 0;
    int used = 0;
    for (int len : c.lengths) {
      if (p.addField(5, value.data(), static_cast<uint16_t>(len))) {
        ++accepted;
        used += 8 + len;
      }
    }
    EXPECT_EQ(accepted, c.accepted);
    ASSERT_TRUE(p.finish());
    // A refused field changed nothing: counts and lengths are those of the
    // accepted ones.
    const uint8_t* d = reinterpret_cast<const uint8_t*>(p.data());
    EXPECT_EQ(p.length(), 26 + used);
    EXPECT_EQ(d[2] | (d[3] << 8), 20 + used);
    EXPECT_EQ(d[6 + 2] | (d[6 + 3] << 8), static_cast<int>(accepted));
    EXPECT_EQ(d[6 + 4] | (d[6 + 5] << 8), used);
  }
}

TEST(PackageWriter, RefusesWhatTheBlockCannotHold) {
  CVelmarPackage tiny(2);  // 3 bytes: not even the FTD header
  EXPECT_FALSE(tiny.prepare());

  // Smaller than a request package: a field within the field-area limit is
  // still refused when its own block can't hold it.
  CVelmarPackage small(50);  // 25 bytes for fields
  small.clear();
  ASSERT_TRUE(small.prepare());
  ASSERT_TRUE(small.setHeader(1, 0, 0, 3, 0x53, 0x48, 0));
  EXPECT_TRUE(small.addField(3, "12345678", 8));
  EXPECT_FALSE(small.addField(3, "12345678", 8));
  ASSERT_TRUE(small.finish());
  EXPECT_EQ(small.length(), 42);
}
