// Framing and reading packages out of the connection's input buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "VLNet/Buffer.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "support/WireBytes.h"

using velmar::net::Buffer;
using velmar::test::Bytes;
using velmar::test::concat;
using velmar::test::keepAlive;
using velmar::test::package;
using velmar::test::WireField;

namespace {

void append(Buffer* b, const Bytes& bytes) {
  b->append(bytes.data(), bytes.size());
}

struct Seen {
  uint32_t id;
  std::string value;
  uint8_t chain;
  uint32_t requestId;
  bool operator==(const Seen& o) const {
    return id == o.id && value == o.value && chain == o.chain && requestId == o.requestId;
  }
};

std::ostream& operator<<(std::ostream& os, const Seen& s) {
  return os << "{" << s.id << ", " << s.value.size() << " bytes, chain " << int(s.chain)
            << ", request " << s.requestId << "}";
}

std::vector<Seen> fieldsOf(CVelmarPackageIterator& it) {
  std::vector<Seen> out;
  for (; !it.isEnd(); it.next()) {
    out.push_back(
        {it.fieldId(), std::string(it.fieldValue(), it.fieldLength()), it.chain(), it.requestId()});
  }
  return out;
}

// The reading loop of the front connection: frame, read every field, move the
// rest of the buffer to the front, again while bytes remain.
void drain(Buffer* b, std::vector<Seen>* seen, int* keepAlives) {
  while (b->readableBytes() > 0) {
    if (!CVelmarPackageIterator::Check(b)) return;
    CVelmarPackageIterator it(b);
    if (it.isKeepAlive()) {
      ++*keepAlives;
    } else {
      std::vector<Seen> f = fieldsOf(it);
      seen->insert(seen->end(), f.begin(), f.end());
    }
    if (b->readableBytes() > 0) b->moveReadableToFront();
  }
}

const std::vector<WireField> kTwoFields = {{22, std::string(48, 'L')}, {32, std::string(92, 'E')}};

}  // namespace

TEST(PackageReader, StreamCutAnywhereWaitsAndConsumesNothing) {
  Bytes p = package(kTwoFields, 0x53, 9);
  ASSERT_EQ(p.size(), 6u + 20 + 56 + 100);
  for (size_t cut = 0; cut < p.size(); ++cut) {
    Buffer b;
    b.append(p.data(), cut);
    EXPECT_FALSE(CVelmarPackageIterator::Check(&b)) << "cut " << cut;
    EXPECT_EQ(b.readerIndex(), 8u) << "cut " << cut;
    EXPECT_EQ(b.writerIndex(), 8u + cut) << "cut " << cut;
  }
  Buffer b;
  append(&b, p);
  EXPECT_TRUE(CVelmarPackageIterator::Check(&b));
}

TEST(PackageReader, PackageThatEndsTheBufferEmptiesIt) {
  Buffer b;
  append(&b, package(kTwoFields, 0x53, 9));
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 8u);
  EXPECT_EQ(it.ftdType(), 1);
  EXPECT_EQ(it.extLength(), 2);
  EXPECT_EQ(it.fieldCount(), 2);
  EXPECT_EQ(it.tid(), 22u);
  EXPECT_EQ(it.getFtdHeader(), 0x00B00201u);  // 01 02 B0 00 as one u32
  EXPECT_EQ(it.getExtHeader(), 0u);
  EXPECT_EQ(it.getFtdcHeader()[0], 0x48);
  // The bytes are read in place, after the indexes have moved.
  std::vector<Seen> expected = {{22, std::string(48, 'L'), 0x53, 9},
                                {32, std::string(92, 'E'), 0x53, 9}};
  EXPECT_EQ(fieldsOf(it), expected);
}

TEST(PackageReader, TwoPackagesInOneRead) {
  Bytes first = package({{28, std::string(32, 'a')}}, 0, 1);
  Bytes second = package({{29, std::string(16, 'b')}}, 0x53, 2);
  Buffer b;
  append(&b, concat({first, second}));
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  {
    CVelmarPackageIterator it(&b);
    EXPECT_EQ(b.readerIndex(), 8u + first.size());
    EXPECT_EQ(b.writerIndex(), 8u + first.size() + second.size());
    EXPECT_EQ(fieldsOf(it), (std::vector<Seen>{{28, std::string(32, 'a'), 0, 1}}));
  }
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 8u);
  EXPECT_EQ(fieldsOf(it), (std::vector<Seen>{{29, std::string(16, 'b'), 0x53, 2}}));
}

