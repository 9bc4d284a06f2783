// Packages as the library writes them, against bytes written out by hand.
#include <gtest/gtest.h>

#include <string>

#include "VelmarMdStruct.h"
#include "package/VelmarPackage.h"
#include "package/WireFormat.h"
#include "support/WireBytes.h"

using velmar::mdapi::wire::kRequestCapacity;
using velmar::test::Bytes;

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
