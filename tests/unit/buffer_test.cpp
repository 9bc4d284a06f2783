// The connection's byte queue: index rules, the compaction-or-growth choice of
// append, and readFd on a real loopback socket.
#include "VLNet/Buffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/TcpTestSockets.h"

using velmar::net::Buffer;
using velmar::test::LoopbackPair;
using velmar::test::sendAll;
using velmar::test::waitFor;

namespace {

std::string readable(const Buffer& b) {
  return std::string(b.peek(), b.readableBytes());
}

// A buffer of `initial` bytes holding `fill`, of which `take` are consumed.
Buffer filled(size_t initial, const std::string& fill, size_t take) {
  Buffer b(initial);
  b.append(fill.data(), fill.size());
  b.retrieve(take);
  return b;
}

// readFd until `total` bytes are readable.
void readUntil(LoopbackPair& pair, Buffer& b, size_t total) {
  int error = 0;
  while (b.readableBytes() < total) {
    ASSERT_TRUE(waitFor(pair.server(), POLLIN));
    ASSERT_GT(b.readFd(pair.server(), &error), 0);
  }
  EXPECT_EQ(error, 0);
}

}  // namespace

// Append uses the free space, else compacts when the consumed gap in front
// makes room, else grows (leaving the gap as it is).
TEST(Buffer, AppendFillsCompactsOrGrows) {
  struct Case {
    const char* name;
    const char* fill;
    size_t take;
    const char* added;
    size_t size, reader;
    const char* readable;
  } cases[] = {
      {"exactly the free space", "0123456789", 4, "abcdef", 24, 12, "456789abcdef"},
      {"gap is enough", "0123456789ABCDEF", 10, "abcdefghij", 24, 8, "ABCDEFabcdefghij"},
      {"one byte more", "0123456789ABCDEF", 10, "abcdefghijk", 35, 18, "ABCDEFabcdefghijk"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Buffer b = filled(16, c.fill, c.take);
    b.append(c.added, std::string(c.added).size());
    EXPECT_EQ(b.size(), c.size);
    EXPECT_EQ(b.readerIndex(), c.reader);
    EXPECT_EQ(b.writerIndex(), b.size());
    EXPECT_EQ(readable(b), c.readable);
    if (c.reader > 8) {
      EXPECT_EQ(std::string(b.begin() + 8, c.take), std::string(c.fill, c.take));
    }
  }
  Buffer b = filled(32, "0123456789", 7);
  b.moveReadableToFront();
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 11u);
  EXPECT_EQ(readable(b), "789");
}

// One read never goes past the free space; a full buffer reads through the
// stack area and appends (growing, or compacting when there is room in front).
TEST(BufferReadFd, ReadsNoMoreThanTheFreeSpaceThenThroughTheStackArea) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  std::string sent;
  for (size_t i = 0; i < 200; ++i) sent += static_cast<char>('a' + i % 26);
  ASSERT_TRUE(sendAll(pair.client(), sent.data(), sent.size()));
  Buffer b(64);
  int error = 0;
  ASSERT_TRUE(waitFor(pair.server(), POLLIN));
  int n = b.readFd(pair.server(), &error);
  ASSERT_GT(n, 0);
  EXPECT_LE(n, 64);
  EXPECT_EQ(b.size(), 72u);
  readUntil(pair, b, sent.size());
  EXPECT_EQ(readable(b), sent);

  Buffer none(0);
  ASSERT_TRUE(sendAll(pair.client(), "hello, front", 12));
  readUntil(pair, none, 12);
  EXPECT_EQ(readable(none), "hello, front");
  EXPECT_EQ(none.readerIndex(), 8u);

  Buffer gap = filled(16, "0123456789ABCDEF", 12);  // full, with room in front
  ASSERT_TRUE(sendAll(pair.client(), "xyz", 3));
  readUntil(pair, gap, 7);
  EXPECT_EQ(gap.size(), 24u);
  EXPECT_EQ(readable(gap), "CDEFxyz");
}

TEST(BufferReadFd, PeerCloseReturnsZeroAndFailureReportsTheError) {
  for (size_t initial : {size_t{0}, size_t{64}}) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.ok());
    Buffer b(initial);
    pair.closeClient();
    ASSERT_TRUE(waitFor(pair.server(), POLLIN));
    int error = 0;
    EXPECT_EQ(b.readFd(pair.server(), &error), 0) << "initial " << initial;
    EXPECT_EQ(b.writerIndex(), 8u);
    EXPECT_EQ(b.size(), 8 + initial);
    EXPECT_EQ(error, 0);
  }
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  Buffer b(64);
  int error = 0;
  int fd = pair.client();
  pair.closeClient();  // recv on a closed socket fails at once
  EXPECT_LT(b.readFd(fd, &error), 0);
  EXPECT_NE(error, 0);
  EXPECT_EQ(b.writerIndex(), 8u);
}
