// Shenzhen feed message bodies for the book tests and benchmarks, every field
// at a literal offset so that a wrong offset in the library's layout shows.
// datagram() puts the message type in front.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "VelmarMdStruct.h"

namespace booktest {

using Bytes = std::vector<char>;

inline void putLE(Bytes& b, size_t at, uint64_t v, size_t width) {
  for (size_t i = 0; i < width; ++i) b.at(at + i) = static_cast<char>((v >> (8 * i)) & 0xFF);
}
inline void put32(Bytes& b, size_t at, uint32_t v) {
  putLE(b, at, v, 4);
}
inline void put64(Bytes& b, size_t at, uint64_t v) {
  putLE(b, at, v, 8);
}
/// Up to 8 bytes of text, NUL-padded (an 8-character id has no NUL).
inline void putId(Bytes& b, size_t at, const std::string& id) {
  for (size_t i = 0; i < 8; ++i) b.at(at + i) = i < id.size() ? id[i] : '\0';
}

constexpr uint32_t kSnapshotType = 300111;
constexpr uint32_t kTradeType = 300191;
constexpr uint32_t kOrderType = 300192;

/// SzseOrderMsg body, 51 bytes.
inline Bytes orderBody(const std::string& id, int64_t applSeqNum, char side, uint64_t price,
                       uint64_t orderQty, int64_t orderTime, uint16_t channel = 2011,
                       char ordType = '2') {
  Bytes b(51, '\0');
  putLE(b, 0, channel, 2);
  putLE(b, 2, applSeqNum, 8);
  std::memcpy(&b[10], "011", 3);  // MDStreamID
  putId(b, 13, id);
  std::memcpy(&b[21], "102", 3);  // SecurityIDSource
  put64(b, 25, price);
  put64(b, 33, orderQty);
  b[41] = side;
  putLE(b, 42, orderTime, 8);
  b[50] = ordType;
  return b;
}

/// SzseTradeMsg body, 66 bytes.
inline Bytes tradeBody(const std::string& id, char execType, int64_t bidApplSeqNum,
                       int64_t offerApplSeqNum, uint64_t lastPx, uint64_t lastQty,
                       int64_t transactTime, int64_t applSeqNum = 1, uint16_t channel = 2011) {
  Bytes b(66, '\0');
  putLE(b, 0, channel, 2);
  putLE(b, 2, applSeqNum, 8);
  std::memcpy(&b[10], "011", 3);
  putLE(b, 13, bidApplSeqNum, 8);
  putLE(b, 21, offerApplSeqNum, 8);
  putId(b, 29, id);
  std::memcpy(&b[37], "102", 3);
  put64(b, 41, lastPx);
  put64(b, 49, lastQty);
  b[57] = execType;
  putLE(b, 58, transactTime, 8);
  return b;
}

/// The fields of a SzseSnapshotMsg that the books read, in raw feed units
/// (prices x 1000000, quantities and volume x 100, value x 10000).
struct Snapshot {
  std::string id = "000001";
  int64_t origTime = 0;
  int64_t numTrades = 0;
  uint64_t totalVolumeTrade = 0;
  uint64_t totalValueTrade = 0;
  uint32_t lastPx = 0;
  uint32_t bidPx[10] = {};
  uint64_t bidQty[10] = {};
  uint32_t offerPx[10] = {};
  uint64_t offerQty[10] = {};
  uint8_t bidQueue = 0;  ///< entries of the best-bid queue, written behind byte 380
  uint8_t offerQueue = 0;
};

/// SzseSnapshotMsg body: 380 bytes plus 4 per queue entry.
inline Bytes snapshotBody(const Snapshot& s) {
  Bytes b(380 + 4 * (size_t{s.bidQueue} + s.offerQueue), '\0');
  putLE(b, 0, s.origTime, 8);
  putLE(b, 8, 2011, 2);
  std::memcpy(&b[10], "010", 3);
  putId(b, 13, s.id);
  std::memcpy(&b[21], "102", 3);
  std::memcpy(&b[25], "T0      ", 8);
  put32(b, 33, 9990000);  // PrevClosePx, not read by the books
  putLE(b, 37, s.numTrades, 8);
  put64(b, 45, s.totalVolumeTrade);
  put64(b, 53, s.totalValueTrade);
  put32(b, 61, s.lastPx);
  for (size_t i = 0; i < 10; ++i) {
    put32(b, 121 + 4 * i, s.bidPx[i]);
    put64(b, 161 + 8 * i, s.bidQty[i]);
    put32(b, 241 + 4 * i, s.offerPx[i]);
    put64(b, 281 + 8 * i, s.offerQty[i]);
  }
  b[369] = static_cast<char>(s.bidQueue);
  b[370] = static_cast<char>(s.offerQueue);
  for (size_t i = 0; i < size_t{s.bidQueue} + s.offerQueue; ++i) put32(b, 380 + 4 * i, 100);
  return b;
}

/// A full book of ten levels a side, 100 shares each: bids 10.00 down to
/// 9.10, asks 10.10 up to 11.00, last price 10.00.
inline Snapshot tenLevelSnapshot(const std::string& id, int64_t origTime) {
  Snapshot s;
  s.id = id;
  s.origTime = origTime;
  s.lastPx = 10000000;
  for (int i = 0; i < 10; ++i) {
    s.bidPx[i] = static_cast<uint32_t>(10000000 - 100000 * i);
    s.bidQty[i] = 10000;
    s.offerPx[i] = static_cast<uint32_t>(10100000 + 100000 * i);
    s.offerQty[i] = 10000;
  }
  return s;
}

/// A datagram in a receive buffer of 5000 bytes: the type, then the body.
inline Bytes datagram(uint32_t type, const Bytes& body) {
  Bytes d(5000, '\0');
  put32(d, 0, type);
  if (!body.empty()) std::memcpy(&d[4], body.data(), body.size());
  return d;
}

/// A 16-byte NUL-padded instrument id, as the front's answers carry it.
struct Id16 {
  char bytes[16];
  explicit Id16(const std::string& id) {
    std::memset(bytes, 0, sizeof bytes);
    std::memcpy(bytes, id.data(), id.size() < 16 ? id.size() : 16);
  }
};

}  // namespace booktest