TEST(PackageReader, KeepAliveHasNoFields) {
  Buffer b;
  append(&b, keepAlive());
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_TRUE(it.isKeepAlive());
  EXPECT_TRUE(it.isEnd());
  EXPECT_EQ(it.extTag(), 4);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 8u);
}

TEST(PackageReader, FramingErrorsDropEverythingBuffered) {
  struct Case {
    const char* name;
    Bytes header;
    std::string stdoutText;
    bool errorPrint;
  } cases[] = {
      {"type 3",
       {0x03, 0x02, 0x00, 0x00},
       std::string("CVelmarPackageIterator Check ftdHeadr error, type \x03"),
       false},
      {"type A",
       {0x41, 0x02, 0x00, 0x00},
       "CVelmarPackageIterator Check ftdHeadr error, type A",
       false},
      {"extLength 3", {0x01, 0x03, 0x00, 0x00}, "", true},
      {"extLength 0", {0x01, 0x00, 0x00, 0x00}, "", true},
      {"ftdcLength 10000", {0x01, 0x02, 0x10, 0x27}, "", true},
      {"ftdcLength 65535", {0x00, 0x02, 0xFF, 0xFF}, "", true},
  };
  for (const Case& c : cases) {
    Buffer b;
    append(&b, Bytes(30, 0x11));
    append(&b, concat({c.header, Bytes(40, 0)}));
    b.retrieve(30);  // the bad header away from offset 8
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    bool ok = CVelmarPackageIterator::Check(&b);
    std::string out = ::testing::internal::GetCapturedStdout();
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_FALSE(ok) << c.name;
    EXPECT_EQ(b.readerIndex(), 8u) << c.name;
    EXPECT_EQ(b.writerIndex(), 8u) << c.name;
    EXPECT_EQ(out, c.stdoutText) << c.name;
    if (c.errorPrint) {
      EXPECT_EQ(err.rfind("TCP socket window  full error: ", 0), 0u) << c.name << ": " << err;
      EXPECT_EQ(err.back(), '\n') << c.name;
    } else {
      EXPECT_EQ(err, "") << c.name;
    }
  }
}

TEST(PackageReader, LimitsThatPass) {
  // ftdcLength 9999: one field of 9999 - 20 - 8 bytes.
  Bytes big = package({{33, std::string(9971, 'm')}});
  ASSERT_EQ(big[2] | (big[3] << 8), 9999);
  // ftdType 2 is read like 1.
  Bytes type2 = package({{24, std::string(8, 's')}}, 0x53, 4, 2);
  for (const Bytes* p : {&big, &type2}) {
    Buffer b;
    append(&b, *p);
    ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
    CVelmarPackageIterator it(&b);
    std::vector<Seen> f = fieldsOf(it);
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0].value.size() + 8 + 20, p->size() - 6);
  }
}

TEST(PackageReader, FieldLongerThanThePackageEndsIt) {
  std::vector<WireField> fields = {{28, "0123456789abcdef"}, {29, "short", 100}, {30, "never"}};
  Buffer b;
  append(&b, package(fields));
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_EQ(fieldsOf(it), (std::vector<Seen>{{28, "0123456789abcdef", 0x53, 0}}));
  EXPECT_TRUE(it.isEnd());
  EXPECT_EQ(it.fieldValue(), nullptr);
}

