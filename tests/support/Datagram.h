// A feed datagram written byte by byte, as a sender would, into a buffer of
// the receiver's size. Tests write fields at literal offsets taken from the
// message tables, so that a wrong offset or width in the library shows.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace velmar {
namespace testing {

class Datagram {
 public:
  static constexpr size_t kReceiveSize = 5000;

  /// `type` goes into bytes 0..3. Bytes behind the message hold `fill`, as a
  /// reused receive buffer would.
  explicit Datagram(uint32_t type, uint8_t fill = 0) : bytes_(kReceiveSize, fill) {
    put(0, type, 4);
  }

  /// Little-endian integer of `width` bytes at a datagram offset.
  Datagram& put(size_t offset, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes_[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    return *this;
  }
  /// The same at a Shenzhen body offset (the datagram's byte 4 on).
  Datagram& body(size_t offset, uint64_t value, size_t width) { return put(4 + offset, value, width); }
  /// Text of at most `width` bytes, NUL-padded.
  Datagram& text(size_t offset, const char* s, size_t width) {
    std::memset(&bytes_[offset], 0, width);
    std::memcpy(&bytes_[offset], s, std::min(width, std::strlen(s)));
    return *this;
  }
  Datagram& bodyText(size_t offset, const char* s, size_t width) { return text(4 + offset, s, width); }
  Datagram& byte(size_t offset, char c) {
    bytes_[offset] = static_cast<uint8_t>(c);
    return *this;
  }
  Datagram& bodyByte(size_t offset, char c) { return byte(4 + offset, c); }

  const char* data() const { return reinterpret_cast<const char*>(bytes_.data()); }
  uint8_t* raw() { return bytes_.data(); }

 private:
  std::vector<uint8_t> bytes_;
};

/// SzseOrderMsg, type 300192.
inline Datagram szseOrder(uint16_t channel, int64_t seq, const char* id, uint64_t price,
                          uint64_t qty, char side, int64_t time, char ordType = '2') {
  Datagram d(300192);
  d.body(0, channel, 2).body(2, static_cast<uint64_t>(seq), 8).bodyText(10, "MDS", 3);
  d.bodyText(13, id, 8).bodyText(21, "102", 4).body(25, price, 8).body(33, qty, 8);
  d.bodyByte(41, side).body(42, static_cast<uint64_t>(time), 8).bodyByte(50, ordType);
  return d;
}

/// SzseTradeMsg, type 300191.
inline Datagram szseTrade(uint16_t channel, int64_t seq, const char* id, uint64_t price,
                          uint64_t qty, char execType, int64_t time, int64_t bidSeq = 0,
                          int64_t offerSeq = 0) {
  Datagram d(300191);
  d.body(0, channel, 2).body(2, static_cast<uint64_t>(seq), 8).bodyText(10, "MDS", 3);
  d.body(13, static_cast<uint64_t>(bidSeq), 8).body(21, static_cast<uint64_t>(offerSeq), 8);
  d.bodyText(29, id, 8).bodyText(37, "102", 4).body(41, price, 8).body(49, qty, 8);
  d.bodyByte(57, execType).body(58, static_cast<uint64_t>(time), 8);
  return d;
}

/// SseTradeMsg, type 3201.
inline Datagram sseTrade(uint32_t channel, int32_t index, const char* id, uint32_t price,
                         uint64_t qty, uint64_t money, uint32_t time, uint64_t buyNo = 0,
                         uint64_t sellNo = 0, char flag = 'B') {
  Datagram d(3201);
  d.put(4, static_cast<uint32_t>(index), 4).put(8, channel, 4).text(12, id, 8).put(20, time, 4);
  d.put(24, price, 4).put(32, qty, 8).put(40, money, 8).put(48, buyNo, 8).put(56, sellNo, 8);
  d.byte(64, flag);
  return d;
}

}  // namespace testing
}  // namespace velmar
