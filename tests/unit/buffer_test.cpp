// The connection's byte queue: index rules, the compaction-or-growth choice of
// append, and readFd on a real loopback socket.
#include "VLNet/Buffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/LoopbackPair.h"

using velmar::net::Buffer;
using velmar::test::LoopbackPair;

namespace {

std::string readable(const Buffer& b) {
  return std::string(b.peek(), b.readableBytes());
}

std::string pattern(size_t n, char first = 'a') {
  std::string s;
  for (size_t i = 0; i < n; ++i) s += static_cast<char>(first + i % 26);
  return s;
}

}  // namespace

TEST(Buffer, FreshBufferHasPrependRoomAndZeroedStorage) {
  Buffer b(4096);
  EXPECT_EQ(b.size(), 4104u);
  EXPECT_EQ(b.readableBytes(), 0u);
  EXPECT_EQ(b.writableBytes(), 4096u);
  EXPECT_EQ(b.prependableBytes(), 8u);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 8u);
  EXPECT_EQ(std::string(b.begin(), b.size()), std::string(4104, '\0'));
  EXPECT_EQ(Buffer().size(), 4104u);
}

TEST(Buffer, RetrieveAdvancesOrEmpties) {
  struct Case {
    size_t take;
    size_t reader, writer;
  } cases[] = {{0, 8, 18}, {3, 11, 18}, {9, 17, 18}, {10, 8, 8}, {11, 8, 8}, {1000, 8, 8}};
  for (const Case& c : cases) {
    Buffer b(64);
    b.append("0123456789", 10);
    b.retrieve(c.take);
    EXPECT_EQ(b.readerIndex(), c.reader) << "take " << c.take;
    EXPECT_EQ(b.writerIndex(), c.writer) << "take " << c.take;
  }
}

TEST(Buffer, RetrieveAllKeepsStorageAndContents) {
  Buffer b(16);
  b.append("abcdef", 6);
  b.retrieve(2);
  b.retrieveAll();
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 8u);
  EXPECT_EQ(b.size(), 24u);
  EXPECT_EQ(std::string(b.begin() + 8, 6), "abcdef");
}

TEST(Buffer, AppendIntoFreeSpaceMovesNothing) {
  Buffer b(16);
  b.append("0123456789", 10);
  b.retrieve(4);
  b.append("abcdef", 6);  // exactly the free space
  EXPECT_EQ(b.readerIndex(), 12u);
  EXPECT_EQ(b.writerIndex(), 24u);
  EXPECT_EQ(b.size(), 24u);
  EXPECT_EQ(readable(b), "456789abcdef");
}

// 16 bytes of storage behind the prepend room, all written, 10 consumed: 6
// readable at offset 18, nothing writable. Room after compaction: 10 bytes.
TEST(Buffer, AppendCompactsWhenTheGapInFrontIsEnough) {
  Buffer b(16);
  b.append("0123456789ABCDEF", 16);
  b.retrieve(10);
  ASSERT_EQ(b.writableBytes(), 0u);
  b.append("abcdefghij", 10);
  EXPECT_EQ(b.size(), 24u);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 24u);
  EXPECT_EQ(readable(b), "ABCDEFabcdefghij");
}

TEST(Buffer, AppendGrowsWhenOneByteMoreThanTheRoom) {
  Buffer b(16);
  b.append("0123456789ABCDEF", 16);
  b.retrieve(10);
  b.append("abcdefghijk", 11);
  EXPECT_EQ(b.size(), 35u);
  EXPECT_EQ(b.readerIndex(), 18u);
  EXPECT_EQ(b.writerIndex(), 35u);
  EXPECT_EQ(readable(b), "ABCDEFabcdefghijk");
  EXPECT_EQ(std::string(b.begin() + 8, 10), "0123456789");  // the gap is untouched
}

TEST(Buffer, MoveReadableToFront) {
  Buffer b(32);
  b.append("0123456789", 10);
  b.retrieve(7);
  b.moveReadableToFront();
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(b.writerIndex(), 11u);
  EXPECT_EQ(readable(b), "789");
}

TEST(BufferReadFd, ReadsNoMoreThanTheFreeSpace) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  const std::string sent = pattern(200);
  ASSERT_TRUE(pair.sendAll(sent.data(), sent.size()));

  Buffer b(64);
  int error = 0;
  ASSERT_TRUE(pair.waitReadable());
  int n = b.readFd(pair.server(), &error);
  ASSERT_GT(n, 0);
  EXPECT_LE(n, 64);
  EXPECT_EQ(b.size(), 72u);
  // The rest comes through the stack area once the buffer is full.
  while (b.readableBytes() < sent.size()) {
    ASSERT_TRUE(pair.waitReadable());
    ASSERT_GT(b.readFd(pair.server(), &error), 0);
  }
  EXPECT_EQ(readable(b), sent);
  EXPECT_EQ(error, 0);
}

TEST(BufferReadFd, FullBufferReadsIntoStackAreaAndAppends) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  Buffer b(0);
  ASSERT_EQ(b.writableBytes(), 0u);
  ASSERT_TRUE(pair.sendAll("hello, front", 12));
  ASSERT_TRUE(pair.waitReadable());
  int error = 0;
  ASSERT_GT(b.readFd(pair.server(), &error), 0);
  while (b.readableBytes() < 12) {
    ASSERT_TRUE(pair.waitReadable());
    ASSERT_GT(b.readFd(pair.server(), &error), 0);
  }
  EXPECT_EQ(readable(b), "hello, front");
  EXPECT_EQ(b.readerIndex(), 8u);
}

TEST(BufferReadFd, FullBufferCompactsWhenThereIsRoomInFront) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  Buffer b(16);
  b.append("0123456789ABCDEF", 16);
  b.retrieve(12);
  ASSERT_TRUE(pair.sendAll("xyz", 3));
  ASSERT_TRUE(pair.waitReadable());
  int error = 0;
  int total = 0;
  while (total < 3) {
    int n = b.readFd(pair.server(), &error);
    ASSERT_GT(n, 0);
    total += n;
    if (total < 3) {
      ASSERT_TRUE(pair.waitReadable());
    }
  }
  EXPECT_EQ(b.size(), 24u);
  EXPECT_EQ(b.readerIndex(), 8u);
  EXPECT_EQ(readable(b), "CDEFxyz");
}

TEST(BufferReadFd, PeerCloseReturnsZeroAndChangesNothing) {
  for (size_t initial : {size_t{0}, size_t{64}}) {
    LoopbackPair pair;
    ASSERT_TRUE(pair.ok());
    Buffer b(initial);
    pair.closeClient();
    ASSERT_TRUE(pair.waitReadable());
    int error = 0;
    EXPECT_EQ(b.readFd(pair.server(), &error), 0) << "initial " << initial;
    EXPECT_EQ(b.readerIndex(), 8u);
    EXPECT_EQ(b.writerIndex(), 8u);
    EXPECT_EQ(b.size(), 8 + initial);
    EXPECT_EQ(error, 0);
  }
}

TEST(BufferReadFd, FailureReportsTheError) {
  LoopbackPair pair;
  ASSERT_TRUE(pair.ok());
  Buffer b(64);
  int error = 0;
  // The client end, already closed: recv fails at once.
  int fd = pair.client();
  pair.closeClient();
  EXPECT_LT(b.readFd(fd, &error), 0);
  EXPECT_NE(error, 0);
  EXPECT_EQ(b.writerIndex(), 8u);
}
