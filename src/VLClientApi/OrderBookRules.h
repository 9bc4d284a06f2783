// The update rules of a Shenzhen order book, as plain functions on one
// CVelmarOrderBook and one message body. They know nothing of the map, the
// queue or the lock: LevelBookBuilder puts them together for the book thread,
// which runs them with mutex_ held, and the tests drive them directly.
//
// A body is the Shenzhen message from the datagram's byte 4 on, read field by
// field with little-endian loads at the offsets of FeedMessages.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "VLClientApi/FeedMessages.h"
#include "VLClientApi/OrderBookNode.h"
#include "VelmarMdStruct.h"

namespace velmar {
namespace mdapi {

/// Number of body bytes that the book thread reads for each kind of node,
/// counted from the body's start. A snapshot's book fields end with
/// OfferQty[9]; its best-level queues behind that are never read here.
constexpr size_t kOrderBookBytes = feed::szse_order::Size;                     // 51
constexpr size_t kTradeBookBytes = feed::szse_trade::Size;                     // 66
constexpr size_t kSnapshotBookBytes = feed::szse_snapshot::OfferQty + 10 * 8;  // 361

/// Body bytes that a node of `kind` needs, or 0 for a kind the books ignore.
inline size_t bookBytesOf(int32_t kind) {
  switch (kind) {
    case orderBookNode::kTrade:
      return kTradeBookBytes;
    case orderBookNode::kOrder:
      return kOrderBookBytes;
    case orderBookNode::kSnapshot:
      return kSnapshotBookBytes;
    default:
      return 0;
  }
}

/// The 8 bytes of SecurityID in a body of `kind` (0, 1 or 2).
inline const char* bookSecurityId(const char* body, int32_t kind) {
  switch (kind) {
    case orderBookNode::kTrade:
      return body + feed::szse_trade::SecurityID;
    case orderBookNode::kOrder:
      return body + feed::szse_order::SecurityID;
    default:
      return body + feed::szse_snapshot::SecurityID;
  }
}

/// A Fresh book for a 16-byte instrument id: every number 0, ExchangeID 2,
/// SecurityID the 16 bytes as given, all twenty order lists ",".
std::unique_ptr<CVelmarOrderBook> makeOrderBook(const char* id16);

/// The stamp check of the gate, after the map look-up has found `book`.
/// Orders and trades need a Seeded book (UpdateTime not 0); a snapshot needs
/// LastPx not 0 (tested by the caller before the look-up) and nothing else.
/// For all three UpdateTime must lie strictly below the message's stamp,
/// compared as signed 64-bit numbers.
bool bookAccepts(const CVelmarOrderBook& book, const char* body, int32_t kind);

/// LastPx of a snapshot body is not 0: an instrument that has not traded yet
/// gives snapshots that seed nothing.
bool snapshotHasLastPx(const char* snapshotBody);

/// A new order (SzseOrderMsg): joins the level with its price, or is
/// inserted in front of the first worse level, or finds no place. Moves
/// UpdateTime unless its Side is unknown.
void applyOrder(CVelmarOrderBook& book, const char* orderBody);

/// An execution ("F") or a cancellation ("4") (SzseTradeMsg). Never moves
/// UpdateTime.
void applyTrade(CVelmarOrderBook& book, const char* tradeBody);

/// A snapshot (SzseSnapshotMsg): overwrites totals, UpdateTime and the
/// prices and quantities of all twenty levels; the order lists stay.
void applySnapshot(CVelmarOrderBook& book, const char* snapshotBody);

}  // namespace mdapi
}  // namespace velmar
