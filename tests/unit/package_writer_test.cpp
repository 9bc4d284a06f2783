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

using velmar::test::Bytes;

namespace {

Bytes bytesOf(const CVelmarPackage& p) {
  const uint8_t* d = reinterpret_cast<const uint8_t*>(p.data());
  return Bytes(d, d + p.length());
}

// The request path: clear, prepare, header (type 1, tag 0, chain 'S', mark
// 'H'), one field whose id is the tid, finish.
bool buildRequest(CVelmarPackage* p, uint32_t tid, uint32_t requestId, const void* data,
                  uint16_t length) {
  p->clear();
  if (!p->prepare()) return false;
  if (!p->setHeader(1, 0, 0, tid, 0x53, 0x48, requestId)) return false;
  bool added = p->addField(tid, data, length);
  return p->finish() && added;
}

}  // namespace

TEST(PackageWriter, KeepAliveIsSixFixedBytes) {
  CVelmarPackage p(6);
  ASSERT_TRUE(p.prepare());
  p.setKeepAlive();
  ASSERT_TRUE(p.finish());
  EXPECT_EQ(bytesOf(p), (Bytes{0x00, 0x02, 0x00, 0x00, 0x04, 0x00}));
}

TEST(PackageWriter, SubAllMarketDataExample) {
  CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
  CVelmarSubAllRecord r = {1, 2};
  ASSERT_TRUE(buildRequest(&p, 3, 7, &r, sizeof r));
  Bytes expected = {0x01, 0x02, 0x24, 0x00, 0x00, 0x00,                          // FTD, ext
                    0x48, 0x53, 0x01, 0x00, 0x10, 0x00, 0x00, 0x00, 0x03, 0x00,  // FTDC
                    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00,  //
                    0x08, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,              // field
                    0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00};
  EXPECT_EQ(p.length(), 42);
  EXPECT_EQ(bytesOf(p), expected);
}

