// Framing and reading packages out of the connection's input buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
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

// Field id, value, chain and request id of a field as read.
using Seen = std::tuple<uint32_t, std::string, uint8_t, uint32_t>;

std::vector<Seen> fieldsOf(CVelmarPackageIterator& it) {
  std::vector<Seen> out;
  for (; !it.isEnd(); it.next()) {
    out.emplace_back(it.fieldId(), std::string(it.fieldValue(), it.fieldLength()), it.chain(),
                     it.requestId());
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

TEST(PackageReader, FramingErrorsDropEverythingBuffered) {
  const std::string kTypeError = "CVelmarPackageIterator Check ftdHeadr error, type ";
  struct Case {
    const char* name;
    Bytes header;
    std::string stdoutText;  // empty: the error print on the standard error instead
  } cases[] = {
      {"type 3", {0x03, 0x02, 0x00, 0x00}, kTypeError + "\x03"},
      {"extLength 3", {0x01, 0x03, 0x00, 0x00}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Buffer b;
    append(&b, Bytes(30, 0x11));
    append(&b, concat({c.header, Bytes(40, 0)}));
    b.retrieve(30);  // the bad header away from offset 8
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(CVelmarPackageIterator::Check(&b));
    std::string out = ::testing::internal::GetCapturedStdout();
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(b.readerIndex(), 8u);
    EXPECT_EQ(b.writerIndex(), 8u);
    EXPECT_EQ(out, c.stdoutText);
    if (c.stdoutText.empty()) {
      EXPECT_EQ(err.rfind("TCP socket window  full error: ", 0), 0u) << err;
      EXPECT_EQ(err.back(), '\n');
    } else {
      EXPECT_EQ(err, "");
    }
  }
}

// Packages that pass Check, at the limits and malformed inside: each is read
// as far as it holds whole fields, and is consumed whole. A stated field
// length past the package ends it; the FTDC header of the tagged package lies
// behind the tag data, and its field header past the package.
TEST(PackageReader, FieldsOfOddPackages) {
  Bytes tagged = {0x01, 0x02, 0x1C, 0x00, 0x07, 0x02, 0xAA, 0xBB};  // two bytes of tag data
  Bytes ftdc = velmar::test::ftdcPart({{28, ""}}, 0x53, 5, 28);
  tagged.insert(tagged.end(), ftdc.begin(), ftdc.end() - 2);  // ftdcLength 28 counts the tag
  const std::string m(9971, 'm');                             // ftdcLength 9999
  const Bytes cutHeader = concat({Bytes{0x01, 0x02, 0x1A, 0x00, 0x00, 0x00}, Bytes(20, 0),
                                  Bytes{0x00, 0x00, 0x00, 0x00, 0x16, 0x00}});
  struct Case {
    const char* name;
    Bytes bytes;
    std::vector<Seen> fields;
    int fieldCount;
  } cases[] = {
      {"ftdcLength 9999", package({{33, m}}), {{33, m, 0x53, 0}}, 1},
      {"ftdType 2 reads like 1", package({{24, "s"}}, 0x53, 4, 2), {{24, "s", 0x53, 4}}, 1},
      {"overlong field", package({{28, "a"}, {29, "x", 99}, {30, "y"}}), {{28, "a", 0x53, 0}}, 3},
      {"no FTDC part", Bytes{0x01, 0x02, 0x00, 0x00, 0x00, 0x00}, {}, 0},
      {"field header cut", cutHeader, {}, 0},
      {"tag data", tagged, {}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Buffer b;
    append(&b, c.bytes);
    ASSERT_TRUE(CVelmarPackageIterator::Check(&b));
    CVelmarPackageIterator it(&b);
    EXPECT_EQ(b.writerIndex(), 8u);
    EXPECT_EQ(it.fieldCount(), c.fieldCount);
    EXPECT_EQ(fieldsOf(it), c.fields);
  }
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
