#include "VLNet/Buffer.h"

#include <cstring>

#include "utility/Platform.h"

namespace velmar {
namespace net {

constexpr size_t Buffer::kPrependSize;
constexpr size_t Buffer::kInitialSize;
constexpr size_t Buffer::kExtraReadSize;

Buffer::Buffer(size_t initialSize)
    : buffer_(kPrependSize + initialSize), readerIndex_(kPrependSize), writerIndex_(kPrependSize) {}

void Buffer::append(const void* data, size_t len) {
  if (writableBytes() < len) {
    if (writableBytes() + readerIndex_ >= len + kPrependSize) {
      // Enough room once the consumed bytes in front are given back: move
      // rather than grow, so a long-lived connection keeps its storage small.
      moveReadableToFront();
    } else {
      buffer_.resize(writerIndex_ + len);
    }
  }
  if (len > 0) std::memcpy(begin() + writerIndex_, data, len);
  writerIndex_ += len;
}

void Buffer::moveReadableToFront() {
  size_t readable = readableBytes();
  if (readerIndex_ != kPrependSize && readable > 0) {
    std::memmove(begin() + kPrependSize, begin() + readerIndex_, readable);
  }
  readerIndex_ = kPrependSize;
  writerIndex_ = kPrependSize + readable;
}

int Buffer::readFd(int fd, int* savedError) {
  // One call reads either into the buffer or into the stack area, never into
  // both: with free space the read stops at its end, and the rest of the
  // socket's data waits for the next poll pass. Only a full buffer takes the
  // big read, which then grows or compacts the buffer once.
  size_t writable = writableBytes();
  int n;
  if (writable > 0) {
    n = platform::recvSocket(fd, begin() + writerIndex_, writable);
    if (n > 0) writerIndex_ += static_cast<size_t>(n);
  } else {
    char extra[kExtraReadSize + 1];
    n = platform::recvSocket(fd, extra, kExtraReadSize);
    if (n > 0) append(extra, static_cast<size_t>(n));
  }
  if (n < 0) *savedError = platform::lastSocketError();
  return n;
}

}  // namespace net
}  // namespace velmar