TEST(PackageWriter, LoginRequestCarriesTheRecordImage) {
  CVelmarReqUserLogin login;
  std::memset(&login, 0, sizeof login);
  std::strcpy(login.TradingDay, "20240102");
  std::strcpy(login.UserID, "trader01");
  std::strcpy(login.Password, "secret");
  std::strcpy(login.UserProductInfo, "tests");
  std::strcpy(login.IPAddress, "127.0.0.1");
  std::strcpy(login.MacAddress, "00:11:22:33:44:55");

  CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
  ASSERT_TRUE(buildRequest(&p, 0, 0x01020304, &login, sizeof login));
  Bytes b = bytesOf(p);
  ASSERT_EQ(b.size(), 192u);  // 4 + 2 + 20 + 8 + 158
  Bytes head(b.begin(), b.begin() + 34);
  Bytes expectedHead = {0x01, 0x02, 0xBA, 0x00, 0x00, 0x00,                          //
                        0x48, 0x53, 0x01, 0x00, 0xA6, 0x00, 0x00, 0x00, 0x00, 0x00,  //
                        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x03, 0x02, 0x01,  //
                        0x9E, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(head, expectedHead);
  EXPECT_EQ(std::memcmp(b.data() + 34, &login, 158), 0);
  EXPECT_EQ(b[34 + 9], 't');    // UserID at offset 9 of the value
  EXPECT_EQ(b[34 + 25], 's');   // Password at 25
  EXPECT_EQ(b[34 + 128], '0');  // MacAddress at 128
}

TEST(PackageWriter, ReuseLeavesNothingOfTheLastPackage) {
  CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
  std::string big(2000, 'x');
  ASSERT_TRUE(buildRequest(&p, 5, 1, big.data(), 1000));
  CVelmarSubAllRecord r = {1, 2};
  ASSERT_TRUE(buildRequest(&p, 3, 7, &r, sizeof r));
  EXPECT_EQ(p.length(), 42);
  EXPECT_EQ(p.data()[42], 0);  // the block was zeroed behind the package
  EXPECT_EQ(p.data()[500], 0);

  // Fields added to a package that was never finished are cleared too.
  p.clear();
  ASSERT_TRUE(p.prepare());
  ASSERT_TRUE(p.setHeader(1, 0, 0, 5, 0x53, 0x48, 1));
  ASSERT_TRUE(p.addField(5, big.data(), 2000));
  ASSERT_TRUE(buildRequest(&p, 3, 7, &r, sizeof r));
  EXPECT_EQ(std::string(p.data() + 42, 2100), std::string(2100, '\0'));
}

TEST(PackageWriter, FieldAreaLimit) {
  struct Case {
    std::vector<int> lengths;
    size_t accepted;  // fields that go in, in order
  } cases[] = {
      {{4064}, 1},      // 254 instrument ids: 4064 + 8 = 4072
      {{4080}, 0},      // 255 ids
      {{4068}, 1},      // exactly 4076 with its header
      {{4069}, 0},      // one byte over
      {{4000, 60}, 2},  // 4008 + 68 = 4076
      {{4000, 61}, 1},  // 4008 + 69 = 4077
      {{0, 0, 0}, 3},   // empty values are fields too
  };
  for (const Case& c : cases) {
    CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
    p.clear();
    ASSERT_TRUE(p.prepare());
    ASSERT_TRUE(p.setHeader(1, 0, 0, 5, 0x53, 0x48, 0));
    std::string value(5000, 'i');
    size_t accepted = 0;
    int used = 0;
    for (int len : c.lengths) {
      if (p.addField(5, value.data(), static_cast<uint16_t>(len))) {
        ++accepted;
        used += 8 + len;
      }
    }
    EXPECT_EQ(accepted, c.accepted) << "first length " << c.lengths[0];
    ASSERT_TRUE(p.finish());
    // A refused field changed nothing: the counts and length are those of
    // the accepted ones.
    EXPECT_EQ(p.length(), 26 + used);
    const uint8_t* d = reinterpret_cast<const uint8_t*>(p.data());
    EXPECT_EQ(d[6 + 2] | (d[6 + 3] << 8), static_cast<int>(accepted));
    EXPECT_EQ(d[6 + 4] | (d[6 + 5] << 8), used);
    EXPECT_EQ(d[2] | (d[3] << 8), 20 + used);
  }
}

TEST(PackageWriter, RefusesWhatTheBlockCannotHold) {
  CVelmarPackage tiny(2);  // 3 bytes: not even the FTD header
  EXPECT_FALSE(tiny.prepare());

  CVelmarPackage noFtdc(20);  // 21 bytes: 6 for the headers, 15 left
  ASSERT_TRUE(noFtdc.prepare());
  EXPECT_FALSE(noFtdc.setHeader(1, 0, 0, 3, 0x53, 0x48, 0));
  EXPECT_FALSE(noFtdc.addField(3, "x", 1));

  // A package made smaller than a request package refuses a field that
  // passes the field-area limit but not its own block.
  CVelmarPackage small(50);  // 25 bytes for fields
  small.clear();
  ASSERT_TRUE(small.prepare());
  ASSERT_TRUE(small.setHeader(1, 0, 0, 3, 0x53, 0x48, 0));
  EXPECT_TRUE(small.addField(3, "12345678", 8));
  EXPECT_FALSE(small.addField(3, "12345678", 8));
  ASSERT_TRUE(small.finish());
  EXPECT_EQ(small.length(), 42);
}

TEST(PackageWriter, AddFieldNeedsAHeaderFirst) {
  CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
  p.clear();
  ASSERT_TRUE(p.prepare());
  EXPECT_FALSE(p.addField(3, "x", 1));
  ASSERT_TRUE(p.finish());
  EXPECT_EQ(p.length(), 6);  // no FTDC part: ftdcLength 0
  EXPECT_EQ(bytesOf(p), (Bytes{0x00, 0x02, 0x00, 0x00, 0x00, 0x00}));
}

TEST(PackageWriter, TagDataShiftsTheFtdcPart) {
  CVelmarPackage p(velmar::mdapi::wire::kRequestCapacity);
  p.clear();
  ASSERT_TRUE(p.prepare());
  ASSERT_TRUE(p.setHeader(1, 9, 3, 3, 0x53, 0x48, 7));
  ASSERT_TRUE(p.addField(3, "ab", 2));
  ASSERT_TRUE(p.finish());
  Bytes b = bytesOf(p);
  ASSERT_EQ(b.size(), 4u + 2 + 3 + 20 + 8 + 2);
  EXPECT_EQ(b[1], 5);  // extLength = 2 + tag length
  EXPECT_EQ(b[2], 30);
  EXPECT_EQ(b[4], 9);
  EXPECT_EQ(b[5], 3);
  EXPECT_EQ(b[9], 0x48);  // FTDC header behind the three tag bytes
  EXPECT_EQ(b[10], 0x53);
}