TEST(PackageReader, EmptyAndShortFtdcParts) {
  struct Case {
    const char* name;
    Bytes bytes;
  } cases[] = {
      {"fieldCount 0", package({})},
      {"no FTDC part", Bytes{0x01, 0x02, 0x00, 0x00, 0x00, 0x00}},
      {"FTDC shorter than its header",
       Bytes{0x01, 0x02, 0x0A, 0x00, 0x00, 0x00, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
      {"field header cut", concat({Bytes{0x01, 0x02, 0x1A, 0x00, 0x00, 0x00}, Bytes(20, 0),
                                   Bytes{0x00, 0x00, 0x00, 0x00, 0x16, 0x00}})},
  };
  for (const Case& c : cases) {
    Buffer b;
    append(&b, c.bytes);
    ASSERT_TRUE(CVelmarPackageIterator::Check(&b)) << c.name;
    CVelmarPackageIterator it(&b);
    EXPECT_TRUE(it.isEnd()) << c.name;
    EXPECT_EQ(it.fieldCount(), 0) << c.name;
    EXPECT_EQ(b.writerIndex(), 8u) << c.name;
  }
}

TEST(PackageReader, EmptyFieldValueIsAField) {
  Buffer b;
  append(&b, package({{28, ""}, {29, "x"}}));
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  ASSERT_FALSE(it.isEnd());
  EXPECT_EQ(it.fieldId(), 28u);
  EXPECT_EQ(it.fieldLength(), 0);
  char dest[4] = {'?', '?', '?', '?'};
  EXPECT_EQ(it.getFieldValue(dest, sizeof dest), 0u);
  EXPECT_EQ(dest[0], '?');
  it.next();
  EXPECT_EQ(it.fieldId(), 29u);
  it.next();
  EXPECT_TRUE(it.isEnd());
  EXPECT_EQ(it.getFieldValue(dest, sizeof dest), 0u);
}

TEST(PackageReader, FieldCopyIsBoundedByTheDestination) {
  Buffer b;
  append(&b, package({{22, std::string(100, 'v')}}));
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  char dest[20];
  std::memset(dest, '-', sizeof dest);
  EXPECT_EQ(it.getFieldValue(dest, 16), 16u);
  EXPECT_EQ(std::string(dest, 20), std::string(16, 'v') + "----");
  char whole[200];
  std::memset(whole, '-', sizeof whole);
  EXPECT_EQ(it.getFieldValue(whole, sizeof whole), 100u);
  EXPECT_EQ(whole[100], '-');
}

TEST(PackageReader, TagDataIsSteppedOver) {
  // extLength 2 as required, but a tag length of 2 in the extension header:
  // the two bytes behind it are taken as tag data.
  Bytes p = {0x01, 0x02, 0x1C, 0x00, 0x07, 0x02, 0xAA, 0xBB};
  Bytes ftdc = velmar::test::ftdcPart({{28, ""}}, 0x53, 5, 28);
  p.insert(p.end(), ftdc.begin(), ftdc.end() - 2);  // the tag takes two of the 28
  Buffer b;
  append(&b, p);
  ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
  CVelmarPackageIterator it(&b);
  EXPECT_EQ(it.extTag(), 7);
  EXPECT_EQ(it.extTagLength(), 2);
  EXPECT_FALSE(it.isKeepAlive());
  EXPECT_EQ(it.requestId(), 5u);
  EXPECT_TRUE(it.isEnd());  // the field header lies past the package now
}

TEST(PackageReader, StreamInEverySplitGivesTheSameFields) {
  CVelmarPackage writer(4227);
  writer.clear();
  ASSERT_TRUE(writer.prepare());
  ASSERT_TRUE(writer.setHeader(1, 0, 0, 30, 0x53, 0x48, 77));
  ASSERT_TRUE(writer.addField(30, "IF2406\0\0\0\0\0\0\0\0\0\0", 16));
  ASSERT_TRUE(writer.finish());
  Bytes written(writer.data(), writer.data() + writer.length());

  Bytes stream = concat({keepAlive(), package(kTwoFields, 0, 3), written, keepAlive(),
                         package({{34, std::string(112, 't')}}, 0x53, 4)});
  std::vector<Seen> expected = {{22, std::string(48, 'L'), 0, 3},
                                {32, std::string(92, 'E'), 0, 3},
                                {30, std::string("IF2406") + std::string(10, '\0'), 0x53, 77},
                                {34, std::string(112, 't'), 0x53, 4}};
  for (size_t chunk = 1; chunk <= stream.size(); ++chunk) {
    Buffer b(64);
    std::vector<Seen> seen;
    int keepAlives = 0;
    for (size_t at = 0; at < stream.size(); at += chunk) {
      b.append(stream.data() + at, std::min(chunk, stream.size() - at));
      drain(&b, &seen, &keepAlives);
    }
    EXPECT_EQ(seen, expected) << "chunk " << chunk;
    EXPECT_EQ(keepAlives, 2) << "chunk " << chunk;
    EXPECT_EQ(b.readableBytes(), 0u) << "chunk " << chunk;
  }
}
