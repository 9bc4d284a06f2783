// Whole tick datagrams in a buffer of the receiver's size: the Shenzhen ones
// around the book tests' bodies, Shanghai's trade written at literal offsets.
#pragma once

#include <cstdint>
#include <utility>

#include "support/BookMessages.h"

namespace velmar {
namespace testing {

struct Datagram : booktest::Bytes {
  explicit Datagram(booktest::Bytes bytes) : booktest::Bytes(std::move(bytes)) {}
  /// Little-endian integer of `width` bytes at a Shenzhen body offset.
  Datagram& body(size_t offset, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) at(4 + offset + i) = static_cast<char>(value >> (8 * i));
    return *this;
  }
};

/// SzseOrderMsg, type 300192.
inline Datagram szseOrder(uint16_t channel, int64_t seq, const char* id, uint64_t price,
                          uint64_t qty, char side, int64_t time, char ordType = '2') {
  return Datagram(
      booktest::datagram(booktest::kOrderType,
                         booktest::orderBody(id, seq, side, price, qty, time, channel, ordType)));
}

/// SzseTradeMsg, type 300191.
inline Datagram szseTrade(uint16_t channel, int64_t seq, const char* id, uint64_t price,
                          uint64_t qty, char execType, int64_t time, int64_t bidSeq = 0,
                          int64_t offerSeq = 0) {
  return Datagram(booktest::datagram(
      booktest::kTradeType,
      booktest::tradeBody(id, execType, bidSeq, offerSeq, price, qty, time, seq, channel)));
}

/// SseTradeMsg, type 3201.
inline Datagram sseTrade(uint32_t channel, int32_t index, const char* id, uint32_t price,
                         uint64_t qty, uint64_t money, uint32_t time, uint64_t buyNo = 0,
                         uint64_t sellNo = 0, char flag = 'B') {
  using namespace booktest;
  Bytes d(5000, '\0');
  put32(d, 0, 3201);
  put32(d, 4, static_cast<uint32_t>(index));
  put32(d, 8, channel);
  putId(d, 12, id);
  put32(d, 20, time);
  put32(d, 24, price);
  put64(d, 32, qty);
  put64(d, 40, money);
  put64(d, 48, buyNo);
  put64(d, 56, sellNo);
  d[64] = flag;
  return Datagram(std::move(d));
}

}  // namespace testing
}  // namespace velmar
