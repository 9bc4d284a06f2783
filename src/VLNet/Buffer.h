// Buffer: the byte queue of a TCP connection. The connection reads into one
// and writes from another; the front dispatch parses packages straight out of
// the input buffer, working on the block pointer and the two indexes.
//
//   +-----------------+------------------+------------------+
//   | prependable     | readable         | writable         |
//   +-----------------+------------------+------------------+
//   0       <=   readerIndex   <=   writerIndex   <=   size()
//
// kPrependSize bytes are kept in front of the data: an empty buffer has both
// indexes at 8, and that is what retrieveAll and a reset set.
#pragma once

#include <cstddef>
#include <vector>

namespace velmar {
namespace net {

class Buffer {
 public:
  static constexpr size_t kPrependSize = 8;
  /// Initial size of a connection's buffers, beyond kPrependSize.
  static constexpr size_t kInitialSize = 4096;
  /// Largest single read into the stack area of readFd.
  static constexpr size_t kExtraReadSize = 65535;

  explicit Buffer(size_t initialSize = kInitialSize);

  size_t readableBytes() const { return writerIndex_ - readerIndex_; }
  size_t writableBytes() const { return buffer_.size() - writerIndex_; }
  size_t prependableBytes() const { return readerIndex_; }

  /// First readable byte.
  const char* peek() const { return begin() + readerIndex_; }
  char* beginWrite() { return begin() + writerIndex_; }

  /// Drops len readable bytes; all of them (and back to offset 8) when len is
  /// not below the readable count.
  void retrieve(size_t len) {
    if (len < readableBytes()) {
      readerIndex_ += len;
    } else {
      retrieveAll();
    }
  }
  /// Both indexes back to 8. Storage and contents stay.
  void retrieveAll() {
    readerIndex_ = kPrependSize;
    writerIndex_ = kPrependSize;
  }

  /// Appends len bytes. Moves the readable bytes down to offset 8 when that
  /// makes room, and grows the storage only when it does not.
  void append(const void* data, size_t len);

  /// Moves the readable bytes down to offset 8 (reader index 8, writer index
  /// 8 + readable). The front dispatch does this after each package.
  void moveReadableToFront();

  /// One recv from the socket: into the free space if there is any, else into
  /// a stack area whose bytes are then appended. Returns the recv result:
  /// bytes read, 0 for an orderly close, negative for failure, in which case
  /// *savedError holds the error of the read. Never reads more than the free
  /// space into the buffer itself; what is left in the socket comes next time.
  int readFd(int fd, int* savedError);

  // Direct access for the package reader, which parses in place.
  char* begin() { return buffer_.data(); }
  const char* begin() const { return buffer_.data(); }
  size_t readerIndex() const { return readerIndex_; }
  size_t writerIndex() const { return writerIndex_; }
  /// The caller keeps kPrependSize <= reader <= writer <= size().
  void setReaderIndex(size_t index) { readerIndex_ = index; }
  void setWriterIndex(size_t index) { writerIndex_ = index; }
  /// Size of the storage, prepend room included.
  size_t size() const { return buffer_.size(); }

 private:
  std::vector<char> buffer_;
  size_t readerIndex_;
  size_t writerIndex_;
};

}  // namespace net
}  // namespace velmar
