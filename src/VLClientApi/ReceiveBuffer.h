// ReceiveBuffer: the receiver's one buffer for datagrams, reused for every
// one of them. Handlers read fields at fixed offsets within the whole buffer,
// whatever a datagram's real length, so the bytes behind a datagram's end
// must never be what an earlier, longer datagram left there: a datagram cut
// short inside its sequence number would otherwise take the rest of it from
// its predecessor and poison the channel's sequence state for good. After
// each receive, received() zeroes the part of the previous datagram's extent
// that the new one did not overwrite, so a short datagram reads zeros behind
// its end. In the normal course (datagrams of one type in a row) that is
// nothing or a few bytes.
//
// Receiver thread only (tests and the fuzz target drive it from theirs).
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "VLClientApi/FeedMessages.h"

namespace velmar {
namespace mdapi {

class ReceiveBuffer {
 public:
  static constexpr size_t kCapacity = feed::kReceiveSize;

  ReceiveBuffer() : bytes_(new char[kCapacity]()) {}
  ReceiveBuffer(const ReceiveBuffer&) = delete;
  ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;

  /// Where the next datagram goes; kCapacity bytes.
  char* data() { return bytes_.get(); }
  const char* data() const { return bytes_.get(); }

  /// A datagram of `length` bytes (at most kCapacity) has just been written
  /// at data(): clears what the previous one left behind it.
  void received(size_t length) {
    if (length > kCapacity) length = kCapacity;
    if (length < extent_) std::memset(bytes_.get() + length, 0, extent_ - length);
    extent_ = length;
  }

 private:
  std::unique_ptr<char[]> bytes_;
  /// Bytes of the buffer that may be non-zero: the last datagram's length.
  size_t extent_ = 0;
};

}  // namespace mdapi
}  // namespace velmar
